// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "common/pool.h"
#include "gtest/gtest.h"
#include "host_stand_in.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using Threads = ThreadPool;
using Futures = std::vector<std::future<void>>;

bool wait_until(const std::function<bool()> &reached) {
  const auto give_up =
      std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!reached()) {
    if (std::chrono::steady_clock::now() > give_up) return false;
    std::this_thread::yield();
  }
  return true;
}

/** Holds threads back until it opens; they may outlive it. */
class Gate {
 public:
  Gate() : opened_(open_.get_future()) {}
  std::function<void()> pass() const {
    return [opened = opened_] { opened.wait(); };
  }
  void open() { open_.set_value(); }

 private:
  std::promise<void> open_;
  std::shared_future<void> opened_;
};

/** Runs n tasks at the same time. */
void run_together(Threads *pool, int n) {
  std::atomic<int> running{0};
  std::vector<std::future<bool>> tasks;
  for (int i = 0; i < n; ++i) {
    tasks.push_back(pool->submit([&running, n] {
      ++running;
      return wait_until([&running, n] { return running == n; });
    }));
  }
  for (auto &task : tasks) EXPECT_TRUE(task.get());
}

/** The addresses that the process has in use, in bytes. */
long address_space() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * 4096;
}

/** How much of them the stack of a thread takes. */
long stack_bytes() {
  pthread_attr_t attributes;
  size_t bytes = 0;
  pthread_getattr_default_np(&attributes);
  pthread_attr_getstacksize(&attributes, &bytes);
  pthread_attr_destroy(&attributes);
  return static_cast<long>(bytes);
}

/** Occupies every worker of the pool; the futures end when the gate opens. */
Futures occupy_workers(Threads *pool, const Gate &gate) {
  Futures busy;
  for (size_t i = 0; i < Threads::n_workers; ++i)
    busy.push_back(pool->submit(gate.pass()));
  EXPECT_TRUE(wait_until([&] { return pool->n_idle() == 0; }));
  return busy;
}

/** A running pool. After the case it has ended, with every thread it made. */
class Pool : public testing::Test {
 protected:
  Pool() {
    threads_ever_set_up = 0;
    Threads::initialize();
    pool = Threads::get_instance();
  }
  ~Pool() override {
    Threads::shutdown();
    EXPECT_TRUE(wait_until([] { return threads_set_up == 0; }));
  }

  Threads *pool;
};

TEST(PoolLife, NoneBeforeInitialize) {
  EXPECT_EQ(Threads::get_instance(), nullptr);
}

TEST(PoolLife, ShutdownWithoutAPoolDoesNothing) {
  Threads::shutdown();
  EXPECT_EQ(Threads::get_instance(), nullptr);
}

TEST_F(Pool, HasThirtyTwoWorkersThatAreIdle) {
  EXPECT_EQ(pool->n_idle(), 32u);
  EXPECT_TRUE(wait_until([] { return threads_set_up == 32; }));
}

TEST_F(Pool, SecondInitializeKeepsThePool) {
  Threads::initialize();
  EXPECT_EQ(Threads::get_instance(), pool);
  EXPECT_TRUE(wait_until([] { return threads_set_up == 32; }));
  EXPECT_EQ(threads_ever_set_up, 32);
}

TEST_F(Pool, ShutdownEndsEveryWorker) {
  Threads::shutdown();
  EXPECT_EQ(Threads::get_instance(), nullptr);
  EXPECT_EQ(threads_ever_set_up, 32);
  EXPECT_EQ(threads_set_up, 0);
}

TEST_F(Pool, SecondShutdownDoesNothing) {
  Threads::shutdown();
  Threads::shutdown();
  EXPECT_EQ(Threads::get_instance(), nullptr);
}

TEST_F(Pool, CanBeStartedAgain) {
  Threads::shutdown();
  Threads::initialize();
  EXPECT_EQ(Threads::get_instance()->submit([] { return 7; }).get(), 7);
}

TEST_F(Pool, AnswersWithTheTasksResult) {
  EXPECT_EQ(pool->submit([] { return std::string("done"); }).get(), "done");
}

TEST_F(Pool, TaskMayOwnWhatCannotBeCopied) {
  auto value = std::make_unique<int>(5);
  auto task = [owned = std::move(value)] { return *owned; };
  EXPECT_EQ(pool->submit(std::move(task)).get(), 5);
}

TEST_F(Pool, TaskRunsOnAThreadOfThePool) {
  EXPECT_NE(pool->submit([] { return std::this_thread::get_id(); }).get(),
            std::this_thread::get_id());
}

TEST_F(Pool, ExceptionStaysInTheFuture) {
  auto failed = pool->submit([] { throw std::runtime_error("torn"); });
  EXPECT_THROW(failed.get(), std::runtime_error);
}

