// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/latch.h
  The scanned index's latch, as one read holds it: shared, from start to end.

  Somebody who waits for it exclusively lets no new shared holder through, so a
  long read would hold up every statement on the index. Workers therefore park
  when they see such a waiter, with no page in hand; when nobody of the read is
  in the tree any more, the latch is let go and taken again, and all go on.
*/

#ifndef MORVENA_SN_INNODB_API_LATCH_H
#define MORVENA_SN_INNODB_API_LATCH_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "host/innodb.h"

class Index_latch {
 public:
  explicit Index_latch(dict_index_t *index)
      : latch_(dict_index_get_lock(index)) {}
  Index_latch(const Index_latch &) = delete;
  Index_latch &operator=(const Index_latch &) = delete;

  /** Counted over all threads: the first takes the latch, the last releases it.
   */
  void lock();
  void unlock();
  /** Release the latch whatever the count. */
  void release();

  /** Whether somebody waits for the latch, for whatever reason. */
  bool has_waiters() const;
  /** Whether somebody waits for it exclusively. The host's mark of waiters does
      not show the first of them. */
  bool is_wanted() const;

  /** While an object of this lives its thread may hold pages of the index. Made
      under the latch; waits while the latch is given away. */
  class In_tree {
   public:
    explicit In_tree(Index_latch *latch) : latch_(latch) {
      latch_->enter_tree();
    }
    ~In_tree() { latch_->leave_tree(); }
    In_tree(const In_tree &) = delete;
    In_tree &operator=(const In_tree &) = delete;

   private:
    Index_latch *latch_;
  };

  /** Wait until the latch has been given away once and is held again. The
      calling thread is in the tree and holds no page. */
  void park();

 private:
  void enter_tree();
  void leave_tree();
  void wait_for_turn(std::unique_lock<std::mutex> *lock);
  void give_away();

  rw_lock_t *latch_;
  std::atomic<size_t> s_locks_{0};

  std::mutex mutex_;
  std::condition_variable gone_on_;  // with mutex_
  size_t n_in_tree_ = 0;             // under mutex_
  bool giving_way_ = false;          // under mutex_
  uint64_t turn_ = 0;  // under mutex_: how often it was given away
};

#endif  // MORVENA_SN_INNODB_API_LATCH_H
