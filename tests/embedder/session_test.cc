// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Sessions: the pool, threads, kills, and what remains after a cursor closes.

#include <atomic>
#include <future>
#include <memory>

#include "common.h"
#include "common/pool.h"
#include "cursor_test.h"
#include "process.h"
#include "session.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class Session : public Cursor_test {
 protected:
  Session() {
    CommonApi::destroy_idle_sessions();
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    sql.exec("INSERT INTO t VALUES (1, 10), (2, 20), (3, 30)");
  }

  static size_t idle() {
    const std::lock_guard<std::mutex> lock(thd_pool_mutex);
    return thd_pool.size();
  }

  /** How many tables of db are in use by some session. */
  int64_t tables_in_use() {
    int64_t in_use = 0;
    for (const Row &row : sql.query("SHOW OPEN TABLES FROM db"))
      in_use += std::stoll(row[2].value());
    return in_use;
  }

  int64_t transactions() {
    return std::stoll(of_transactions("COUNT(*)", "TRUE"));
  }

  /** Insert more rows than the table handler fetches ahead. */
  void fill() {
    sql.exec("SET cte_max_recursion_depth = 100000");
    sql.exec(
        "INSERT INTO t WITH RECURSIVE n (i) AS (SELECT 4 UNION ALL"
        " SELECT i + 1 FROM n WHERE i < 20000) SELECT i, i * 10 FROM n");
  }
};

TEST_F(Session, NewOneIsMadeWhenThePoolIsEmpty) {
  ASSERT_EQ(idle(), 0u);
  Cursor cursor;
  EXPECT_EQ(CommonApi::sessions_in_use(), 1u);
  EXPECT_EQ(idle(), 0u);
}

TEST_F(Session, ClosedOneGoesToThePoolAndServesAgain) {
  Cursor first;
  void *session = current_session();
  const uint32_t id = session_id(session);
  first.close();
  EXPECT_EQ(idle(), 1u);
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
  Cursor second;
  EXPECT_EQ(current_session(), session);
  EXPECT_EQ(session_id(current_session()), id);
  EXPECT_EQ(idle(), 0u);
}

TEST_F(Session, LastReturnedIsFirstHandedOut) {
  Cursor first;
  void *first_session = current_session();
  Cursor second;
  void *second_session = current_session();
  EXPECT_NE(first_session, second_session);
  first.close();
  second.close();
  Cursor third;
  EXPECT_EQ(current_session(), second_session);
  Cursor fourth;
  EXPECT_EQ(current_session(), first_session);
}

TEST_F(Session, FailedOpeningGivesItBack) {
  EXPECT_FALSE(Cursor({.table = "nothing"}).is_open());
  EXPECT_FALSE(Cursor({.index = "nothing"}).is_open());
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
  EXPECT_EQ(idle(), 1u);
}

TEST_F(Session, HasAnIdOfItsOwn) {
  Cursor first;
  const uint32_t one = session_id(current_session());
  Cursor second;
  EXPECT_NE(one, 0u);
  EXPECT_NE(session_id(current_session()), one);
  EXPECT_NE(one, sql.id());
}

// A KILL statement does not find the session.
TEST_F(Session, IsNotInTheProcessList) {
  Cursor cursor;
  const std::string id = std::to_string(session_id(current_session()));
  EXPECT_EQ(sql.number("SELECT COUNT(*) FROM information_schema.processlist"
                       " WHERE id = " +
                       id),
            0);
  EXPECT_EQ(sql.attempt("KILL " + id).error, 1094u);
}

TEST_F(Session, StaysTheThreadsAfterClosing) {
  Cursor cursor;
  void *session = current_session();
  cursor.close();
  EXPECT_EQ(current_session(), session);
}

TEST_F(Session, FollowsTheThreadThatUsesTheCursor) {
  Cursor first;
  void *first_session = current_session();
  Cursor second;
  ASSERT_NE(current_session(), first_session);
  ASSERT_TRUE(first.set_range());
  EXPECT_EQ(current_session(), first_session);
  ASSERT_TRUE(second.set_range());
  EXPECT_NE(current_session(), first_session);
  first.next();
  EXPECT_EQ(current_session(), first_session);
}

