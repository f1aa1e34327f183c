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
  A cursor over leaf records. It alone latches pages between two rows: the page
  that it stands on, shared, and when it moves on the next one before it lets go
  of that. The read holds the index latch, and the thread is in the tree.

  A position that is taken up again is a key: the cursor comes to stand at the
  first record at or after it, whatever became of the record and its page
  meanwhile.
*/
class Leaf_walk {
 public:
  Leaf_walk(const Index_tree &tree, Index_latch *latch);
  Leaf_walk(const Leaf_walk &) = delete;
  Leaf_walk &operator=(const Leaf_walk &) = delete;

  /** Come to stand on a boundary's record if it is still there, else on the
      first one after it. @return whether it is that record */
  bool come_to(const Iter &boundary);

  bool is_after_last() const { return page_cur_is_after_last(&cursor_); }
  const rec_t *record() { return page_cur_get_rec(&cursor_); }
  void step() { page_cur_move_to_next(&cursor_); }
  /** The last record of the page. */
  const rec_t *last_record();
  /** That holds the page. */
  mtr_t *mtr() { return mtrs_[current_mtr_].get(); }

  /** At a page's end, all records of which are handled: on to the next page.
      For somebody who waits for the index latch everything is let go first.
      @return DB_END_OF_INDEX when there is none */
  [[nodiscard]] dberr_t next_page();

  /** Let go of the page, at its end. @return the last record handled, null if
      the page has none and is not let go */
  [[nodiscard]] std::shared_ptr<Iter> leave();
  /** Come to stand on the first record after one at which leave() was called.
   */
  void come_back(const Iter &last_handled);

  /** What a thread does between leave() and come_back() for a waiter:
      sched_yield(), unless a test has something happen there. */
  static std::atomic<void (*)()> s_yield;

 private:
  bool give_way();
  buf_block_t *block() { return page_cur_get_block(&cursor_); }

  const Index_tree &tree_;
  Index_latch *const latch_;
  // One holds the page in hand; the other takes the next page. A single one
  // would grow with every page.
  Read_mtr mtrs_[2];
  size_t current_mtr_ = 0;
  page_cur_t cursor_{};
};

#endif  // MORVENA_SN_INNODB_API_LEAVES_H
