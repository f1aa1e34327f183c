// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// A server that may open few tables and few files at a time. Cursors beyond
// these limits either open and read exactly, or report why they do not open.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>
#include <system_error>
#include <thread>

#include "parallel_test.h"

namespace {

using namespace harness;

using Cursors = std::vector<std::unique_ptr<Cursor>>;

constexpr int n_tables = 60;
constexpr int n_cursors = 300;
constexpr int n_partitions = 100;

size_t open_files() {
  const std::filesystem::directory_iterator files("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(files), end(files)));
}

std::string table_name(int i) { return "t" + std::to_string(i); }

/** Those in the folder that newer servers have for them. */
std::set<std::string> redo_files() {
  std::error_code no_folder;
  std::set<std::string> names;
  for (const auto &file :
       std::filesystem::directory_iterator("#innodb_redo", no_folder))
    names.insert(file.path().filename());
  return names;
}

/** Opens every file that the process may still open. */
class All_files {
 public:
  All_files() {
    for (int file; (file = dup(0)) >= 0;) files_.push_back(file);
  }
  ~All_files() {
    for (const int file : files_) close(file);
  }
  All_files(const All_files &) = delete;
  All_files &operator=(const All_files &) = delete;
  size_t count() const { return files_.size(); }

 private:
  std::vector<int> files_;
};

class OpenTables : public Parallel_test {
 protected:
  OpenTables() {
    file_limit_ = static_cast<size_t>(sql.number("SELECT @@open_files_limit"));
    EXPECT_LE(file_limit_, static_cast<size_t>(n_tables));
    EXPECT_LE(sql.number("SELECT @@table_open_cache"), n_tables / 10);
    EXPECT_LE(sql.number("SELECT @@innodb_open_files"), n_tables / 5);
  }

  /** Table i, with rows of its own. */
  void make_table(int i) {
    sql.exec("CREATE TABLE " + table_name(i) +
             " (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    fill(table_name(i), static_cast<size_t>(20 + i),
         "i, " + std::to_string(i) + " * 1000 + i * 7 % 100");
    expected_.push_back(
        as_ints(sql.query("SELECT v FROM " + table_name(i) + " ORDER BY v")));
  }

  void expect_exact_or_refused(const Open &open, Cursor *cursor,
                               const std::vector<long long> &expected) {
    if (cursor->is_open()) {
      EXPECT_EQ(cursor->ints(1), expected) << open.table;
      return;
    }
    EXPECT_NE(cursor->error, 0u) << open.table;
    EXPECT_NE(cursor->message, "") << open.table;
    ++refused_;
    fprintf(stderr, "figure: %s: %u %s\n", open.table, cursor->error,
            cursor->message.c_str());
  }

  /** Open a share of the cursors, each on the next table, and read by each when
      it opens and when all are open. */
  void open_and_read(Cursors *cursors, int first) {
    const auto read = [this](int i, Cursor *cursor) {
      const std::string name = table_name(i);
      expect_exact_or_refused({.table = name.c_str()}, cursor,
                              expected_[static_cast<size_t>(i)]);
    };
    for (int i = 0; i < n_cursors / 2; ++i) {
      const int table = (first + i) % n_tables;
      const std::string name = table_name(table);
      cursors->push_back(std::make_unique<Cursor>(Open{
          .table = name.c_str(), .index = "by_v", .index_only = i % 2 == 0}));
      read(table, cursors->back().get());
    }
    for (int i = 0; i < n_cursors / 2; ++i)
      read((first + i) % n_tables, (*cursors)[static_cast<size_t>(i)].get());
  }

  void expect_files_within_the_limit() {
    const size_t files = open_files();
    fprintf(stderr, "figure: %zu files open, %zu allowed\n", files,
            file_limit_);
    EXPECT_LE(files, file_limit_);
  }

  /** InnoDB makes its redo log files ahead, 10 ms after it has begun one, and
      ends the server when one cannot be opened. */
  void await_redo_files() {
    sql.exec("FLUSH ENGINE LOGS");
    std::set<std::string> before, now;
    do {
      before.swap(now);
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      now = redo_files();
    } while (now != before);
  }

  int64_t status(const std::string &name) {
    return sql.number(
        "SELECT variable_value FROM performance_schema.global_status WHERE"
        " variable_name = '" +
        name + "'");
  }

  size_t file_limit_;
  std::vector<std::vector<long long>> expected_;  // values of v, by table
  std::atomic<size_t> refused_{0};
};

TEST_F(OpenTables, MoreCursorsThanTablesAndFilesMayBeOpen) {
  for (int i = 0; i < n_tables; ++i) make_table(i);
  Cursors some, others;
  auto beside = on_own_thread([&] { open_and_read(&others, n_tables / 2); });
  open_and_read(&some, 0);
  beside.get();
  fprintf(stderr, "figure: %d cursors, %zu refused, %lld tables open\n",
          n_cursors, refused_.load(),
          static_cast<long long>(status("Open_tables")));
  EXPECT_EQ(refused_, 0u);
  EXPECT_GE(status("Open_tables"), n_cursors);
  expect_files_within_the_limit();
  some.clear();
  others.clear();
  sql.exec("SET lock_wait_timeout = 1");
  for (int i = 0; i < n_tables; ++i) {
    const size_t at = static_cast<size_t>(i);
    const std::string name = table_name(i);
    EXPECT_EQ(sql.attempt("ALTER TABLE " + name + " ADD w INT").error, 0u);
    const Scan scan({.table = name.c_str()});
    EXPECT_EQ(collect_ints(scan, 4, 1, Workers::any), expected_[at]) << name;
  }
  EXPECT_LE(status("Open_tables"), sql.number("SELECT @@table_open_cache") + 1);
}

TEST_F(OpenTables, NoFileIsLeft) {
  for (int i = 0; i < n_tables; ++i) make_table(i);
  sql.exec("FLUSH TABLES");
  await_redo_files();
  {
    const All_files taken;
    fprintf(stderr, "figure: %zu files taken\n", taken.count());
    ASSERT_GT(taken.count(), 0u);
    Cursors cursors;
    open_and_read(&cursors, 0);
  }
  fprintf(stderr, "figure: %zu reads refused\n", refused_.load());
  refused_ = 0;
  Cursors cursors;
  open_and_read(&cursors, 0);
  EXPECT_EQ(refused_, 0u);
}

TEST_F(OpenTables, MorePartitionsThanFilesMayBeOpen) {
  sql.exec(
      "CREATE TABLE p (id INT PRIMARY KEY, v INT, KEY by_v (v))"
      " PARTITION BY HASH (id) PARTITIONS " +
      std::to_string(n_partitions));
  fill("p", 10 * n_partitions, "i, i * 7");
  const auto expected = as_ints(sql.query("SELECT v FROM p ORDER BY v"));
  Cursors cursors;
  for (const char *index : {"PRIMARY", "by_v", "PRIMARY", "by_v"}) {
    cursors.push_back(
        std::make_unique<Cursor>(Open{.table = "p", .index = index}));
    ASSERT_TRUE(cursors.back()->is_open()) << cursors.back()->message;
  }
  for (const auto &cursor : cursors) EXPECT_EQ(cursor->ints(1), expected);
  expect_files_within_the_limit();
}

}  // namespace
