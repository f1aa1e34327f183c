// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/leaves.h
  The leaf pages of an index, one after another in key order.
*/

#ifndef MORVENA_SN_INNODB_API_LEAVES_H
#define MORVENA_SN_INNODB_API_LEAVES_H

#include <atomic>
#include <cstddef>
#include <memory>

#include "innodb_api/latch.h"
#include "innodb_api/plan.h"
#include "innodb_api/range.h"
#include "innodb_api/scope.h"

/**
  A cursor over leaf records. It latches the page that it stands on, shared. To
  move on it latches the next page and then releases the first. No other part of
  a worker keeps a page latched from one row to the next. The read holds the
  index latch, and the thread is in the tree.

  A stored position is a key. The cursor returns to the first record at or after
  the key, even if the record or its page has changed or is gone.
*/
class Leaf_walk {
 public:
  Leaf_walk(const Index_tree &tree, Index_latch *latch);
  Leaf_walk(const Leaf_walk &) = delete;
  Leaf_walk &operator=(const Leaf_walk &) = delete;

  /** Move to a boundary's record, or to the first record after it if that
      record is gone. @return whether the record is still there */
  bool come_to(const Iter &boundary);

  bool is_after_last() const { return page_cur_is_after_last(&cursor_); }
  const rec_t *record() { return page_cur_get_rec(&cursor_); }
  void step() { page_cur_move_to_next(&cursor_); }
  /** The last record of the page. */
  const rec_t *last_record();
  /** The mini-transaction that holds the page. */
  mtr_t *mtr() { return mtrs_[current_mtr_].get(); }

  /** Move to the next page, when all records of this one are handled. If a
      thread waits for the index latch, release the page first and come back by
      key. @return DB_END_OF_INDEX if there is no next page */
  [[nodiscard]] dberr_t next_page();

  /** Release the page, when all its records are handled. @return the position
      of the last one; null, without releasing, if the page has no record */
  [[nodiscard]] std::shared_ptr<Iter> leave();
  /** Move to the first record after the position that leave() returned. */
  void come_back(const Iter &last_handled);

  /** Called between leave() and come_back(), to let the waiter run. It is
      sched_yield(); tests put another function in its place. */
  static std::atomic<void (*)()> s_yield;

 private:
  bool give_way();
  buf_block_t *block() { return page_cur_get_block(&cursor_); }

  const Index_tree &tree_;
  Index_latch *const latch_;
  // One holds the current page; the other latches the next one. A single
  // mini-transaction would grow with every page.
  Read_mtr mtrs_[2];
  size_t current_mtr_ = 0;
  page_cur_t cursor_{};
};

#endif  // MORVENA_SN_INNODB_API_LEAVES_H
