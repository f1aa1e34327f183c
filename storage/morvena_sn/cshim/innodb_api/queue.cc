// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// queue: the units that wait for a worker.
// In: units. Out: units, first in, first out; a marked one comes back as finer
// ones. Holds: the queue's mutex, for one list operation; when splitting, what
// partition holds. Threads: any worker. Fails: out of memory.

#include <new>

#include "innodb_api.h"
#include "innodb_api/scope.h"

namespace {

class Queue_lock {
 public:
  explicit Queue_lock(ib_mutex_t *mutex) : mutex_(mutex) {
    mutex_enter(mutex_);
  }
  ~Queue_lock() { mutex_exit(mutex_); }
  Queue_lock(const Queue_lock &) = delete;
  Queue_lock &operator=(const Queue_lock &) = delete;

 private:
  ib_mutex_t *mutex_;
};

class Latch_hold {
 public:
  explicit Latch_hold(ParallelIndexReader *reader) : reader_(reader) {
    reader_->index_s_lock();
  }
  ~Latch_hold() { reader_->index_s_unlock(); }
  Latch_hold(const Latch_hold &) = delete;
  Latch_hold &operator=(const Latch_hold &) = delete;

 private:
  ParallelIndexReader *reader_;
};

}  // namespace

void ParallelIndexReader::enqueue(std::shared_ptr<Ctx> ctx) {
  // The list's node is made before the mutex is taken.
  std::list<std::shared_ptr<Ctx>> node;
  node.push_back(std::move(ctx));
  const Queue_lock lock(&mutex_);
  ctxs_.splice(ctxs_.end(), node);
}

std::shared_ptr<Ctx> ParallelIndexReader::deque() {
  std::list<std::shared_ptr<Ctx>> node;
  {
    const Queue_lock lock(&mutex_);
    if (ctxs_.empty()) return nullptr;
    node.splice(node.end(), ctxs_, ctxs_.begin());
  }
  return std::move(node.front());
}

// The unit itself is not read: the finer ones cover its range. None comes out
// when its records are gone.
dberr_t ParallelIndexReader::split_ctx(const Ctx *ctx) {
  const Latch_hold hold(this);
  const Index_latch::In_tree in_tree(&latch_);
  std::vector<Range> ranges;
  Read_mtr mtr;
  const dberr_t err = partition_range(ctx->range_, index_->page, ranges, 0, 1,
                                      thread_ctxs_.size(), mtr.start());
  mtr.commit();
  if (err != DB_SUCCESS) return err;
  close_last_range(*ctx->range_.second, ranges);
  constexpr size_t never = SIZE_MAX;  // a unit is split once at most
  return enqueue_units(ranges, never);
}
