/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// The worker pool and the thread budget.

#include "innodb_api/pool.h"

#include <algorithm>
#include <chrono>
#include <list>

#include "univ.i"

#include "my_thread.h"
#include "ut0dbg.h"

namespace {

// Threads beside the pool. Nobody waits for their tasks; but a task's future is
// ready before its thread has left this code, which may then be unmapped.
class Threads_beside {
 public:
  // At the unmapping. A task that runs even now is its submitter's fault.
  ~Threads_beside() {
    const auto give_up = std::chrono::steady_clock::now() + leaving_limit;
    for (Entry &entry : entries_) {
      while (!entry.ended && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      if (!entry.ended) entry.thread.detach();
    }
    forget_ended();
    if (!entries_.empty()) new std::list<Entry>(std::move(entries_));
  }

  void start(std::function<void()> task) {
    std::list<Entry> made(1);
    Entry &entry = made.front();
    const std::lock_guard<std::mutex> lock(mutex_);
    forget_ended();
    entry.thread = std::thread([&entry, task = std::move(task)]() mutable {
      my_thread_init();
      task();
      task = nullptr;
      my_thread_end();
      entry.ended = true;
    });
    entries_.splice(entries_.end(), made);
  }

 private:
  static constexpr std::chrono::seconds leaving_limit{1};

  struct Entry {
    ~Entry() {
      if (thread.joinable()) thread.join();
    }
    std::thread thread;
    std::atomic<bool> ended{false};
  };

  void forget_ended() {
    entries_.remove_if([](const Entry &entry) { return entry.ended.load(); });
  }

  std::mutex mutex_;
  std::list<Entry> entries_;  // under mutex_
};

Threads_beside threads_beside;

}  // namespace

ThreadPool *ThreadPool::instance = nullptr;

std::atomic<size_t> ThreadBudget::s_active_threads{0};

void ThreadPool::initialize() {
  if (instance == nullptr) instance = new ThreadPool(n_workers);
}

ThreadPool *ThreadPool::get_instance() { return instance; }

void ThreadPool::shutdown() noexcept {
  if (instance == nullptr) return;
  instance->stop_and_join();
  delete instance;
  instance = nullptr;
}

ThreadPool::ThreadPool(size_t n) : idle_workers(n) {
  workers.reserve(n);
  try {
    while (workers.size() < n) workers.emplace_back([this] { work(); });
  } catch (...) {
    // No thread or no memory for one more: the others serve.
    idle_workers -= n - workers.size();
  }
}

void ThreadPool::work() {
  my_thread_init();
  std::unique_lock<std::mutex> lock(queue_mutex);
  for (;;) {
    condition.wait(lock, [this] { return stop_flag || !tasks.empty(); });
    if (tasks.empty()) break;
    {
      const std::function<void()> task = std::move(tasks.front());
      tasks.pop();
      --idle_workers;
      lock.unlock();
      task();
      ++idle_workers;
    }
    lock.lock();
  }
  my_thread_end();
}

bool ThreadPool::enqueue(std::function<void()> task) {
  const std::lock_guard<std::mutex> lock(queue_mutex);
  if (stop_flag) throw std::runtime_error("ThreadPool has been stopped.");
  if (tasks.size() >= idle_workers) return false;
  tasks.push(std::move(task));
  condition.notify_one();
  return true;
}

void ThreadPool::run_beside(std::function<void()> task) {
  threads_beside.start(std::move(task));
}

void ThreadPool::stop_and_join() {
  {
    const std::lock_guard<std::mutex> lock(queue_mutex);
    stop_flag = true;
    condition.notify_all();
  }
  for (std::thread &worker : workers) worker.join();
}

// An optimistic add and a corrective subtraction, no loop. A request beyond the
// budget is cut first: a huge one would make the counter wrap under the others.
size_t ThreadBudget::available_threads(size_t n_required) {
  n_required = std::min(n_required, MAX_THREADS);
  const size_t active = s_active_threads.fetch_add(n_required);
  if (active >= MAX_THREADS) {
    const size_t o = s_active_threads.fetch_sub(n_required);
    ut_a(o >= n_required);
    return 0;
  }
  const size_t available = MAX_THREADS - active;
  if (n_required <= available) return n_required;
  const size_t release = n_required - available;
  const size_t o = s_active_threads.fetch_sub(release);
  ut_a(o >= release);
  return available;
}

void ThreadBudget::release_threads(size_t n_threads) {
  const size_t active = s_active_threads.fetch_sub(n_threads);
  ut_a(active >= n_threads);
}
