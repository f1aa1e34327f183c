// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// A read holds the index latch in shared mode. If a thread waits for it
// exclusively, the read releases it at the end of the next page. SECONDS in the
// server's environment sets how long the long read takes.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <iostream>
#include <mutex>
#include <thread>

#include "parallel_test.h"

namespace {

using namespace harness;
using Clock = std::chrono::steady_clock;
using Ms = std::chrono::milliseconds;

Ms since(Clock::time_point from) {
  return std::chrono::duration_cast<Ms>(Clock::now() - from);
}

/** The longest time that one of the repeated actions of a thread took. */
struct Longest_wait {
  void measure(const std::function<void()> &f) {
    const auto from = Clock::now();
    f();
    longest = std::max(longest, since(from));
    ++n;
    std::this_thread::sleep_for(Ms(5));
  }
  size_t n = 0;
  Ms longest{0};
};

class ParallelLatch : public Parallel_test {
 protected:
  ParallelLatch() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, b LONGBLOB)");
    fill("t", 20000, "i * 2, i, IF(i % 50, 'short', REPEAT('b', 30000))");
  }

  /** Reads with two workers.
      @return how many rows were delivered */
  size_t read_slowly(const char *table, Ms callback_time) {
    take_snapshot();
    std::atomic<size_t> n_rows{0};
    EXPECT_TRUE(read_parallel(Scan({.table = table, .donor = donor.id()}), 2,
                              [&](const Batch &batch) {
                                n_rows += batch.size();
                                std::this_thread::sleep_for(callback_time);
                                return false;
                              }));
    return n_rows;
  }
};

TEST_F(ParallelLatch, SlowCallbacksBesideLargeInserts) {
  // On a slow machine the table would outgrow the buffer pool, and each read
  // would give the writer more time than the one before.
  constexpr size_t inserts_per_read = 40;
  std::atomic<bool> done{false};
  std::atomic<size_t> n_reads{0};
  size_t inserted = 0;
  auto writer = on_own_thread([&] {
    Client client;
    client.exec("USE db");
    while (!done) {
      if (inserted == inserts_per_read * n_reads) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      client.exec("INSERT INTO t VALUES (" +
                  std::to_string(100001 + 2 * inserted++) +
                  ", 1, REPEAT('n', 1000000))");
    }
  });
  for (int round = 0; round < 3; ++round) {
    for (const size_t threads : {size_t{0}, size_t{3}, size_t{8}}) {
      take_snapshot();
      const auto expected =
          as_ints(donor.query("SELECT id FROM t ORDER BY id"));
      const Scan scan({.donor = donor.id()});
      std::vector<long long> ids;
      std::mutex mu;
      ++n_reads;
      EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const std::lock_guard<std::mutex> lock(mu);
        for (unsigned int nr = 0; nr < batch.size(); ++nr) {
          ids.push_back(batch.read_int(0, nr).value());
          EXPECT_TRUE(batch.read_text(2, nr));
        }
        return false;
      }));
      std::sort(ids.begin(), ids.end());
      EXPECT_TRUE(ids == expected) << ids.size() << " of " << expected.size();
      donor.exec("COMMIT");
    }
  }
  done = true;
  writer.get();
  EXPECT_GT(inserted, 1u);
}

// A writer requests the index latch exclusively while all workers are in their
// callbacks, and a reader waits behind the writer.
TEST_F(ParallelLatch, AnExclusiveWaiterIsLetThroughAtTheNextPageEnd) {
  const auto expected = as_ints(sql.query("SELECT id FROM t ORDER BY id"));
  const Index_watch index;
  for (const size_t threads : {size_t{0}, size_t{2}, size_t{3}, size_t{8}}) {
    SCOPED_TRACE(threads);
    take_snapshot();
    const Scan scan({.donor = donor.id()});
    std::atomic<size_t> n_rows{0};
    std::atomic<bool> go_on{false};
    std::vector<long long> ids;
    std::mutex mu;
    auto read = on_own_thread([&] {
      EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
        const std::lock_guard<std::mutex> lock(mu);
        for (unsigned int nr = 0; nr < batch.size(); ++nr)
          ids.push_back(batch.read_int(0, nr).value());
        n_rows = ids.size();
        wait_until([&] { return go_on.load(); });
        return false;
      }));
    });
    EXPECT_TRUE(wait_until([&] { return n_rows > 0; }));
    size_t rows_at_writer = 0, rows_at_reader = 0;
    auto writer = on_own_thread(
        [&] { index.with_latch([&] { rows_at_writer = n_rows; }); });
    EXPECT_TRUE(wait_until([&] { return index.has_waiting_writer(); }));
    auto reader = on_own_thread([&] {
      EXPECT_EQ(Client().number("SELECT COUNT(v) FROM db.t WHERE id < 100"),
                49);
      rows_at_reader = n_rows;
    });
    EXPECT_TRUE(wait_until([&] { return index.has_waiters_behind(); }));
    go_on = true;
    writer.get();
    reader.get();
    read.get();
    EXPECT_LT(rows_at_writer, expected.size());
    EXPECT_GT(rows_at_reader, 0u);
    std::sort(ids.begin(), ids.end());
    EXPECT_TRUE(ids == expected) << ids.size() << " of " << expected.size();
    donor.exec("COMMIT");
  }
  EXPECT_EQ(index.latch_holders(), 0u);
}

