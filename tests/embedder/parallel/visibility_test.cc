// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Which rows, and which versions of them, a parallel read delivers.

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelVisibility : public Parallel_test {
 protected:
  /** About 30 leaf pages in each index. */
  void make(size_t n_rows = 3000) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(100), " +
             filler(450000 / n_rows) +
             ", KEY by_v (v, pad), KEY by_w (w, pad))");
    fill("t", n_rows, "i, i % 100, CONCAT('w', i)");
  }

  /** All three reads: one of the table, and an index-only read of each
      secondary index. */
  void expect_everywhere() {
    expect_whole_table();
    expect_index("by_v");
    expect_index("by_w");
  }

  void expect_index(const char *index) {
    SCOPED_TRACE(index);
    const bool by_v = std::string(index) == "by_v";
    const Rows expected =
        donor_rows(by_v ? "SELECT id, v FROM t" : "SELECT id, w FROM t");
    const Cursor cursor(
        {.index = index, .index_only = true, .donor = donor.id()});
    ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      const Columns columns = by_v ? Columns{0, 1} : Columns{0, 2};
      const Delivered delivered = collect(cursor, threads, columns);
      EXPECT_TRUE(delivered.complete);
      expect_rows(delivered.rows, expected);
    }
  }
};

TEST_F(ParallelVisibility, RowsUpdatedAfterTheSnapshotKeepTheirValues) {
  make();
  take_snapshot();
  sql.exec("UPDATE t SET v = v + 1000 WHERE id % 2 = 0");
  expect_everywhere();
}

TEST_F(ParallelVisibility, RowsUpdatedManyTimes) {
  make(500);
  take_snapshot();
  for (int i = 0; i < 12; ++i) sql.exec("UPDATE t SET v = v + 7, w = 'again'");
  expect_everywhere();
}

TEST_F(ParallelVisibility, RowsInsertedAfterTheSnapshotAreNotThere) {
  make();
  take_snapshot();
  fill("t", 2000, "i + 3000, i, CONCAT('w', i, ' late')");
  expect_everywhere();
}

TEST_F(ParallelVisibility, RowsDeletedAfterTheSnapshotAreThere) {
  make();
  take_snapshot();
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  expect_everywhere();
}

TEST_F(ParallelVisibility, RowsDeletedAndInsertedAgain) {
  make();
  take_snapshot();
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  fill("t", 1000, "i * 3, 5, 'second life'");
  expect_everywhere();
}

TEST_F(ParallelVisibility, RowsDeletedBeforeTheSnapshotAreNotThere) {
  make();
  Client holder;
  holder.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  take_snapshot();
  expect_everywhere();
}

TEST_F(ParallelVisibility, PrimaryKeysChanged) {
  make();
  take_snapshot();
  sql.exec("UPDATE t SET id = id + 10000 WHERE id % 4 = 0");
  expect_everywhere();
}

TEST_F(ParallelVisibility, UncommittedChangesOfOthersAreNotSeen) {
  make();
  sql.exec("BEGIN");
  sql.exec("UPDATE t SET v = -1 WHERE id % 2 = 0");
  sql.exec("DELETE FROM t WHERE id % 5 = 0");
  sql.exec("INSERT INTO t VALUES (99999, 1, 'open')");
  take_snapshot();
  expect_everywhere();
  sql.exec("COMMIT");
  expect_everywhere();
}

TEST_F(ParallelVisibility, ChangesRolledBackAreNotSeen) {
  make();
  take_snapshot();
  sql.exec("BEGIN");
  sql.exec("UPDATE t SET v = -1, w = 'gone'");
  sql.exec("DELETE FROM t WHERE id % 5 = 0");
  sql.exec("ROLLBACK");
  expect_everywhere();
}

TEST_F(ParallelVisibility, TheDonorsOwnChangesAreSeen) {
  make();
  donor.exec("BEGIN");
  donor.exec("UPDATE t SET v = 12345 WHERE id % 2 = 0");
  donor.exec("DELETE FROM t WHERE id % 5 = 0");
  donor.exec("INSERT INTO t VALUES (99999, 1, 'own')");
  donor.query("SELECT COUNT(*) FROM t");
  expect_everywhere();
  donor.exec("ROLLBACK");
}

TEST_F(ParallelVisibility, TheDonorsChangesBesideThoseOfOthers) {
  make();
  take_snapshot();
  donor.exec("UPDATE t SET v = 12345 WHERE id BETWEEN 500 AND 1000");
  sql.exec("UPDATE t SET v = 777, w = 'other' WHERE id BETWEEN 1500 AND 2000");
  expect_everywhere();
  donor.exec("ROLLBACK");
}

