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

#include "common/mutex.h"
#include "host/innodb.h"

class Index_latch {
 public:
  explicit Index_latch(dict_index_t *index)
      : latch_(dict_index_get_lock(index)) {}
  Index_latch(const Index_latch &) = delete;
  Index_latch &operator=(const Index_latch &) = delete;

  /** Counted over all threads: the first takes the latch, the last releases it.
   */
  void index_s_lock();
  void index_s_unlock();

  /** Holds it until the end of the scope. */
  class Hold {
   public:
    explicit Hold(Index_latch *latch) : latch_(latch) {
      latch_->index_s_lock();
    }
    ~Hold() { latch_->index_s_unlock(); }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

   private:
    Index_latch *latch_;
  };

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
  void park() EXCLUDES(mutex_);

 private:
  void enter_tree() EXCLUDES(mutex_);
  void leave_tree() EXCLUDES(mutex_);
  void wait_for_turn(Checked_lock *lock) REQUIRES(mutex_);
  void give_away() REQUIRES(mutex_);

  rw_lock_t *latch_;
  std::atomic<size_t> s_locks_{0};

  Checked_mutex mutex_;
  std::condition_variable gone_on_;  // with mutex_
  size_t n_in_tree_ GUARDED_BY(mutex_) = 0;
  bool giving_way_ GUARDED_BY(mutex_) = false;
  uint64_t turn_ GUARDED_BY(mutex_) = 0;  // how often it was given away
};

#endif  // MORVENA_SN_INNODB_API_LATCH_H
