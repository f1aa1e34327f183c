// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Donors without a read view. The first read then takes a fresh snapshot, and
// the cursor keeps it.

#include <algorithm>
#include <chrono>

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelWithoutAView : public Parallel_test {
 protected:
  ParallelWithoutAView() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT NOT NULL, KEY by_v (v))");
    fill("t", 9000, "i, i");
    sql.exec("CREATE TABLE other (id INT PRIMARY KEY)");
  }

  /** Updates, deletes and inserts rows all over the table, and does not
      commit. */
  void change_and_leave_open() {
    sql.exec("BEGIN");
    sql.exec("UPDATE t SET v = v + 10000 WHERE id % 3 = 0");
    sql.exec("DELETE FROM t WHERE id % 1000 = 7");
    sql.exec("INSERT INTO t VALUES (20000, 5), (20001, 20001)");
  }

  Rows committed_rows() {
    Client reader;
    Rows rows = reader.query("SELECT id, v FROM db.t");
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  template <class Reader>
  void expect_read(const Reader &reader, const Rows &expected) {
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      const Delivered delivered = collect(reader, threads, {0, 1});
      EXPECT_TRUE(delivered.complete);
      expect_rows(delivered.rows, expected);
    }
  }

  /** Check that no kind of exact read delivers changes that another session has
      not committed when the snapshot is taken, not even after their commit. */
  void expect_a_fresh_snapshot(uint32_t donor_id) {
    const Rows expected = committed_rows();
    ASSERT_EQ(expected.size(), 9000u);
    change_and_leave_open();
    const Scan scan({.donor = donor_id});
    Cursor primary({.donor = donor_id});
    Cursor by_v({.index = "by_v", .index_only = true, .donor = donor_id});
    const auto expect_all = [&] {
      expect_read(scan, expected);
      expect_read(primary, expected);
      expect_read(by_v, expected);
    };
    expect_all();
    sql.exec("COMMIT");
    ASSERT_NE(committed_rows(), expected);
    expect_all();
    Rows row_by_row = primary.texts({0, 1});
    std::sort(row_by_row.begin(), row_by_row.end());
    expect_rows(row_by_row, expected);
  }
};

TEST_F(ParallelWithoutAView, AnIdleDonorGivesAFreshSnapshot) {
  expect_a_fresh_snapshot(donor.id());
}

TEST_F(ParallelWithoutAView, AnUnknownDonorGivesAFreshSnapshot) {
  expect_a_fresh_snapshot(4294967294u);
}

TEST_F(ParallelWithoutAView, ADonorThatOnlyWritesGivesAFreshSnapshot) {
  donor.exec("BEGIN");
  donor.exec("INSERT INTO other VALUES (1)");
  expect_a_fresh_snapshot(donor.id());
  donor.exec("ROLLBACK");
}

TEST_F(ParallelWithoutAView, ASerializableDonorGivesAFreshSnapshot) {
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL SERIALIZABLE");
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.query("SELECT * FROM other");
  sql.exec("UPDATE t SET v = -2 WHERE id = 2");
  expect_a_fresh_snapshot(donor.id());
}

TEST_F(ParallelWithoutAView, ADonorPreparedInXaGivesAFreshSnapshot) {
  donor.exec("XA START 'x'");
  donor.query("SELECT COUNT(*) FROM t");
  donor.exec("INSERT INTO other VALUES (1)");
  donor.exec("XA END 'x'");
  donor.exec("XA PREPARE 'x'");
  sql.exec("UPDATE t SET v = -2 WHERE id = 2");
  expect_a_fresh_snapshot(donor.id());
  sql.exec("XA ROLLBACK 'x'");
}

TEST_F(ParallelWithoutAView, TheSnapshotIsTakenAtTheFirstRead) {
  const Scan scan({.donor = donor.id()});
  sql.exec("UPDATE t SET v = -v");
  expect_read(scan, committed_rows());
}

