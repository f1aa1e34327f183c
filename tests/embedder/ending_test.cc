// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// How a call is ended from outside: by cursor_cancel(), and by a kill of the
// client for whom it runs. Also the progress that a call reports.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "client_call.h"
#include "common.h"
#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

unsigned int error_of(uintptr_t handle) {
  return cursor_error(handle, nullptr);
}

/** It does not matter how many workers deliver rows. */
template <class Reader>
bool read_by_any(const Reader &reader, size_t threads, const On_batch &take) {
  return read_parallel(reader, threads, take, Workers::any);
}

class Ending : public Parallel_test {
 protected:
  void make(size_t n_rows) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
    fill("t", n_rows, "i, i");
  }
  /** A callback so slow that the read cannot end by itself within the case. */
  static bool take_time(const Batch &) {
    std::this_thread::sleep_for(milliseconds(100));
    return false;
  }
  static long long ms_since(steady_clock::time_point from) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - from)
        .count();
  }
};

TEST_F(Ending, CancelEndsAParallelRead) {
  make(400000);
  for (const size_t threads : {0, 2, 4}) {
    Scan scan;
    std::atomic<bool> begun{false};
    steady_clock::time_point cancelled;
    auto canceller = on_own_thread([&] {
      EXPECT_TRUE(wait_until([&] { return begun.load(); }));
      cancelled = steady_clock::now();
      cursor_cancel(scan.handle);
    });
    EXPECT_FALSE(read_by_any(scan, threads, [&](const Batch &batch) {
      begun = true;
      return take_time(batch);
    }));
    canceller.get();
    EXPECT_LT(ms_since(cancelled), 1000);
    EXPECT_EQ(error_of(scan.handle), 1317u);
    // The handle can be read again.
    EXPECT_EQ(collect(scan, threads, {0}).rows.size(), 400000u);
    EXPECT_EQ(error_of(scan.handle), 0u);
  }
}

TEST_F(Ending, CancelOfAnIdleCursorEndsItsNextCall) {
  make(10);
  Cursor cursor;
  for (int i = 0; i < 3; ++i) {
    cursor_cancel(cursor.handle);
    cursor_cancel(cursor.handle);  // two cancellations count as one
    EXPECT_FALSE(cursor.set_range());
    EXPECT_EQ(error_of(cursor.handle), 1317u);
    EXPECT_EQ(cursor.ints(0).size(), 10u);
  }
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  cursor_cancel(cursor.handle);
  EXPECT_FALSE(cursor.next());
  EXPECT_EQ(error_of(cursor.handle), 1317u);
  // A cancelled step does not move the cursor.
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.read_int(0), 2);
}

TEST_F(Ending, CancelledCursorStillComputesVirtualColumns) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, w INT AS (id * 2) VIRTUAL)");
  sql.exec("INSERT INTO t (id) VALUES (1), (2), (3)");
  Cursor cursor;
  cursor_cancel(cursor.handle);
  EXPECT_FALSE(cursor.set_range());
  EXPECT_EQ(cursor.ints(1), (std::vector<long long>{2, 4, 6}));
}

TEST_F(Ending, CancelOfWhatIsNoCursorDoesNothing) {
  make(10);
  cursor_cancel(0);
  Cursor first;
  const uintptr_t closed = first.handle;
  first.close();
  // The next cursor uses the session of the closed one.
  Cursor second;
  cursor_cancel(closed);
  EXPECT_EQ(second.ints(0).size(), 10u);
}

TEST_F(Ending, CancelComesFromManyThreadsAtOnce) {
  make(1000);
  Cursor cursor;
  std::atomic<bool> stop{false};
  std::vector<std::future<void>> cancellers;
  for (int i = 0; i < 4; ++i) {
    cancellers.push_back(on_own_thread([&] {
      while (!stop) cursor_cancel(cursor.handle);
    }));
  }
  size_t n_cancelled = 0;
  for (int i = 0; i < 2000; ++i) {
    cursor.set_range();
    while (cursor.next()) {
    }
    if (error_of(cursor.handle) == 1317) ++n_cancelled;
  }
  stop = true;
  for (auto &canceller : cancellers) canceller.get();
  EXPECT_GT(n_cancelled, 0u);
  // The last cancellation may end the next call.
  cursor.set_range();
  EXPECT_EQ(cursor.ints(0).size(), 1000u);
}

