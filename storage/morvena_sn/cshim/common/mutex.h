// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/mutex.h
  std::mutex and std::unique_lock as clang's thread-safety analysis knows them.
*/

#ifndef MORVENA_SN_COMMON_MUTEX_H
#define MORVENA_SN_COMMON_MUTEX_H

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "common/annotations.h"

class CAPABILITY("mutex") Checked_mutex {
 public:
  Checked_mutex() = default;
  Checked_mutex(const Checked_mutex &) = delete;
  Checked_mutex &operator=(const Checked_mutex &) = delete;

 private:
  friend class Checked_lock;
  std::mutex mutex_;
};

/** Holds a mutex until the end of its scope. */
class SCOPED_CAPABILITY Checked_lock {
 public:
  explicit Checked_lock(Checked_mutex *mutex) ACQUIRE(mutex)
      : lock_(mutex->mutex_) {}
  ~Checked_lock() RELEASE() {}
  Checked_lock(const Checked_lock &) = delete;
  Checked_lock &operator=(const Checked_lock &) = delete;

  void unlock() RELEASE() { lock_.unlock(); }
  void lock() ACQUIRE() { lock_.lock(); }

  /** Wait for a notification, without the mutex meanwhile. May return without
      one: the caller looks whether what he waits for is so. */
  void wait(std::condition_variable *condition) { condition->wait(lock_); }
  /** @return whether the time is not over */
  [[nodiscard]] bool wait_until(std::condition_variable *condition,
                                std::chrono::steady_clock::time_point end) {
    return condition->wait_until(lock_, end) == std::cv_status::no_timeout;
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

#endif  // MORVENA_SN_COMMON_MUTEX_H
