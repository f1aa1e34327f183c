// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/pool.h
  The threads of parallel reads: one pool for the process, and beside it a
  budget from which each read reserves its threads before it starts. Needs no
  server but its per-thread set-up.

  Invariants: a worker leaves only when the pool stops and the queue is empty,
  so what was queued runs. No more tasks are queued than workers are idle: one
  beyond them gets a thread of its own, and waits for no other, which may itself
  wait for it.
*/

#ifndef MORVENA_SN_COMMON_POOL_H
#define MORVENA_SN_COMMON_POOL_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <queue>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/mutex.h"

class ThreadPool {
 public:
  /** How many workers initialize() starts. */
  static constexpr size_t n_workers = 32;

  /** Create the process's pool; nothing when there is one. May throw
      std::bad_alloc. */
  static void initialize();
  /** @return the process's pool, null before initialize() and after shutdown()
   */
  static ThreadPool *get_instance();
  /** Give the pool to nobody any more, wait for who holds it, run what is
      queued, and destroy it when all threads have ended, those beside it among
      them; nothing when there is none. */
  static void shutdown() noexcept;

  /** Keeps the process's pool for as long as it lives; null when there is
      none. */
  class Hold {
   public:
    Hold();
    ~Hold();
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;
    ThreadPool *get() const { return pool_; }

   private:
    ThreadPool *pool_;
  };

  /** Start n workers, or as many as the system grants. */
  explicit ThreadPool(size_t n);
  ~ThreadPool() = default;
  ThreadPool(const ThreadPool &) = delete;
  ThreadPool &operator=(const ThreadPool &) = delete;

  /**
    Have a worker run f, or a thread beside the pool when no worker is idle.
    What f throws stays in the future.

    Throws std::runtime_error when the pool is stopping, std::system_error when
    no thread can be had.
  */
  template <class F>
  auto submit(F &&f) -> std::future<std::invoke_result_t<std::decay_t<F>>> {
    using Result = std::invoke_result_t<std::decay_t<F>>;
    auto task =
        std::make_shared<std::packaged_task<Result()>>(std::forward<F>(f));
    std::future<Result> result = task->get_future();
    if (idle_workers.load() == 0 || !enqueue([task] { (*task)(); })) {
      run_beside([task] { (*task)(); });
    }
    return result;
  }

  /** @return how many workers are not running a task */
  size_t n_idle() const { return idle_workers.load(); }

 private:
  /** @return whether a worker is left for the task */
  bool enqueue(std::function<void()> task);
  static void run_beside(std::function<void()> task);
  void work();
  void stop_and_join();

  std::vector<std::thread> workers;
  Checked_mutex queue_mutex;
  std::queue<std::function<void()>> tasks GUARDED_BY(queue_mutex);
  std::condition_variable condition;  // with queue_mutex
  bool stop_flag GUARDED_BY(queue_mutex) = false;
  std::atomic<size_t> idle_workers{0};  // less only under queue_mutex

  static Checked_mutex instance_mutex;
  static std::condition_variable let_go;  // with instance_mutex
  static ThreadPool *instance GUARDED_BY(instance_mutex);
  size_t n_holds GUARDED_BY(instance_mutex) = 0;
};

/** The scan threads that all parallel reads of the process may hold at once. */
class ThreadBudget {
 public:
  static constexpr size_t MAX_THREADS = 256;

  /** Reserve up to n_required threads. @return how many were reserved */
  static size_t available_threads(size_t n_required);
  /** Give n_threads back. */
  static void release_threads(size_t n_threads);

  /** Threads reserved; above MAX_THREADS for a moment while a reservation
      corrects itself. */
  static std::atomic<size_t> s_active_threads;
};

#endif  // MORVENA_SN_COMMON_POOL_H
