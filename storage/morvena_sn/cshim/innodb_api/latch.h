// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/latch.h
  The latch of the scanned index. A read holds it shared, from start to end.

  An exclusive request that waits blocks every new shared request, so a long
  read would hold up every statement on the index. A worker that sees such a
  request releases its page and parks. When no worker of the read is in the tree
  any more, the read releases the latch and requests it again. It gets the latch
  after the writer, and then all workers go on.
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

  /** Holds the latch until the end of the scope. */
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

  /** Whether a thread waits for the latch, shared or exclusively. */
  bool has_waiters() const;
  /** Whether a thread waits for the latch exclusively. InnoDB's flag for
     waiters does not show the first such thread. */
  bool is_wanted() const;

  /** While it lives, its thread may hold pages of the index. The read holds the
      latch when it is made. The constructor waits while the read gives the
     latch away. */
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

  /** Wait until the read has given the latch away once and holds it again. The
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
  uint64_t turn_ GUARDED_BY(mutex_) = 0;  // times it was given away
};

#endif  // MORVENA_SN_INNODB_API_LATCH_H
