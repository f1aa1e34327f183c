// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Reads that end before the end of their range: because the callback stops
// them, because of a kill, or because no threads are available. Afterwards all
// resources are free and another read works.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "common.h"
#include "common/pool.h"
#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;
using std::chrono::steady_clock;

/** Numbers of threads with which every worker gets more than one batch. */
const std::vector<size_t> few_threads{0, 1, 2, 3, 4, 8};

class ParallelStop : public Parallel_test {
 protected:
  void make(size_t n_rows) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
    fill("t", n_rows, "i, i");
  }

  /** Check that nothing is held any more and that a new cursor reads all
      rows. */
  void expect_all_is_back(size_t n_rows) {
    EXPECT_EQ(ThreadBudget::s_active_threads.load(), 0u);
    EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
    sql.exec("SET lock_wait_timeout = 1");
    EXPECT_EQ(sql.attempt("ALTER TABLE t COMMENT 'not locked'").error, 0u);
    const Scan scan;
    for (const size_t threads : {size_t{0}, size_t{3}})
      EXPECT_EQ(collect(scan, threads, {0}).rows.size(), n_rows) << threads;
  }
};

TEST_F(ParallelStop, TheCallbacksTrueEndsTheRead) {
  make(100000);
  {
    const Scan scan;
    for (const size_t threads : few_threads) {
      std::atomic<size_t> calls{0};
      EXPECT_FALSE(read_parallel(scan, threads, [&](const Batch &) {
        ++calls;
        return true;
      }));
      EXPECT_GE(calls, 1u);
      EXPECT_LE(calls, std::max<size_t>(threads, 1));
    }
  }
  expect_all_is_back(100000);
}

TEST_F(ParallelStop, NoFurtherBatchComesToTheWorkerThatStopped) {
  make(100000);
  const Cursor cursor;
  for (const size_t threads : few_threads) {
    std::atomic<bool> stopped[256] = {};
    EXPECT_FALSE(read_parallel(cursor, threads, [&](const Batch &batch) {
      EXPECT_FALSE(stopped[batch.thread]);
      return stopped[batch.thread] = batch.size() == 4096;
    }));
  }
}

// One worker's callback stops the read when every worker has its first batch.
// The other callbacks return only when that worker has ended. A page has fewer
// rows than a batch, so the others check for the stop before they have another
// batch.
TEST_F(ParallelStop, OneWorkersFailureStopsTheOthers) {
  make(200000);
  {
    const Scan scan;
    constexpr size_t n_workers = 4;
    std::atomic<size_t> n_calls{0};
    EXPECT_FALSE(read_parallel(scan, n_workers, [&](const Batch &batch) {
      const bool refuses = n_calls++ == 0;
      EXPECT_EQ(batch.size(), 4096u);
      EXPECT_TRUE(wait_until([&] { return n_calls >= n_workers; }));
      // The session of the cursor, and those of the remaining workers.
      if (!refuses) {
        EXPECT_TRUE(wait_until(
            [&] { return CommonApi::sessions_in_use() <= n_workers; }));
      }
      return refuses;
    }));
    EXPECT_EQ(n_calls, n_workers);
  }
  expect_all_is_back(200000);
}

TEST_F(ParallelStop, TheSameCursorReadsAgain) {
  make(50000);
  const Scan scan;
  const auto stop = [](const Batch &) { return true; };
  for (const size_t threads : few_threads) {
    EXPECT_FALSE(read_parallel(scan, threads, stop));
    EXPECT_EQ(collect(scan, threads, {0}).rows.size(), 50000u);
  }
}

TEST_F(ParallelStop, TheAnswerToALastPartialBatchIsNotLookedAt) {
  make(3000);
  const Scan scan;
  for (const size_t threads : thread_counts)
    EXPECT_TRUE(
        read_parallel(scan, threads, [](const Batch &) { return true; }));
}

TEST_F(ParallelStop, AnExceptionEndsTheRead) {
  make(100000);
  {
    const Scan scan;
    for (const size_t threads : few_threads) {
      EXPECT_FALSE(read_parallel(scan, threads, [](const Batch &) -> bool {
        throw std::runtime_error("of the callback");
      }));
      EXPECT_FALSE(
          read_parallel(scan, threads, [](const Batch &) -> bool { throw 5; }));
    }
  }
  expect_all_is_back(100000);
}

TEST_F(ParallelStop, AnExceptionOfTheLastBatchFailsTheRead) {
  make(3000);
  {
    const Scan scan;
    for (const size_t threads : thread_counts)
      EXPECT_FALSE(
          read_parallel(scan, threads, [](const Batch &) -> bool { throw 5; }));
  }
  expect_all_is_back(3000);
}

