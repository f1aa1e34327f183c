// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// latch: who may be in the tree of the scanned index, and when a writer may.
// In: the driver's hold, workers that enter and leave. Out: the latch, for a
// moment, to a thread that waits for it exclusively. Holds: the index latch,
// shared. Threads: the driver's and all workers. Fails: never.

#include "innodb_api/latch.h"

#include "common/counters.h"

namespace {

constexpr ulint latch_pass = 1;  // another thread may release it

}  // namespace

void Index_latch::index_s_lock() {
  if (s_locks_.fetch_add(1) == 0) host::s_lock(latch_, latch_pass);
}

void Index_latch::index_s_unlock() {
  if (s_locks_.fetch_sub(1) == 1) host::s_unlock(latch_, latch_pass);
}

bool Index_latch::is_wanted() const {
  return rw_lock_get_writer(latch_) == RW_LOCK_X_WAIT;
}

bool Index_latch::has_waiters() const {
  return rw_lock_get_waiters(latch_) || is_wanted();
}

void Index_latch::enter_tree() {
  Checked_lock lock(&mutex_);
  if (giving_way_) wait_for_turn(&lock);
  ++n_in_tree_;
}

void Index_latch::leave_tree() {
  const Checked_lock lock(&mutex_);
  if (--n_in_tree_ == 0 && giving_way_) give_away();
}

void Index_latch::park() {
  counters::count(Tally::PARKS);
  Checked_lock lock(&mutex_);
  giving_way_ = true;
  if (--n_in_tree_ == 0) {
    give_away();
  } else {
    wait_for_turn(&lock);
  }
  ++n_in_tree_;
}

// Waits for the end of the current turn only. The next turn may begin at once,
// and a thread that waited for a moment without any turn might never go on.
void Index_latch::wait_for_turn(Checked_lock *lock) {
  const uint64_t turn = turn_;
  while (turn_ == turn) lock->wait(&gone_on_);
}

// The waiting writer gets the latch first, so requesting it again waits until
// the writer has had it.
void Index_latch::give_away() {
  host::s_unlock(latch_, latch_pass);
  host::s_lock(latch_, latch_pass);
  giving_way_ = false;
  ++turn_;
  gone_on_.notify_all();
}
