// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Snapshots over time: what purge keeps for them, and what they show of a table
// that changes.

#include <atomic>
#include <stdexcept>

#include "common.h"
#include "cursor_test.h"
#include "global_setting.h"
#include "purge.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class Snapshot : public Cursor_test {
 protected:
  Snapshot() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, pad VARCHAR(200),"
        " KEY by_v (v))");
    sql.exec("SET cte_max_recursion_depth = 100000");
    sql.exec(
        "INSERT INTO t WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL"
        " SELECT i + 1 FROM n WHERE i < 1000)"
        " SELECT i, i * 10, REPEAT('p', 200) FROM n");
  }

  /** Delete each row in a transaction of its own. */
  void delete_one_by_one(int rows) {
    for (int i = 1; i <= rows; ++i)
      sql.exec("DELETE FROM t WHERE id = " + std::to_string(i));
  }

  Purge purge{&sql};
};

// Purge stops at the copy of the donor's read view, even after the donor has
// disconnected. It continues when the cursor closes.
TEST_F(Snapshot, PurgeKeepsWhatTheCursorSees) {
  ASSERT_TRUE(purge.shrinks_history_below(100));
  const Ints all = as_ints(sql.query("SELECT v FROM t ORDER BY id"));
  auto donor = std::make_unique<Client>();
  donor->exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor cursor({.donor = donor->id()});
  Cursor by_v({.index = "by_v", .donor = donor->id()});
  donor.reset();
  delete_one_by_one(300);
  ASSERT_TRUE(purge.has_run(5));
  EXPECT_GE(purge.history(), 300);
  EXPECT_EQ(cursor.ints(1), all);
  EXPECT_EQ(by_v.ints(1), all);
  cursor.close();
  ASSERT_TRUE(purge.has_run(5));
  EXPECT_GE(purge.history(), 300);
  EXPECT_EQ(by_v.ints(1), all);
  by_v.close();
  EXPECT_TRUE(purge.shrinks_history_below(300));
}

TEST_F(Snapshot, PurgeKeepsWhatACursorWithoutADonorSees) {
  ASSERT_TRUE(purge.shrinks_history_below(100));
  const Ints all = as_ints(sql.query("SELECT v FROM t ORDER BY id"));
  Cursor cursor;
  delete_one_by_one(300);
  ASSERT_TRUE(purge.has_run(5));
  EXPECT_GE(purge.history(), 300);
  EXPECT_EQ(cursor.ints(1), all);
  cursor.close();
  EXPECT_TRUE(purge.shrinks_history_below(300));
}

TEST_F(Snapshot, ClosedCursorKeepsNothing) {
  ASSERT_TRUE(purge.shrinks_history_below(100));
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  for (int i = 0; i < 10; ++i) Cursor({.donor = donor.id()}).ints(0);
  donor.exec("COMMIT");
  delete_one_by_one(200);
  EXPECT_TRUE(purge.shrinks_history_below(200));
}

TEST_F(Snapshot, FailedOpeningKeepsNothing) {
  ASSERT_TRUE(purge.shrinks_history_below(100));
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  EXPECT_FALSE(Cursor({.index = "nothing", .donor = donor.id()}).is_open());
  EXPECT_FALSE(Cursor({.index = "nothing"}).is_open());
  donor.exec("COMMIT");
  delete_one_by_one(200);
  EXPECT_TRUE(purge.shrinks_history_below(200));
}

// With autocommit off, the end of a statement does not end the transaction. A
// session in the pool would keep its read view.
TEST_F(Snapshot, GlobalAutocommitOffChangesNothing) {
  CommonApi::destroy_idle_sessions();
  Client donor;
  {
    const Global_setting off("autocommit", "0");
    donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
    sql.exec("UPDATE t SET v = -1 WHERE id = 1");
    EXPECT_EQ(Cursor().ints(1).at(0), -1);
    EXPECT_EQ(Cursor({.donor = donor.id()}).ints(1).at(0), 10);
    EXPECT_EQ(Cursor().ints(1).at(0), -1);
  }
  donor.exec("COMMIT");
  ASSERT_TRUE(purge.shrinks_history_below(100));
  delete_one_by_one(200);
  EXPECT_TRUE(purge.shrinks_history_below(200));
}

TEST_F(Snapshot, GlobalReadUncommittedKeepsNone) {
  Client writer;
  writer.exec("BEGIN");
  writer.exec("UPDATE db.t SET v = -5 WHERE id = 1");
  {
    const Global_setting level("transaction_isolation", "'READ-UNCOMMITTED'");
    EXPECT_EQ(Cursor().ints(1).at(0), -5);
  }
  EXPECT_EQ(Cursor().ints(1).at(0), 10);
}

TEST_F(Snapshot, GlobalReadCommittedKeepsTheDonors) {
  const Global_setting level("transaction_isolation", "'READ-COMMITTED'");
  Client donor;
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL REPEATABLE READ");
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor cursor({.donor = donor.id()}), own;
  sql.exec("UPDATE t SET v = -1 WHERE id = 1");
  EXPECT_EQ(cursor.ints(1).at(0), 10);
  EXPECT_EQ(own.ints(1).at(0), 10);
  sql.exec("UPDATE t SET v = -2 WHERE id = 1");
  EXPECT_EQ(cursor.ints(1).at(0), 10);
  EXPECT_EQ(own.ints(1).at(0), 10);
}