TEST_F(Session, ElevenHundredCursorsAtOnce) {
  {
    std::vector<std::unique_ptr<Cursor>> cursors;
    for (int i = 0; i < 1100; ++i) {
      cursors.push_back(std::make_unique<Cursor>());
      ASSERT_TRUE(cursors.back()->is_open()) << cursors.back()->message;
    }
    EXPECT_EQ(CommonApi::sessions_in_use(), 1100u);
    for (const auto &cursor : cursors)
      ASSERT_EQ(cursor->ints(1), (Ints{10, 20, 30}));
  }
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
  // The pool keeps at most 1024 sessions.
  EXPECT_EQ(idle(), 1024u);
  Cursor cursor;
  EXPECT_EQ(idle(), 1023u);
  Cursor another;
  another.close();
  cursor.close();
  EXPECT_EQ(idle(), 1024u);
  EXPECT_EQ(tables_in_use(), 0);
  CommonApi::destroy_idle_sessions();
  EXPECT_EQ(idle(), 0u);
}

TEST_F(Session, DeinitDestroysIdleOnesAndInitStartsAgain) {
  Cursor().ints(0);
  ASSERT_EQ(idle(), 1u);
  deinit_common();
  EXPECT_EQ(idle(), 0u);
  deinit_common();
  init_common();
  EXPECT_EQ(Cursor().ints(1), (Ints{10, 20, 30}));
}

TEST_F(Session, DeinitLeavesOpenCursorsAlone) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  deinit_common();
  EXPECT_EQ(cursor.ints(1), (Ints{10, 20, 30}));
  init_common();
}

TEST_F(Session, DeinitOnAThreadWhoseSessionIsGone) {
  Cursor().ints(0);
  on_own_thread([] { deinit_common(); }).get();
  ASSERT_EQ(idle(), 0u);
  deinit_common();
  init_common();
  EXPECT_EQ(Cursor().ints(1), (Ints{10, 20, 30}));
}

TEST_F(Session, DeinitOnAThreadWhoseSessionServesAnother) {
  Cursor().ints(0);
  void *session = current_session();
  std::promise<void> opened, deinit;
  auto reader = on_own_thread([&] {
    Cursor cursor;
    EXPECT_EQ(current_session(), session);
    EXPECT_TRUE(cursor.set_range());
    opened.set_value();
    deinit.get_future().wait();
    EXPECT_TRUE(is_of_this_thread(session));
    EXPECT_EQ(cursor.ints(1), (Ints{10, 20, 30}));
  });
  opened.get_future().wait();
  deinit_common();
  deinit.set_value();
  reader.get();
  init_common();
}

TEST_F(Session, DeinitAfterACursorsSessionWasRestored) {
  Cursor first;
  void *session = current_session();
  Cursor().ints(0);
  restore_session(session);
  first.close();
  deinit_common();
  EXPECT_EQ(current_session(), nullptr);
  init_common();
}

TEST_F(Session, DeinitLeavesTheClientsInPlace) {
  Cursor().ints(0);
  ASSERT_EQ(idle(), 1u);
  const Client_session client;
  deinit_common();
  EXPECT_EQ(idle(), 0u);
  EXPECT_EQ(current_session(), client.get());
  EXPECT_TRUE(is_of_this_thread(client.get()));
  init_common();
}

TEST_F(Session, NothingIsLeftOpen) {
  const int64_t before = transactions();
  {
    Cursor cursor({.donor = sql.id()}), other({.index = "by_v"});
    cursor.ints(0);
    other.ints(0);
    EXPECT_EQ(tables_in_use(), 2);
    EXPECT_EQ(metadata_locks(), 2);
    EXPECT_EQ(transactions(), before + 2);
  }
  EXPECT_EQ(tables_in_use(), 0);
  EXPECT_EQ(transactions(), before);
  EXPECT_EQ(metadata_locks(), 0);
  // If closing left a metadata lock, this statement would wait for it.
  sql.exec("SET lock_wait_timeout = 1");
  sql.exec("ALTER TABLE t ADD COLUMN w INT");
  EXPECT_EQ(Cursor().output_columns().size(), 3u);
}