TEST_F(ParallelStop, KilledWithinTheCallback) {
  make(100000);
  for (const size_t threads : few_threads) {
    const Scan scan;
    void *const session = current_session();
    EXPECT_FALSE(read_parallel(scan, threads, [session](const Batch &) {
      kill_session(session);
      return false;
    })) << threads;
  }
  expect_all_is_back(100000);
}

TEST_F(ParallelStop, KilledBeforeItBegins) {
  make(100000);
  for (const size_t threads : thread_counts) {
    const Cursor cursor;
    kill_session(current_session());
    EXPECT_FALSE(
        read_parallel(cursor, threads, [](const Batch &) { return false; }));
  }
  expect_all_is_back(100000);
}

TEST_F(ParallelStop, KilledByAnotherThread) {
  make(100000);
  for (const size_t threads : few_threads) {
    const Scan scan;
    void *const session = current_session();
    std::atomic<bool> reached{false}, killed{false};
    auto killer = on_own_thread([&] {
      EXPECT_TRUE(wait_until([&] { return reached.load(); }));
      kill_session(session);
      killed = true;
    });
    EXPECT_FALSE(read_parallel(scan, threads, [&](const Batch &) {
      reached = true;
      EXPECT_TRUE(wait_until([&] { return killed.load(); }));
      return false;
    })) << threads;
    killer.get();
  }
  expect_all_is_back(100000);
}

/** All rows are newer than the snapshot and have a long history. The read
    searches all of that history and delivers no row. */
class ParallelStopOldVersions : public ParallelStop {
 protected:
  void expect_killed_within_a_second(size_t threads) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, w CHAR(20))");
    take_snapshot();
    fill("t", 5000, "i, i, 'w'");
    for (int i = 0; i < 100; ++i) sql.exec("UPDATE t SET v = v + 1");
    {
      const Scan scan({.donor = donor.id()});
      void *const session = current_session();
      std::atomic<bool> begun{false};
      steady_clock::time_point killed;
      auto killer = on_own_thread([&] {
        EXPECT_TRUE(wait_until([&] { return begun.load(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        killed = steady_clock::now();
        kill_session(session);
      });
      begun = true;
      // No worker reaches the end of a page before the kill, so the workers
      // cannot wait for each other there.
      EXPECT_FALSE(read_parallel(
          scan, threads,
          [](const Batch &) {
            ADD_FAILURE() << "a row that came after the snapshot";
            return false;
          },
          Workers::any));
      const auto ended = steady_clock::now();
      killer.get();
      EXPECT_LT(ended - killed, std::chrono::seconds(1));
    }
    donor.exec("COMMIT");
    expect_all_is_back(5000);
  }
};

TEST_F(ParallelStopOldVersions, KilledOnTheCallingThread) {
  expect_killed_within_a_second(0);
}

TEST_F(ParallelStopOldVersions, KilledWithWorkers) {
  expect_killed_within_a_second(4);
}

/** Reserves threads of the budget while it lives. */
class Reservation {
 public:
  explicit Reservation(size_t n) : n_(ThreadBudget::available_threads(n)) {}
  ~Reservation() { ThreadBudget::release_threads(n_); }
  size_t count() const { return n_; }

 private:
  const size_t n_;
};

class ParallelBudget : public ParallelStop {
 protected:
  /** @return the greatest number of the budget's threads in use during a
      read */
  size_t most_in_use(const Scan &scan, size_t threads) {
    std::atomic<size_t> most{0};
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &) {
      const size_t now = ThreadBudget::s_active_threads;
      size_t before = most;
      while (before < now && !most.compare_exchange_weak(before, now)) {
      }
      return false;
    }));
    return most;
  }
};

TEST_F(ParallelBudget, AReadTakesAsManyAsItAsksFor) {
  make(10000);
  const Scan scan;
  EXPECT_EQ(most_in_use(scan, 0), 0u);
  EXPECT_EQ(most_in_use(scan, 1), 0u);
  EXPECT_EQ(most_in_use(scan, 2), 2u);
  EXPECT_EQ(most_in_use(scan, 8), 8u);
  EXPECT_EQ(most_in_use(scan, 300), 256u);
  EXPECT_EQ(ThreadBudget::s_active_threads.load(), 0u);
}

TEST_F(ParallelBudget, WithThreeLeftThreeWorkersRead) {
  make(50000);
  {
    const Reservation others(253);
    ASSERT_EQ(others.count(), 253u);
    const Scan scan;
    EXPECT_EQ(most_in_use(scan, 8), 256u);
    const auto caller = std::this_thread::get_id();
    EXPECT_TRUE(read_parallel(scan, 8, [&](const Batch &batch) {
      EXPECT_LT(batch.thread, 3u);
      EXPECT_NE(std::this_thread::get_id(), caller);
      return false;
    }));
    EXPECT_EQ(ThreadBudget::s_active_threads.load(), 253u);
  }
  expect_all_is_back(50000);
}

