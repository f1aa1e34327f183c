// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The worker pool and the thread budget.

#include "common/pool.h"

#include <algorithm>
#include <chrono>
#include <list>

#include "univ.i"

#include "my_thread.h"
#include "ut0dbg.h"

namespace {

// Threads beside the pool. A task's future is ready before its thread has left
// this code. One of those that end joins the others, so that a single one keeps
// its stack. If each joined the one before it, a slow exit would keep all the
// later ones alive.
class Threads_beside {
 public:
  void start(std::function<void()> task) {
    std::list<std::thread> made(1);
    const auto self = made.begin();
    const Checked_lock lock(&mutex_);
    *self = std::thread([this, self, task = std::move(task)]() mutable {
      my_thread_init();
      task();
      task = nullptr;
      my_thread_end();
      end(self);
    });
    running_.splice(running_.end(), made);
  }

  /** Wait until all have ended. */
  void join() EXCLUDES(mutex_) {
    std::list<std::thread> ended;
    {
      Checked_lock lock(&mutex_);
      while (!is_quiet()) lock.wait(&quiet_);
      ended.swap(ended_);
    }
    for (std::thread &thread : ended) thread.join();
  }

  /** The same for as long as may be expected of tasks that are over. */
  void join_for_a_while() EXCLUDES(mutex_) {
    const auto give_up = std::chrono::steady_clock::now() + leaving_limit;
    {
      Checked_lock lock(&mutex_);
      while (!is_quiet() && lock.wait_until(&quiet_, give_up)) {
      }
      if (!is_quiet()) return;
    }
    join();
  }

 private:
  using Self = std::list<std::thread>::iterator;
  static constexpr std::chrono::seconds leaving_limit{1};

  bool is_quiet() const REQUIRES(mutex_) {
    return running_.empty() && !somebody_joins_;
  }

  void end(Self self) EXCLUDES(mutex_) {
    std::list<std::thread> others = first_to_join(self);
    while (!others.empty()) {
      for (std::thread &thread : others) thread.join();
      others.clear();
      const Checked_lock lock(&mutex_);
      others = ended_but(self);
    }
  }

  std::list<std::thread> first_to_join(Self self) EXCLUDES(mutex_) {
    const Checked_lock lock(&mutex_);
    ended_.splice(ended_.end(), running_, self);
    return somebody_joins_ ? std::list<std::thread>() : ended_but(self);
  }

  // For the thread that joins, which stops when there are no more.
  std::list<std::thread> ended_but(Self self) REQUIRES(mutex_) {
    std::list<std::thread> others;
    others.swap(ended_);
    ended_.splice(ended_.end(), others, self);
    somebody_joins_ = !others.empty();
    if (is_quiet()) quiet_.notify_all();
    return others;
  }

  Checked_mutex mutex_;
  std::condition_variable quiet_;  // with mutex_
  std::list<std::thread> running_ GUARDED_BY(mutex_);
  std::list<std::thread> ended_ GUARDED_BY(mutex_);
  bool somebody_joins_ GUARDED_BY(mutex_) = false;
};

// Never destroyed: a thread that does not end may still come to it.
Threads_beside &threads_beside() {
  static auto *const threads = new Threads_beside;
  return *threads;
}

// Joins them before the code is unmapped, or when the process exits. A task
// that runs even then is its submitter's fault.
const struct Join_at_unload {
  ~Join_at_unload() { threads_beside().join_for_a_while(); }
} join_at_unload;

}  // namespace

Checked_mutex ThreadPool::instance_mutex;
std::condition_variable ThreadPool::let_go;
ThreadPool *ThreadPool::instance = nullptr;

std::atomic<size_t> ThreadBudget::s_active_threads{0};

void ThreadPool::initialize() {
  // Made here, so that a shutdown has no memory to ask for.
  threads_beside();
  const Checked_lock lock(&instance_mutex);
  if (instance == nullptr) instance = new ThreadPool(n_workers);
}

ThreadPool *ThreadPool::get_instance() {
  const Checked_lock lock(&instance_mutex);
  return instance;
}

ThreadPool::Hold::Hold() {
  const Checked_lock lock(&instance_mutex);
  pool_ = instance;
  if (pool_ != nullptr) ++pool_->n_holds;
}

ThreadPool::Hold::~Hold() {
  if (pool_ == nullptr) return;
  const Checked_lock lock(&instance_mutex);
  if (--pool_->n_holds == 0) let_go.notify_all();
}

void ThreadPool::shutdown() noexcept {
  Checked_lock lock(&instance_mutex);
  ThreadPool *const pool = std::exchange(instance, nullptr);
  if (pool == nullptr) return;
  while (pool->n_holds != 0) lock.wait(&let_go);
  lock.unlock();
  pool->stop_and_join();
  delete pool;
  threads_beside().join();
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
  Checked_lock lock(&queue_mutex);
  for (;;) {
    while (!stop_flag && tasks.empty()) lock.wait(&condition);
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
  const Checked_lock lock(&queue_mutex);
  if (stop_flag) throw std::runtime_error("ThreadPool has been stopped.");
  if (tasks.size() >= idle_workers) return false;
  tasks.push(std::move(task));
  condition.notify_one();
  return true;
}

void ThreadPool::run_beside(std::function<void()> task) {
  threads_beside().start(std::move(task));
}

void ThreadPool::stop_and_join() {
  {
    const Checked_lock lock(&queue_mutex);
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