TEST_F(Session, DefinitionChangesBetweenCursors) {
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(Cursor().output_columns().size(), 2u + i);
    sql.exec("ALTER TABLE t ADD COLUMN w" + std::to_string(i) + " INT");
  }
}

TEST_F(Session, MemoryDoesNotGrowWithTheCursorsItServes) {
  const auto read = [] {
    for (int i = 0; i < 300; ++i) Cursor().ints(0);
  };
  const auto resident = [] {
    long pages = 0, ignored = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    EXPECT_EQ(fscanf(file, "%ld %ld", &ignored, &pages), 2);
    fclose(file);
    return pages * 4096;
  };
  read();
  const long before = resident();
  read();
  read();
  // If each of the 600 reads left a record buffer, they would take 75 MB.
  EXPECT_LT(resident() - before, 20L << 20);
}

TEST_F(Session, CursorMovesFromThreadToThread) {
  std::unique_ptr<Cursor> cursor;
  on_own_thread([&] { cursor = std::make_unique<Cursor>(); }).get();
  on_own_thread([&] { ASSERT_TRUE(cursor->set_range()); }).get();
  Ints values;
  for (int i = 0; i < 3; ++i) {
    on_own_thread([&] {
      ASSERT_TRUE(cursor->next());
      values.push_back(cursor->read_int(1).value());
    }).get();
  }
  on_own_thread([&] {
    EXPECT_FALSE(cursor->next());
    cursor->close();
  }).get();
  EXPECT_EQ(values, (Ints{10, 20, 30}));
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
}

TEST_F(Session, ReadsOfAThreadWithoutASession) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  on_own_thread([&] {
    EXPECT_EQ(cursor.read_int(1), 10);
    EXPECT_EQ(cursor.read_text(1), "10");
    EXPECT_EQ(cursor.read_date(1), -730517);
  }).get();
}

// The session of another cursor may have been freed, or may serve another
// thread.
TEST_F(Session, TypedReadsLeaveAnotherCursorsSession) {
  on_own_thread([] {
    Cursor cursor;
    void *session = current_session();
    ASSERT_TRUE(cursor.set_range());
    ASSERT_TRUE(cursor.next());
    Cursor other;
    ASSERT_NE(current_session(), session);
    other.close();
    EXPECT_EQ(cursor.read_text(1), "10");
    EXPECT_EQ(current_session(), session);
  }).get();
}

TEST_F(Session, TypedReadsLeaveAClientsSessionInPlace) {
  std::unique_ptr<Cursor> cursor;
  on_own_thread([&] {
    cursor = std::make_unique<Cursor>();
    ASSERT_TRUE(cursor->set_range());
    ASSERT_TRUE(cursor->next());
  }).get();
  const Client_session client;
  EXPECT_EQ(cursor->read_text(1), "10");
  EXPECT_EQ(current_session(), client.get());
}

TEST_F(Session, TimesBecomeDatetimesOfTheDayOfTheOpening) {
  sql.exec("CREATE TABLE times (id INT PRIMARY KEY, clock TIME)");
  sql.exec("INSERT INTO times VALUES (1, '01:02:03')");
  const auto today = [this] {
    return sql.number("SELECT DATEDIFF(CURDATE(), '2000-01-01')");
  };
  Cursor first({.table = "times"});
  void *session = current_session();
  age_statement(session, 3 * 86400);
  first.close();
  const int64_t before = today();
  Cursor cursor({.table = "times"});
  ASSERT_EQ(current_session(), session);
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  // Midnight may have passed during the case.
  const int64_t day = cursor.read_date(1).value_or(0);
  EXPECT_GE(day, before);
  EXPECT_LE(day, today());
  EXPECT_EQ(cursor.read_datetime(1), (day * 86400 + 3723) * 1000000);
}

TEST_F(Session, ThreadsReadAtTheSameTime) {
  fill();
  const Ints all = as_ints(sql.query("SELECT v FROM t ORDER BY id"));
  std::atomic<int> running{0};
  std::vector<std::future<void>> threads;
  for (int i = 0; i < 8; ++i) {
    threads.push_back(on_own_thread([&] {
      ++running;
      EXPECT_TRUE(wait_until([&] { return running == 8; }));
      for (int round = 0; round < 5; ++round) EXPECT_EQ(Cursor().ints(1), all);
    }));
  }
  for (auto &thread : threads) thread.get();
}