TEST_F(Pool, WorkerOutlivesAnException) {
  for (int i = 0; i < 100; ++i) {
    auto failed = pool->submit([] { throw 1; });
    failed.wait();
  }
  EXPECT_TRUE(wait_until([&] { return pool->n_idle() == 32; }));
  EXPECT_EQ(pool->submit([] { return 3; }).get(), 3);
}

TEST_F(Pool, WorkersRunAtTheSameTime) {
  std::atomic<int> running{0};
  const auto meet = [&running] {
    ++running;
    wait_until([&running] { return running == 32; });
  };
  Futures tasks;
  for (int i = 0; i < 32; ++i) tasks.push_back(pool->submit(meet));
  for (auto &task : tasks)
    ASSERT_EQ(task.wait_for(std::chrono::seconds(30)),
              std::future_status::ready);
}

// A callback may begin a read. The workers of the outer read wait for it, so
// its tasks must not queue behind them.
TEST_F(Pool, MoreTasksThanWorkersRunAtTheSameTime) {
  std::atomic<int> running{0};
  const auto meet = [&running] {
    ++running;
    return wait_until([&running] { return running == 100; });
  };
  std::vector<std::future<bool>> tasks;
  for (int i = 0; i < 100; ++i) tasks.push_back(pool->submit(meet));
  for (auto &task : tasks) EXPECT_TRUE(task.get());
}

TEST_F(Pool, TaskWithoutAnIdleWorkerGetsAThreadOfItsOwn) {
  Gate gate;
  Futures busy = occupy_workers(pool, gate);
  auto extra = pool->submit([] { return threads_set_up.load(); });
  // The workers are held back until the answer has come.
  EXPECT_EQ(extra.get(), 33);
  EXPECT_EQ(pool->n_idle(), 0u);
  gate.open();
}

TEST_F(Pool, EndedThreadsBesideItGiveTheirStacksBack) {
  constexpr int n_beside = 200;
  // The next threads reuse what the first threads of a process allocated.
  std::vector<std::thread> first;
  std::atomic<int> running{0};
  for (int i = 0; i < n_beside; ++i) {
    first.emplace_back([&running] {
      const std::vector<int> allocated(1000);
      ++running;
      wait_until([&running] { return running == n_beside; });
    });
  }
  for (auto &thread : first) thread.join();
  const long before = address_space();
  run_together(pool, 32 + n_beside);
  ASSERT_TRUE(wait_until([] { return threads_set_up == 32; }));
  // The C library keeps some of them for the next threads.
  EXPECT_TRUE(wait_until([&] {
    return address_space() - before < n_beside / 4 * stack_bytes();
  })) << (address_space() - before) / stack_bytes()
      << " stacks";
}

/** What a thread does when it ends. */
struct At_exit {
  ~At_exit() {
    if (act) act();
  }
  std::function<void()> act;
};
thread_local At_exit at_exit;

long n_threads() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return std::distance(begin(threads), end(threads));
}

// One thread takes long to end, and another one waits to join it.
TEST_F(Pool, EndedThreadsBesideItDoNotWaitForEachOther) {
  constexpr int n_beside = 20;
  Gate busy_gate, exit_gate;
  Futures busy = occupy_workers(pool, busy_gate);
  const long before = n_threads();
  pool->submit([&exit_gate] { at_exit.act = exit_gate.pass(); }).get();
  for (int i = 0; i < n_beside; ++i) pool->submit([] {}).get();
  EXPECT_TRUE(wait_until([&] { return n_threads() <= before + 2; }))
      << n_threads() - before;
  EXPECT_GT(n_threads(), before);
  exit_gate.open();
  EXPECT_TRUE(wait_until([&] { return n_threads() == before; }));
  busy_gate.open();
  for (auto &task : busy) task.get();
}

TEST_F(Pool, WorkersAreReusedAfterABusyTime) {
  Gate gate;
  Futures busy = occupy_workers(pool, gate);
  gate.open();
  for (auto &task : busy) task.get();
  EXPECT_TRUE(wait_until([&] { return pool->n_idle() == 32; }));
  const int before = threads_ever_set_up;
  pool->submit([] {}).get();
  EXPECT_EQ(threads_ever_set_up, before);
}

TEST_F(Pool, DestroysATaskOnceItHasRun) {
  auto alive = std::make_shared<int>(1);
  std::weak_ptr<int> watch = alive;
  auto done = pool->submit([alive] { return *alive; });
  alive.reset();
  EXPECT_EQ(done.get(), 1);
  done = {};
  EXPECT_TRUE(wait_until([&] { return watch.expired(); }));
}

TEST_F(Pool, ManyThreadsSubmitAtOnce) {
  std::atomic<int> runs{0};
  std::vector<std::thread> clients;
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([&] {
      for (int j = 0; j < 500; ++j) pool->submit([&] { ++runs; }).get();
    });
  }
  for (auto &client : clients) client.join();
  EXPECT_EQ(runs, 8 * 500);
}