// The call runs on the client's thread, inside a statement of the client. A
// kill or a time limit of the statement ends the call.
TEST_F(Ending, KillOfTheClientEndsTheCallOnItsThread) {
  make(400000);
  Client client;
  client.exec("USE db");
  const auto end_by = [&](const std::string &statement,
                          const std::string &hint) {
    std::atomic<bool> begun{false};
    unsigned int code = 0;
    bool complete = true;
    // KILL closes the client's connection, so the client gets its answer before
    // the call has ended. Wait for the call itself.
    std::promise<void> ended;
    auto reply = call_on_client_thread(
        client,
        [&] {
          Scan scan;
          complete = read_by_any(scan, 2, [&](const Batch &batch) {
            begun = true;
            return take_time(batch);
          });
          code = error_of(scan.handle);
          scan.close();
          ended.set_value();
        },
        hint);
    EXPECT_TRUE(wait_until([&] { return begun.load(); }));
    const auto killed = steady_clock::now();
    if (!statement.empty()) sql.exec(statement);
    ended.get_future().get();
    reply.get();
    const bool by_sql = !statement.empty();
    if (by_sql) {
      EXPECT_LT(ms_since(killed), 1000);
    }
    EXPECT_FALSE(complete) << statement;
    EXPECT_EQ(code, 1317u) << statement;
  };
  end_by("KILL QUERY " + std::to_string(client.id()), "");
  end_by("", "/*+ MAX_EXECUTION_TIME(300) */");
  // The kill of one statement must not end the next statement.
  bool complete = false;
  call_on_client_thread(client, [&] {
    const Scan scan;
    complete = read_by_any(scan, 2, [](const Batch &) { return false; });
  }).get();
  EXPECT_TRUE(complete);
  end_by("KILL " + std::to_string(client.id()), "");
}

// A client opens a cursor with its own snapshot as the donor, and a thread of
// the embedder reads it.
TEST_F(Ending, KillOfTheClientEndsTheReadOfItsOwnSnapshotOnAnyThread) {
  make(400000);
  Client client;
  client.exec("USE db");
  client.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  std::atomic<bool> begun{false};
  auto reply = call_on_client_thread(client, [&] {
    const Scan scan({.donor = client.id()});
    EXPECT_EQ(cursor_snapshot(scan.handle), 1);
    on_own_thread([&] {
      EXPECT_FALSE(read_by_any(scan, 2, [&](const Batch &batch) {
        begun = true;
        return take_time(batch);
      }));
      EXPECT_EQ(error_of(scan.handle), 1317u);
    }).get();
  });
  ASSERT_TRUE(wait_until([&] { return begun.load(); }));
  const auto killed = steady_clock::now();
  sql.exec("KILL QUERY " + std::to_string(client.id()));
  reply.get();
  EXPECT_LT(ms_since(killed), 1000);
}

// Each step is short, and most steps only take a row that was fetched ahead.
TEST_F(Ending, KillOfTheClientEndsALoopOfSteps) {
  make(20000);
  Client client;
  client.exec("USE db");
  std::atomic<bool> begun{false};
  auto reply = call_on_client_thread(client, [&] {
    Cursor cursor;
    while (cursor.set_range()) {
      while (cursor.next()) begun = true;
      if (error_of(cursor.handle) != 0) break;
    }
    EXPECT_EQ(error_of(cursor.handle), 1317u);
  });
  ASSERT_TRUE(wait_until([&] { return begun.load(); }));
  const auto killed = steady_clock::now();
  sql.exec("KILL QUERY " + std::to_string(client.id()));
  reply.get();
  EXPECT_LT(ms_since(killed), 1000);
}