TEST_F(Snapshot, StaysTheSameThroughEveryRange) {
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor cursor({.index = "by_v", .donor = donor.id()});
  const Ints all = cursor.ints(1);
  for (int i = 0; i < 20; ++i) {
    sql.exec("UPDATE t SET v = v + 5 WHERE id % 20 = " + std::to_string(i));
    EXPECT_EQ(cursor.ints(1), all);
    EXPECT_EQ(cursor.ints(0, {Keys().number(5000), Keys().number(5000)}),
              (Ints{500}));
    EXPECT_EQ(cursor.ints(1, {Keys().number(9990), {}}), (Ints{9990, 10000}));
  }
}

TEST_F(Snapshot, OldVersionsOfLargeObjects) {
  sql.exec("CREATE TABLE blobs (id INT PRIMARY KEY, b LONGBLOB)");
  sql.exec("INSERT INTO blobs VALUES (1, REPEAT('old', 100000))");
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor cursor({.table = "blobs", .donor = donor.id()});
  sql.exec("UPDATE blobs SET b = REPEAT('new', 50000)");
  sql.exec("UPDATE blobs SET b = 'short'");
  ASSERT_TRUE(cursor.set_range());
  std::string old;
  for (int i = 0; i < 100000; ++i) old += "old";
  EXPECT_TRUE(cursor.read_text(1) == old);
}

TEST_F(Snapshot, OldVersionsOfPartlyUpdatedJson) {
  sql.exec("CREATE TABLE docs (id INT PRIMARY KEY, j JSON)");
  sql.exec(
      "INSERT INTO docs VALUES (1, JSON_OBJECT('a', 'xxxxxxxxxx', 'b',"
      " REPEAT('y', 50000)))");
  const std::string old = sql.text("SELECT j FROM docs");
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor cursor({.table = "docs", .donor = donor.id()});
  sql.exec("UPDATE docs SET j = JSON_SET(j, '$.a', 'zzz')");
  ASSERT_NE(sql.text("SELECT j FROM docs"), old);
  ASSERT_TRUE(cursor.set_range());
  EXPECT_TRUE(cursor.read_text(1) == old);
}

// The writers move amounts between rows, and each snapshot must show the same
// sum. They also insert rows and change the length of rows, so that pages
// split.
TEST_F(Snapshot, SumStaysWhileWritersMoveMoney) {
  sql.exec("UPDATE t SET v = 100");
  std::atomic<bool> stop{false};
  std::atomic<int> rounds{0};
  std::vector<std::future<void>> writers;
  for (int w = 0; w < 2; ++w) {
    writers.push_back(std::async(std::launch::async, [&, w] {
      Client writer;
      writer.exec("USE db");
      for (int i = 0; !stop; ++i, ++rounds) {
        const std::string from = std::to_string(1 + (i * 7 + w * 13) % 1000);
        const std::string to = std::to_string(1 + (i * 11 + w * 29) % 1000);
        const std::string extra = std::to_string(2000 + w * 100000 + i);
        try {
          writer.exec("BEGIN");
          writer.exec("UPDATE t SET v = v - 3 WHERE id = " + from);
          writer.exec("UPDATE t SET v = v + 2 WHERE id = " + to);
          writer.exec("INSERT INTO t VALUES (" + extra +
                      ", 1, REPEAT('w', 150))");
          if (i % 2)
            writer.exec("UPDATE t SET pad = REPEAT('g', 200) WHERE id = " + to);
          writer.exec("COMMIT");
        } catch (const std::runtime_error &) {
          writer.exec("ROLLBACK");  // a deadlock
        }
      }
    }));
  }
  const auto sum = [](const Ints &values) {
    long long total = 0;
    for (const long long value : values) total += value;
    return total;
  };
  for (int round = 0; round < 40; ++round) {
    ASSERT_TRUE(wait_until([&] { return rounds > round * 10; }));
    const long long id = round % 2;
    Cursor cursor({.index = id ? "by_v" : "PRIMARY"});
    EXPECT_EQ(sum(cursor.ints(1)), 100000) << round;
  }
  stop = true;
  for (auto &writer : writers) writer.get();
}

// The rows that no session deletes are read once each and in order, whatever is
// inserted and deleted between them.
TEST_F(Snapshot, RowsThatStayAreReadOnceEach) {
  sql.exec("CREATE TABLE s (id INT PRIMARY KEY, pad VARCHAR(500))");
  sql.exec("INSERT INTO s SELECT id * 10, REPEAT('s', 100) FROM t");
  std::atomic<bool> stop{false};
  std::atomic<int> rounds{0};
  auto writer = std::async(std::launch::async, [&] {
    Client client;
    client.exec("USE db");
    for (; !stop; ++rounds) {
      client.exec("INSERT INTO s SELECT id * 10 + 5, REPEAT('n', 500) FROM t");
      client.exec("DELETE FROM s WHERE id % 10 = 5");
    }
  });
  Ints expected;
  for (int i = 1; i <= 1000; ++i) expected.push_back(i * 10);
  for (int round = 0; round < 30; ++round) {
    ASSERT_TRUE(wait_until([&] { return rounds > round / 5; }));
    Cursor cursor({.table = "s"});
    Ints kept;
    for (const long long id : cursor.ints(0))
      if (id % 10 == 0) kept.push_back(id);
    EXPECT_EQ(kept, expected);
  }
  stop = true;
  writer.get();
}

}  // namespace
