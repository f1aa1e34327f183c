// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/queue.h
  The units of a read: those that wait for a worker, and how many are not
  completed. Needs no server.

  A unit is created when it is queued, and completed when a worker says so. A
  worker that splits a unit queues the finer units before it completes the unit.
  So the whole range has been read when as many units are completed as were
  created.
*/

#ifndef MORVENA_SN_INNODB_API_QUEUE_H
#define MORVENA_SN_INNODB_API_QUEUE_H

#include <condition_variable>
#include <cstddef>
#include <list>
#include <memory>

#include "common/mutex.h"
#include "innodb_api/unit.h"

class Unit_queue {
 public:
  Unit_queue() = default;
  Unit_queue(const Unit_queue &) = delete;
  Unit_queue &operator=(const Unit_queue &) = delete;

  /** Append a unit. May throw std::bad_alloc; the queue is then unchanged. */
  void enqueue(std::shared_ptr<Ctx> ctx) EXCLUDES(mutex_);
  /** @return the oldest unit, empty when there is none */
  [[nodiscard]] std::shared_ptr<Ctx> deque() EXCLUDES(mutex_);

  /** The workers are ready: units may be taken. */
  void open() EXCLUDES(mutex_);
  /** The read has failed: wait_for_unit() returns false from then on. */
  void close() EXCLUDES(mutex_);
  /** Wait until the queue is open and has a unit. Another worker may be faster
      to take it. @return false when all are completed or the queue is closed */
  [[nodiscard]] bool wait_for_unit() EXCLUDES(mutex_);
  /** A unit that was taken has been read or split. */
  void complete() EXCLUDES(mutex_);

 private:
  Checked_mutex mutex_;
  std::condition_variable changed_;  // with mutex_
  std::list<std::shared_ptr<Ctx>> ctxs_ GUARDED_BY(mutex_);
  size_t n_created_ GUARDED_BY(mutex_) = 0;
  size_t n_completed_ GUARDED_BY(mutex_) = 0;
  bool is_open_ GUARDED_BY(mutex_) = false;
  bool is_closed_ GUARDED_BY(mutex_) = false;
};

#endif  // MORVENA_SN_INNODB_API_QUEUE_H