TEST_F(Ending, ACancelledRangeLeavesNone) {
  make(10);
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  cursor_cancel(cursor.handle);
  EXPECT_FALSE(cursor.set_range({.begin = Keys().number(5)}));
  EXPECT_FALSE(cursor.next());
  EXPECT_FALSE(cursor.read_int(0).has_value());
  EXPECT_FALSE(read_by_any(cursor, 0, [](const Batch &) { return false; }));
  EXPECT_EQ(cursor.ints(0, {.begin = Keys().number(9)}),
            (std::vector<long long>{9, 10}));
}

TEST_F(Ending, AFailureStaysUntilTheNextRange) {
  make(1000);
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  kill_session(current_session());
  while (cursor.next()) {
  }
  EXPECT_EQ(error_of(cursor.handle), 1317u);
  EXPECT_FALSE(cursor.next());
  EXPECT_EQ(error_of(cursor.handle), 1317u);
}

TEST_F(Ending, KillOfAnotherDonorEndsNothing) {
  make(50000);
  Client other;
  other.exec("USE db");
  other.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  const Scan scan({.donor = other.id()});
  std::atomic<bool> killed{false};
  EXPECT_TRUE(read_by_any(scan, 2, [&](const Batch &) {
    if (!killed.exchange(true)) {
      sql.exec("KILL " + std::to_string(other.id()));
      std::this_thread::sleep_for(milliseconds(300));
    }
    return false;
  }));
  EXPECT_TRUE(killed);
}

TEST_F(Ending, KillOfTheClientEndsAnOpeningThatWaitsForALock) {
  make(10);
  Client locker, client;
  locker.exec("USE db");
  client.exec("USE db");
  locker.exec("LOCK TABLES t WRITE");
  unsigned int code = 0;
  bool opened = true;
  auto reply = call_on_client_thread(client, [&] {
    const Cursor cursor({.timeout = 60});
    opened = cursor.is_open();
    code = cursor.error;
  });
  ASSERT_TRUE(wait_until([&] {
    return sql.number(
               "SELECT COUNT(*) FROM performance_schema.metadata_locks WHERE"
               " OBJECT_SCHEMA = 'db' AND LOCK_STATUS = 'PENDING'") == 1;
  }));
  const auto killed = steady_clock::now();
  sql.exec("KILL QUERY " + std::to_string(client.id()));
  reply.get();
  EXPECT_LT(ms_since(killed), 1000);
  EXPECT_FALSE(opened);
  EXPECT_EQ(code, 1317u);
}

// Without a timeout of its own, a new session would wait as long as the
// server's setting says, and a session from the pool as long as its last user.
TEST_F(Ending, OpeningWaitsNoLongerThanItWasTold) {
  make(10);
  sql.exec("SET GLOBAL lock_wait_timeout = 60");
  Client locker;
  locker.exec("USE db");
  locker.exec("LOCK TABLES t WRITE");
  CommonApi::destroy_idle_sessions();
  const auto begun = steady_clock::now();
  const Cursor cursor({.timeout = 1});
  sql.exec("SET GLOBAL lock_wait_timeout = DEFAULT");
  EXPECT_FALSE(cursor.is_open());
  EXPECT_EQ(cursor.error, 1205u);
  EXPECT_GE(ms_since(begun), 900);
  EXPECT_LT(ms_since(begun), 10000);
}

/** Ends a running read of ROWS rows, ROUNDS times. Prints the longest time from
    the end request to the return of the read to the error log. */
class EndingInFullFlow : public Ending {
 protected:
  EndingInFullFlow() {
    make(setting("ROWS", 200000));
    client.exec("USE db");
  }