// Two threads request the latch again and again, so that workers release it,
// park and split their units at all stages of the read.
TEST_F(ParallelLatch, ManyExclusiveWaiters) {
  const Index_watch index;
  std::atomic<bool> done{false};
  std::atomic<size_t> n_turns{0};
  const auto take_turns = [&] {
    while (!done) {
      index.with_latch([&] { ++n_turns; });
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  };
  auto one = on_own_thread(take_turns);
  auto other = on_own_thread(take_turns);
  const auto expected = as_ints(sql.query("SELECT id FROM t ORDER BY id"));
  for (int round = 0; round < 5; ++round)
    for (const size_t threads : thread_counts) {
      take_snapshot();
      EXPECT_TRUE(collect_ints(Scan({.donor = donor.id()}), threads, 0) ==
                  expected)
          << threads;
      donor.exec("COMMIT");
    }
  done = true;
  one.get();
  other.get();
  EXPECT_GT(n_turns, 100u);
  EXPECT_EQ(index.latch_holders(), 0u);
}

// Two workers deliver 49 batches. Each callback sleeps as long as is needed to
// make the read last SECONDS.
TEST_F(ParallelLatch, NobodyWaitsForALongRead) {
  sql.exec("CREATE TABLE narrow (id INT PRIMARY KEY)");
  fill("narrow", 200000, "i");
  const auto callback_time = Ms(setting("SECONDS", 3) * 1000 * 2 / 49);
  const Index_watch index("narrow");
  std::atomic<bool> done{false};
  Longest_wait writers, readers;
  auto writer = on_own_thread([&] {
    while (!done) writers.measure([&] { index.with_latch([] {}); });
  });
  auto reader = on_own_thread([&] {
    Client client;
    while (!done)
      readers.measure(
          [&] { client.number("SELECT id FROM db.narrow WHERE id = 100"); });
  });
  const auto from = Clock::now();
  EXPECT_EQ(read_slowly("narrow", callback_time), 200000u);
  const auto read_time = since(from);
  done = true;
  writer.get();
  reader.get();
  std::cout << "a read of " << read_time.count() << " ms, callbacks of "
            << callback_time.count() << " ms: of " << writers.n
            << " exclusive requests one waited " << writers.longest.count()
            << " ms, of " << readers.n << " statements one waited "
            << readers.longest.count() << " ms" << std::endl;
  EXPECT_GT(writers.n, 10u);
  EXPECT_LT(writers.longest, callback_time + Ms(2000));
  EXPECT_LT(readers.longest, callback_time + Ms(2000));
}

TEST_F(ParallelLatch, TwoReadsAndTheirWriters) {
  std::atomic<bool> done{false};
  std::atomic<size_t> n_written{0};
  const auto write = [&](const std::string &statement) {
    Client client;
    client.exec("USE db");
    for (; !done; ++n_written) client.exec(statement);
  };
  auto one = on_own_thread([&] {
    write(
        "UPDATE t SET b = REPEAT('u', 200000 + RAND() * 1000)"
        " WHERE id = 100");
  });
  auto other = on_own_thread(
      [&] { write("REPLACE INTO t VALUES (101, 1, REPEAT('r', 300000))"); });
  std::vector<long long> expected(20000);
  for (size_t i = 0; i < expected.size(); ++i)
    expected[i] = 2 * static_cast<long long>(i + 1);
  const auto read = [&] {
    for (int round = 0; round < 10; ++round) {
      Scan scan;
      scan.set_columns({0});
      auto ids = collect_ints(scan, 4, 0, Workers::any);
      // The row that one of the writers replaces, if it already exists.
      const auto replaced = std::lower_bound(ids.begin(), ids.end(), 101);
      if (replaced != ids.end() && *replaced == 101) ids.erase(replaced);
      EXPECT_TRUE(ids == expected) << ids.size();
    }
  };
  const size_t before = reads_by_several();
  auto reader = on_own_thread(read);
  read();
  reader.get();
  EXPECT_GT(reads_by_several(), before);
  done = true;
  one.get();
  other.get();
  EXPECT_GT(n_written, 2u);
}

}  // namespace