TEST(PoolStopping, QueueRefusesATask) {
  Threads::initialize();
  Threads *pool = Threads::get_instance();
  Gate gate;
  ASSERT_TRUE(wait_until([] { return threads_set_up == 32; }));
  auto held = pool->submit(gate.pass());
  ASSERT_TRUE(wait_until([&] { return pool->n_idle() == 31; }));
  std::thread stopper([] { Threads::shutdown(); });
  // The other workers leave once the pool stops; the held one keeps it alive.
  ASSERT_TRUE(wait_until([] { return threads_set_up == 1; }));
  try {
    pool->submit([] {});
    ADD_FAILURE() << "the task was taken";
  } catch (const std::runtime_error &error) {
    EXPECT_STREQ(error.what(), "ThreadPool has been stopped.");
  }
  gate.open();
  stopper.join();
}

// A task that a leaving worker dropped would break its promise.
TEST(PoolStopping, QueuedTasksRun) {
  std::atomic<int> runs{0};
  threads_are_held = true;
  Threads::initialize();
  Threads *pool = Threads::get_instance();
  Futures tasks;
  const auto submit = [&] { tasks.push_back(pool->submit([&] { ++runs; })); };
  // One task for each worker is queued; no worker has begun.
  for (size_t i = 0; i < Threads::n_workers; ++i) submit();
  ASSERT_EQ(pool->n_idle(), Threads::n_workers);
  std::thread stopper([] { Threads::shutdown(); });
  EXPECT_TRUE(wait_until([&] {
    try {
      submit();
      return false;
    } catch (const std::runtime_error &) {
      return true;  // it stops
    }
  }));
  EXPECT_EQ(runs, 0);
  threads_are_held = false;
  stopper.join();
  for (auto &task : tasks) EXPECT_NO_THROW(task.get());
  EXPECT_EQ(runs, static_cast<int>(tasks.size()));
  EXPECT_TRUE(wait_until([] { return threads_set_up == 0; }));
}

TEST(PoolStopping, TaskWithoutAnIdleWorkerStillRuns) {
  Threads::initialize();
  Threads *pool = Threads::get_instance();
  Gate gate;
  Futures busy = occupy_workers(pool, gate);
  std::thread stopper([] { Threads::shutdown(); });
  EXPECT_EQ(pool->submit([] { return 9; }).get(), 9);
  gate.open();
  stopper.join();
  EXPECT_TRUE(wait_until([] { return threads_set_up == 0; }));
}

TEST(PoolStopping, WaitsForWhoHoldsThePool) {
  Threads::initialize();
  std::atomic<bool> stopped{false};
  std::thread stopper;
  {
    const Threads::Hold hold;
    ASSERT_NE(hold.get(), nullptr);
    stopper = std::thread([&] {
      Threads::shutdown();
      stopped = true;
    });
    ASSERT_TRUE(wait_until([] { return Threads::get_instance() == nullptr; }));
    // Nobody can get the pool any more, but its holder uses it as before.
    EXPECT_EQ(Threads::Hold().get(), nullptr);
    Futures tasks;
    for (int i = 0; i < 100; ++i) tasks.push_back(hold.get()->submit([] {}));
    for (auto &task : tasks) EXPECT_NO_THROW(task.get());
    EXPECT_FALSE(stopped);
  }
  stopper.join();
  EXPECT_TRUE(stopped);
  EXPECT_EQ(threads_set_up, 0);
}

TEST(PoolStopping, WaitsForThreadsBesideThePool) {
  Threads::initialize();
  Gate gate;
  Futures busy = occupy_workers(Threads::get_instance(), gate);
  Gate beside_gate;
  auto beside = Threads::get_instance()->submit(beside_gate.pass());
  gate.open();
  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    Threads::shutdown();
    stopped = true;
  });
  // Of 33 threads only the one beside the pool is left.
  ASSERT_TRUE(wait_until([] { return threads_set_up == 1; }));
  EXPECT_FALSE(stopped);
  beside_gate.open();
  stopper.join();
  EXPECT_EQ(threads_set_up, 0);
}

TEST(PoolStopping, PoolStartedMeanwhileServes) {
  Threads::initialize();
  std::thread stopper;
  {
    const Threads::Hold hold;
    stopper = std::thread([] { Threads::shutdown(); });
    ASSERT_TRUE(wait_until([] { return Threads::get_instance() == nullptr; }));
    Threads::initialize();
    EXPECT_NE(Threads::get_instance(), hold.get());
    EXPECT_EQ(Threads::get_instance()->submit([] { return 4; }).get(), 4);
  }
  stopper.join();
  EXPECT_EQ(Threads::get_instance()->submit([] { return 5; }).get(), 5);
  Threads::shutdown();
  EXPECT_EQ(threads_set_up, 0);
}

}  // namespace