TEST_F(Session, ThreadsOpenAndCloseAtTheSameTime) {
  std::vector<std::future<void>> threads;
  for (int i = 0; i < 8; ++i) {
    threads.push_back(on_own_thread([&, i] {
      for (int round = 0; round < 100; ++round) {
        Cursor cursor({.index = i % 2 ? "by_v" : "PRIMARY",
                       .donor = round % 3 ? sql.id() : 0});
        ASSERT_TRUE(cursor.is_open());
        ASSERT_EQ(cursor.ints(1), (Ints{10, 20, 30}));
        ASSERT_FALSE(Cursor({.table = "nothing"}).is_open());
      }
    }));
  }
  for (auto &thread : threads) thread.get();
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
}

TEST_F(Session, AllAreInterruptedWhileSomeClose) {
  std::atomic<bool> enough{false};
  std::vector<std::future<void>> threads;
  for (int i = 0; i < 4; ++i) {
    threads.push_back(on_own_thread([&] {
      while (!enough) Cursor({.donor = sql.id()}).set_range();
    }));
  }
  for (int i = 0; i < 100000; ++i) CommonApi::interrupt_sessions();
  enough = true;
  for (auto &thread : threads) thread.get();
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
  EXPECT_EQ(Cursor().ints(1), (Ints{10, 20, 30}));
}

TEST_F(Session, KilledOneEndsItsScan) {
  fill();
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  kill_session(current_session());
  int rows = 1;
  while (cursor.next()) ++rows;
  EXPECT_LT(rows, 20000);
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(cursor.next());
}

TEST_F(Session, KilledOneEndsItsScanFromAnotherThread) {
  fill();
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  void *session = current_session();
  std::atomic<long> rows{0};
  std::future<void> reader = on_own_thread([&] {
    // Repeat the scan until the kill ends one early.
    for (;;) {
      long scanned = 0;
      if (cursor.set_range())
        while (cursor.next()) ++scanned, ++rows;
      if (scanned < 20000) return;
    }
  });
  EXPECT_TRUE(wait_until([&] { return rows > 1000; }));
  kill_session(session);
  EXPECT_EQ(reader.wait_for(std::chrono::seconds(60)),
            std::future_status::ready);
}

TEST_F(Session, KilledOneServesTheNextCursor) {
  fill();
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  void *session = current_session();
  kill_session(session);
  while (cursor.next()) continue;
  cursor.close();
  Cursor next;
  EXPECT_EQ(current_session(), session);
  EXPECT_EQ(next.ints(0).size(), 20000u);
}

// To open these tables the server parses expressions. It refuses to do so in a
// session with a fatal error, and a kill leaves such an error.
TEST_F(Session, KilledOneOpensTablesWithExpressions) {
  fill();
  sql.exec("CREATE TABLE computed (id INT PRIMARY KEY, g INT AS (id + 1))");
  sql.exec(
      "CREATE TABLE parted (id INT PRIMARY KEY) PARTITION BY HASH (id)"
      " PARTITIONS 3");
  sql.exec("INSERT INTO computed (id) VALUES (1), (2)");
  sql.exec("INSERT INTO parted VALUES (1), (2)");
  for (const char *table : {"computed", "parted"}) {
    // Close the open tables that are not in use, so that the server opens them
    // again.
    sql.exec("FLUSH TABLES");
    Cursor cursor;
    ASSERT_TRUE(cursor.set_range());
    void *session = current_session();
    kill_session(session);
    while (cursor.next()) continue;
    cursor.close();
    Cursor next({.table = table});
    EXPECT_EQ(current_session(), session);
    EXPECT_EQ(next.ints(0), (Ints{1, 2})) << next.error << next.message;
  }
}

TEST_F(Session, KilledOneClosesInPeace) {
  fill();
  {
    Cursor cursor;
    ASSERT_TRUE(cursor.set_range());
    kill_session(current_session());
  }
  EXPECT_EQ(tables_in_use(), 0);
  EXPECT_EQ(Cursor().ints(0).size(), 20000u);
}

}  // namespace