TEST_F(ParallelWithoutAView, RowsReadOneByOneTakeTheSnapshotAsWell) {
  Cursor cursor({.donor = donor.id()});
  const Rows expected = committed_rows();
  ASSERT_TRUE(cursor.set_range());
  sql.exec("DELETE FROM t WHERE id > 10");
  expect_read(cursor, expected);
}

// A read finds rows whose large value is written only in part. A debug build of
// the server checks the whole buffer pool again and again during such a write,
// so the value is smaller there.
TEST_F(ParallelWithoutAView, LargeValuesBeingWrittenDoNotFailTheRead) {
  sql.exec("CREATE TABLE large (id INT PRIMARY KEY, b LONGBLOB)");
  fill("large", 40, "i, REPEAT('x', 40000)");
  Client watcher;
  watcher.exec("USE db");
  watcher.exec("SET SESSION TRANSACTION ISOLATION LEVEL READ UNCOMMITTED");
  const bool is_debug = sql.number("SELECT VERSION() LIKE '%debug%'") == 1;
  const std::string bytes = is_debug ? "1000000" : "30000000";
  for (int i = 0; i < 5; ++i) {
    sql.exec("BEGIN");
    std::future<Reply> writing =
        sql.send("INSERT INTO large VALUES (1000, REPEAT('y', " + bytes + "))");
    ASSERT_TRUE(wait_until(
        [&] { return watcher.number("SELECT COUNT(id) FROM large") == 41; }));
    const Scan scan({.table = "large", .donor = donor.id()});
    do {
      const Delivered delivered = collect(scan, 0, {0});
      EXPECT_TRUE(delivered.complete);
      EXPECT_EQ(delivered.rows.size(), 40u);
    } while (writing.wait_for(std::chrono::seconds(0)) !=
             std::future_status::ready);
    EXPECT_EQ(writing.get().error, 0u);
    sql.exec("ROLLBACK");
  }
}

/** Sets the server's isolation level to READ UNCOMMITTED, and restores it at
    the end. */
class ParallelReadUncommitted : public ParallelWithoutAView {
 protected:
  ParallelReadUncommitted() {
    sql.exec("SET GLOBAL transaction_isolation = 'READ-UNCOMMITTED'");
  }
  ~ParallelReadUncommitted() override {
    sql.attempt("SET GLOBAL transaction_isolation = 'REPEATABLE-READ'");
  }
};

TEST_F(ParallelReadUncommitted, DeliversWhatTheIndexHolds) {
  const Scan scan({.donor = donor.id()});
  change_and_leave_open();
  Rows uncommitted = sql.query("SELECT id, v FROM t");
  std::sort(uncommitted.begin(), uncommitted.end());
  expect_read(scan, uncommitted);
  sql.exec("ROLLBACK");
  expect_read(scan, committed_rows());
}

// SQL leaves out such rows at this level too. A read of the columns on the page
// alone does find the row.
TEST_F(ParallelReadUncommitted, LeavesOutRowsWhoseLargeValueIsBeingWritten) {
  sql.exec("CREATE TABLE large (id INT PRIMARY KEY, b LONGBLOB)");
  fill("large", 40, "i, REPEAT('x', 40000)");
  Scan keys({.table = "large", .donor = donor.id()});
  keys.set_columns({0});
  const Scan rows({.table = "large", .donor = donor.id()});
  size_t n_left_out = 0;
  for (int i = 0; i < 50 && n_left_out == 0; ++i) {
    sql.exec("BEGIN");
    std::future<Reply> writing =
        sql.send("INSERT INTO large VALUES (1000, REPEAT('y', 30000000))");
    while (writing.wait_for(std::chrono::seconds(0)) !=
           std::future_status::ready) {
      const bool is_there = collect_ints(keys, 0, 0).back() == 1000;
      const Delivered delivered = collect(rows, 0, {0});
      ASSERT_TRUE(delivered.complete);
      if (is_there && delivered.rows.size() == 40) ++n_left_out;
    }
    EXPECT_EQ(writing.get().error, 0u);
    EXPECT_EQ(collect_ints(rows, 0, 0).back(), 1000);
    sql.exec("ROLLBACK");
  }
  EXPECT_GT(n_left_out, 0u);
}

}  // namespace