TEST_F(ParallelBudget, WithOneLeftTheCallingThreadReads) {
  make(10000);
  {
    const Reservation others(255);
    const Scan scan;
    const auto caller = std::this_thread::get_id();
    EXPECT_TRUE(read_parallel(
        scan, 8,
        [&](const Batch &) {
          EXPECT_EQ(std::this_thread::get_id(), caller);
          EXPECT_EQ(ThreadBudget::s_active_threads.load(), 255u);
          return false;
        },
        Workers::any));
  }
  expect_all_is_back(10000);
}

TEST_F(ParallelBudget, WithNoneLeftTheCallingThreadReads) {
  make(10000);
  {
    const Reservation others(256);
    ASSERT_EQ(others.count(), 256u);
    const Scan scan;
    for (const size_t threads : thread_counts)
      EXPECT_EQ(collect(scan, threads, {0}, Workers::any).rows.size(), 10000u);
    EXPECT_EQ(ThreadBudget::s_active_threads.load(), 256u);
  }
  expect_all_is_back(10000);
}

// Eight reads ask for 60 threads each, 480 in all. No read ends before all have
// begun.
TEST_F(ParallelBudget, ManyReadsShareIt) {
  make(10000);
  constexpr size_t n_reads = 8, n_rounds = 3;
  std::atomic<size_t> n_begun{0}, most{0};
  const auto read = [&](size_t n_begun_then) {
    const Scan scan;
    std::atomic<size_t> n_rows{0};
    std::atomic<bool> has_begun{false};
    EXPECT_TRUE(read_parallel(
        scan, 60,
        [&](const Batch &batch) {
          if (!has_begun.exchange(true)) ++n_begun;
          EXPECT_TRUE(wait_until([&] { return n_begun >= n_begun_then; }));
          const size_t in_use = ThreadBudget::s_active_threads;
          size_t before = most;
          while (before < in_use &&
                 !most.compare_exchange_weak(before, in_use)) {
          }
          n_rows += batch.size();
          return false;
        },
        Workers::any));
    EXPECT_EQ(n_rows, 10000u);
  };
  std::vector<std::future<void>> readers;
  for (size_t i = 0; i < n_reads; ++i)
    readers.push_back(on_own_thread([&] {
      for (size_t round = 1; round <= n_rounds; ++round) read(round * n_reads);
    }));
  for (auto &reader : readers) reader.get();
  EXPECT_EQ(most, 256u);
  expect_all_is_back(10000);
}

class ParallelPool : public ParallelStop {};

TEST_F(ParallelPool, WithoutItOnlyTheCallingThreadReads) {
  make(10000);
  deinit_common();
  {
    const Scan scan;
    const auto take = [](const Batch &) { return false; };
    const Server_log log(sql);
    EXPECT_FALSE(read_parallel(scan, 4, take));
    EXPECT_EQ(log.count("Parallel scan failed: "), 1u) << log.text();
    EXPECT_TRUE(read_parallel(scan, 1, take));
    EXPECT_TRUE(read_parallel(scan, 0, take));
  }
  init_common();
  expect_all_is_back(10000);
}

TEST_F(ParallelPool, HandlesThatCannotBeReadAreRefused) {
  make(10);
  const auto take = [](uint64_t, uint64_t, void *) {
    ADD_FAILURE() << "called";
    return false;
  };
  Scan scan;
  Cursor cursor;
  EXPECT_FALSE(cursor_advance_parallel(0, 2, take, nullptr));
  EXPECT_FALSE(seqscan_cursor_advance_parallel(0, 2, take, nullptr));
  EXPECT_FALSE(cursor_advance_parallel(scan.handle, 2, take, nullptr));
  EXPECT_FALSE(
      seqscan_cursor_advance_parallel(cursor.handle, 2, take, nullptr));
  const uintptr_t closed_scan = scan.handle, closed_cursor = cursor.handle;
  scan.close();
  cursor.close();
  EXPECT_FALSE(cursor_advance_parallel(closed_cursor, 2, take, nullptr));
  EXPECT_FALSE(seqscan_cursor_advance_parallel(closed_scan, 2, take, nullptr));
  EXPECT_EQ(seqscan_cursor_output_col_num(closed_scan), 0u);
  close_seqscan_cursor(closed_scan);
  seqscan_cursor_set_readset(closed_scan, 0, nullptr);
}

}  // namespace