TEST_F(ParallelVisibility, DonorThatCommitsMeanwhile) {
  make();
  take_snapshot();
  const Rows expected = donor_rows("SELECT * FROM t");
  const Scan scan({.donor = donor.id()});
  sql.exec("UPDATE t SET v = v + 1000");
  donor.exec("COMMIT");
  sql.exec("DELETE FROM t WHERE id > 100");
  for (const size_t threads : thread_counts)
    expect_rows(collect(scan, threads, {0, 1, 2}).rows, expected);
}

TEST_F(ParallelVisibility, DonorThatDisconnectsMeanwhile) {
  make();
  take_snapshot();
  const Rows expected = donor_rows("SELECT * FROM t");
  const Scan scan({.donor = donor.id()});
  sql.exec("UPDATE t SET v = v + 1000");
  donor.disconnect();
  for (const size_t threads : thread_counts)
    expect_rows(collect(scan, threads, {0, 1, 2}).rows, expected);
}

TEST_F(ParallelVisibility, ReadCommittedDonorHasNoSnapshotToGive) {
  make(300);
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED");
  donor.exec("BEGIN");
  donor.query("SELECT * FROM t");
  sql.exec("DELETE FROM t WHERE id % 2 = 0");
  const Scan scan({.donor = donor.id()});
  for (const size_t threads : thread_counts)
    EXPECT_EQ(collect(scan, threads, {0}).rows.size(), 150u);
}

TEST_F(ParallelVisibility, ManyOpenTransactions) {
  make();
  std::vector<std::unique_ptr<Client>> writers;
  for (int i = 0; i < 20; ++i) {
    writers.push_back(std::make_unique<Client>());
    writers.back()->exec("USE db");
    writers.back()->exec("BEGIN");
    const std::string first = std::to_string(i * 100 + 10);
    writers.back()->exec("UPDATE t SET v = -1 WHERE id BETWEEN " + first +
                         " AND " + first + " + 50");
  }
  for (int i = 0; i < 20; i += 2) writers[i]->exec("COMMIT");
  take_snapshot();
  for (int i = 1; i < 20; i += 2) writers[i]->exec("COMMIT");
  expect_everywhere();
}

/** Sets the server's isolation level, and restores it at the end. */
class ParallelIsolation : public ParallelVisibility {
 protected:
  void set_level(const std::string &level) {
    sql.exec("SET GLOBAL transaction_isolation = '" + level + "'");
  }
  ~ParallelIsolation() override {
    sql.attempt("SET GLOBAL transaction_isolation = 'REPEATABLE-READ'");
  }
};

TEST_F(ParallelIsolation, Serializable) {
  set_level("SERIALIZABLE");
  make();
  take_snapshot();
  sql.exec("UPDATE t SET v = v + 1000 WHERE id % 2 = 0");
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  expect_everywhere();
}

TEST_F(ParallelIsolation, ReadCommittedReadsThePrimaryKeyExactly) {
  set_level("READ-COMMITTED");
  make();
  take_snapshot();
  sql.exec("UPDATE t SET v = v + 1000 WHERE id % 2 = 0");
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  expect_whole_table();
}

// The old entries of changed rows are marked as deleted; their new entries are
// not.
TEST_F(ParallelIsolation, ReadCommittedReadsAnIndexAsItStands) {
  set_level("READ-COMMITTED");
  make(300);
  take_snapshot();
  sql.exec("UPDATE t SET v = v + 1000 WHERE id % 2 = 0");
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  sql.exec("INSERT INTO t VALUES (5000, 5000, 'late')");
  const auto as_it_stands = as_ints(sql.query("SELECT v FROM t ORDER BY v"));
  const Cursor cursor(
      {.index = "by_v", .index_only = true, .donor = donor.id()});
  for (const size_t threads : thread_counts)
    EXPECT_EQ(collect_ints(cursor, threads, 1), as_it_stands);
}

TEST_F(ParallelIsolation, ReadUncommittedReadsWhatIsThere) {
  set_level("READ-UNCOMMITTED");
  make(300);
  take_snapshot();
  sql.exec("BEGIN");
  sql.exec("DELETE FROM t WHERE id % 2 = 0");
  const Scan scan({.donor = donor.id()});
  for (const size_t threads : thread_counts)
    EXPECT_EQ(collect(scan, threads, {0}).rows.size(), 150u);
  sql.exec("ROLLBACK");
}

}  // namespace