  /** @param end  ends the read from another thread */
  void expect_within_a_second(const char *way, bool own_donor,
                              const std::function<void(uintptr_t)> &end,
                              const std::string &hint = "") {
    long long longest = 0;
    const size_t rounds = setting("ROUNDS", 1);
    for (size_t i = 0; i < rounds; ++i) {
      if (own_donor) client.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
      std::atomic<uintptr_t> handle{0};
      steady_clock::time_point returned;
      auto reply = call_on_client_thread(
          client,
          [&] {
            const Scan scan({.donor = own_donor ? client.id() : 0});
            handle = scan.handle;
            // Repeat the read: it may complete before it is ended.
            while (read_by_any(scan, 2, [](const Batch &) { return false; })) {
            }
            returned = steady_clock::now();
            EXPECT_EQ(error_of(scan.handle), 1317u) << way;
          },
          hint);
      EXPECT_TRUE(wait_until([&] { return handle != 0; }));
      std::this_thread::sleep_for(milliseconds(hint.empty() ? 30 : 0));
      auto ended = steady_clock::now();
      if (!hint.empty()) ended += time_limit;
      end(handle);
      reply.get();
      const long long took =
          std::chrono::duration_cast<milliseconds>(returned - ended).count();
      EXPECT_LT(took, 1000) << way;
      longest = std::max(longest, took);
      if (own_donor) client.exec("ROLLBACK");
    }
    fprintf(stderr, "%s: %zu reads, the longest returned after %lld ms\n", way,
            rounds, longest);
  }

  static constexpr milliseconds time_limit{200};
  Client client;
};

TEST_F(EndingInFullFlow, ByEachWayItTakesLessThanASecond) {
  const auto kill = [this](uintptr_t) {
    sql.exec("KILL QUERY " + std::to_string(client.id()));
  };
  expect_within_a_second("own donor killed", true, kill);
  expect_within_a_second("client killed", false, kill);
  expect_within_a_second("cancelled", false, cursor_cancel);
  expect_within_a_second(
      "max_execution_time", false, [](uintptr_t) {},
      "/*+ MAX_EXECUTION_TIME(200) */");
}

TEST_F(Ending, ProgressIsKnownWhileAReadRuns) {
  make(200000);
  sql.exec("ANALYZE TABLE t");
  uint64_t rows = 1, pages = 1, estimated = 1;
  EXPECT_FALSE(cursor_progress(0, &rows, &pages, &estimated));
  Scan scan;
  ASSERT_TRUE(cursor_progress(scan.handle, &rows, &pages, &estimated));
  EXPECT_EQ(rows, 0u);
  for (const size_t threads : {0, 3}) {
    std::atomic<uint64_t> largest{0};
    EXPECT_TRUE(read_by_any(scan, threads, [&](const Batch &) {
      uint64_t seen = 0;
      EXPECT_TRUE(cursor_progress(scan.handle, &seen, nullptr, nullptr));
      largest = std::max(largest.load(), seen);
      return false;
    }));
    EXPECT_GT(largest, 4096u);
    ASSERT_TRUE(cursor_progress(scan.handle, &rows, &pages, &estimated));
    EXPECT_EQ(rows, 200000u);
    const auto leaves = static_cast<uint64_t>(
        sql.number("SELECT stat_value FROM mysql.innodb_index_stats WHERE"
                   " database_name = 'db' AND table_name = 't' AND index_name"
                   " = 'PRIMARY' AND stat_name = 'n_leaf_pages'"));
    EXPECT_EQ(estimated, leaves);
    EXPECT_GE(pages, leaves / 2);
    EXPECT_LE(pages, leaves * 2);
  }
  const uintptr_t closed = scan.handle;
  scan.close();
  EXPECT_FALSE(cursor_progress(closed, &rows, &pages, &estimated));
  Cursor cursor;
  ASSERT_EQ(cursor.ints(0).size(), 200000u);
  ASSERT_TRUE(cursor_progress(cursor.handle, &rows, nullptr, nullptr));
  EXPECT_EQ(rows, 200000u);
}

}  // namespace
