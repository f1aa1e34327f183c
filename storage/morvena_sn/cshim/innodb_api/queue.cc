// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// queue: the units that wait for a worker.
// In: units. Out: units, first in, first out. Holds: its mutex, for one list
// operation. Threads: any worker. Fails: out of memory.

#include "innodb_api/queue.h"

void Unit_queue::enqueue(std::shared_ptr<Ctx> ctx) {
  // The list's node is made before the mutex is taken.
  std::list<std::shared_ptr<Ctx>> node;
  node.push_back(std::move(ctx));
  const Checked_lock lock(&mutex_);
  node.front()->id_ = n_created_++;
  ctxs_.splice(ctxs_.end(), node);
  changed_.notify_one();
}

std::shared_ptr<Ctx> Unit_queue::deque() {
  std::list<std::shared_ptr<Ctx>> node;
  {
    const Checked_lock lock(&mutex_);
    if (ctxs_.empty()) return nullptr;
    node.splice(node.end(), ctxs_, ctxs_.begin());
  }
  return std::move(node.front());
}

void Unit_queue::open() {
  const Checked_lock lock(&mutex_);
  is_open_ = true;
  changed_.notify_all();
}

void Unit_queue::close() {
  const Checked_lock lock(&mutex_);
  is_closed_ = true;
  changed_.notify_all();
}

bool Unit_queue::wait_for_unit() {
  Checked_lock lock(&mutex_);
  for (;;) {
    if (is_closed_) return false;
    if (is_open_ && !ctxs_.empty()) return true;
    if (is_open_ && n_completed_ == n_created_) return false;
    lock.wait(&changed_);
  }
}

void Unit_queue::complete() {
  const Checked_lock lock(&mutex_);
  if (++n_completed_ == n_created_) changed_.notify_all();
}
