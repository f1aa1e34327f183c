// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// A server whose temporary space is full or gone. Its statements fail; reads at
// the same time do not fail, because they write nothing.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "common/pool.h"
#include "parallel_test.h"

namespace {

using namespace harness;

constexpr size_t n_rows = 20000;
constexpr unsigned int undo_full = 3019;         // ER_INNODB_UNDO_LOG_FULL
constexpr unsigned int file_cannot_be_made = 1;  // EE_CANTCREATEFILE

class TemporarySpace : public Parallel_test {
 protected:
  TemporarySpace() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, pad VARCHAR(300),"
        " KEY by_v (v))");
    fill("t", n_rows, "i, i % 1000, REPEAT('p', 200)");
    // A temporary table, so that its undo log is temporary, too.
    donor.exec(
        "CREATE TEMPORARY TABLE own (id INT PRIMARY KEY, pad VARCHAR(2000))");
    donor.exec("INSERT INTO own SELECT id, REPEAT('a', 1000) FROM t");
    take_snapshot();
    sql.exec("UPDATE t SET v = v + 1, pad = 'new' WHERE id % 3 = 0");
    sql.exec("DELETE FROM t WHERE id % 7 = 0");
    sql.exec("INSERT INTO t SELECT id + 1000000, v, pad FROM t LIMIT 100");
    rows_ = donor_rows("SELECT id, v, pad FROM t");
    entries_ = donor_rows("SELECT id, v FROM t");
  }

  /** Reads of each kind under the donor's snapshot. */
  void read_by_rows() {
    Cursor primary({.donor = donor.id()});
    ASSERT_TRUE(primary.is_open()) << primary.error << primary.message;
    expect_rows(sorted(primary.texts({0, 1, 2})), rows_);
    Cursor by_v({.index = "by_v", .index_only = true, .donor = donor.id()});
    ASSERT_TRUE(by_v.is_open()) << by_v.error << by_v.message;
    expect_rows(sorted(by_v.texts({0, 1})), entries_);
    ++rounds_by_rows_;
  }

  void read_with_threads() {
    const Cursor primary({.donor = donor.id()});
    expect_complete(collect(primary, 4, {0, 1, 2}), rows_);
    const Cursor by_v(
        {.index = "by_v", .index_only = true, .donor = donor.id()});
    expect_complete(collect(by_v, 4, {0, 1}), entries_);
    const Scan scan({.donor = donor.id()});
    expect_complete(collect(scan, 4, {0, 1, 2}), rows_);
    ++rounds_with_threads_;
  }

  /** The statement fails in the donor's session again and again while others
      read under its snapshot. */
  void expect_reads_beside(const std::string &statement, unsigned int error) {
    std::atomic<bool> stop{false};
    const auto repeat = [&](const std::function<void()> &read) {
      return on_own_thread([&stop, read] {
        while (!stop && !HasFatalFailure()) read();
      });
    };
    auto by_rows = repeat([this] { read_by_rows(); });
    auto with_threads = repeat([this] { read_with_threads(); });
    size_t failures = 0;
    while (!HasFailure() &&
           (failures < 3 || rounds_by_rows_ < 2 || rounds_with_threads_ < 2)) {
      const Reply reply = donor.attempt(statement);
      EXPECT_EQ(reply.error, error) << reply.message;
      ++failures;
    }
    stop = true;
    by_rows.get();
    with_threads.get();
    fprintf(stderr, "figure: %zu statements failed beside %zu + %zu reads\n",
            failures, 2 * rounds_by_rows_, 3 * rounds_with_threads_);
    // After a failed statement the transaction still has its snapshot.
    expect_rows(donor_rows("SELECT id, v, pad FROM t"), rows_);
  }

  void expect_nothing_left() {
    donor.exec("COMMIT");
    EXPECT_EQ(ThreadBudget::s_active_threads.load(), 0u);
    EXPECT_EQ(metadata_locks(), 0);
    sql.exec("SET lock_wait_timeout = 1");
    EXPECT_EQ(sql.attempt("ALTER TABLE t COMMENT 'free'").error, 0u);
  }

 private:
  static Rows sorted(Rows rows) {
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  static void expect_complete(const Delivered &delivered,
                              const Rows &expected) {
    EXPECT_TRUE(delivered.complete);
    expect_rows(delivered.rows, expected);
  }

  Rows rows_, entries_;
  std::atomic<size_t> rounds_by_rows_{0}, rounds_with_threads_{0};
};

// The undo log of a temporary table is written there.
TEST_F(TemporarySpace, TheTemporaryTablespaceIsFull) {
  expect_reads_beside("UPDATE own SET pad = REPEAT('b', 1000)", undo_full);
  expect_nothing_left();
  EXPECT_EQ(donor.attempt("UPDATE own SET pad = 'b' WHERE id < 100").error, 0u);
}

TEST_F(TemporarySpace, TemporaryFilesCannotBeMade) {
  const std::filesystem::path folder = sql.text("SELECT @@tmpdir");
  const std::filesystem::path away = folder.string() + ".away";
  const std::string sorting = "SELECT id FROM own ORDER BY pad, id DESC";
  donor.exec("SET sort_buffer_size = 32768");
  EXPECT_EQ(donor.attempt(sorting).rows.size(), n_rows);
  std::filesystem::rename(folder, away);
  expect_reads_beside(sorting, file_cannot_be_made);
  std::filesystem::rename(away, folder);
  expect_nothing_left();
  EXPECT_EQ(donor.attempt(sorting).rows.size(), n_rows);
}

}  // namespace
