// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "parallel_test.h"

#include <sched.h>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "innodb_api/leaves.h"

namespace harness {

const std::vector<size_t> thread_counts{0, 1, 2, 3, 4, 8, 300};

size_t setting(const char *name, size_t otherwise) {
  const char *value = getenv(name);
  return value != nullptr ? strtoul(value, nullptr, 10) : otherwise;
}

Columns first_columns(size_t n) {
  Columns columns;
  while (columns.size() < n)
    columns.push_back(static_cast<unsigned int>(columns.size()));
  return columns;
}

Row Batch::row(const Columns &columns, unsigned int nr) const {
  Row row;
  for (const unsigned int column : columns)
    row.push_back(read_text(column, nr));
  return row;
}

Scan::Scan(const Open &open)
    : scan_(morvena_sn::Sequential_scan::open(open.db, open.table,
                                              options_of(open))),
      opened(open) {
  if (scan_.has_value()) {
    handle = scan_.value().handle();
  } else {
    error = scan_.error().code();
    message = scan_.error().what();
  }
}

void Scan::close() {
  if (is_open()) scan_.value().close();
  handle = 0;
}

void Scan::set_columns(const std::vector<uint32_t> &positions) {
  if (is_open()) scan_.value().set_columns(positions);
}

std::vector<std::string> Scan::output_columns() const {
  return scan_.value().column_names();
}

namespace {

/**
  The first two workers of a read meet here, at the end of a page, so that both
  of them deliver rows. Neither holds a page at that point.
  A worker yields at the end of a page while the index's latch has a mark that a
  thread waits for it. The constructor sets that mark. The meeting ends when a
  second worker arrives or when the first has waited for ten seconds. The mark
  is then removed, and the read continues like any other.
*/
class Meeting {
 public:
  Meeting(const Open &open, bool is_scan) : hold_(only_one_, std::try_to_lock) {
    if (!hold_.owns_lock()) {
      ADD_FAILURE() << "reads at the same time: say Workers::any";
      return;
    }
    const std::string name = std::string(open.db) + "/" + open.table;
    table_ = dd_table_open_on_name_in_mem(name.c_str(), false);
    if (table_ == nullptr) return;
    index_ = table_->first_index();
    while (!is_scan && index_ != nullptr &&
           strcasecmp(index_->name(), open.index) != 0)
      index_ = index_->next();
    if (index_ == nullptr) return;
    current_ = this;
    index_->lock.waiters = true;
    Leaf_walk::s_yield = [] { current_->come(); };
  }
  ~Meeting() {
    if (index_ != nullptr) {
      Leaf_walk::s_yield = [] { sched_yield(); };
      end();
    }
    if (table_ != nullptr) dd_table_close(table_, nullptr, nullptr, false);
  }
  Meeting(const Meeting &) = delete;
  Meeting &operator=(const Meeting &) = delete;

 private:
  void come() {
    std::unique_lock<std::mutex> lock(mu_);
    if (is_over_ || std::this_thread::get_id() == caller_) return;
    present_.insert(std::this_thread::get_id());
    if (present_.size() < 2)
      met_.wait_for(lock, std::chrono::seconds(10),
                    [this] { return is_over_; });
    if (!is_over_) end();
  }

  // A thread may really be waiting for the latch. It relies on the mark that is
  // removed here, so signal the latch's event: it then checks the latch again.
  void end() {
    is_over_ = true;
    index_->lock.waiters = false;
    os_event_set(index_->lock.event);
    met_.notify_all();
  }

  static std::mutex only_one_;
  static Meeting *current_;  // used while s_yield calls it

  const std::unique_lock<std::mutex> hold_;
  const std::thread::id caller_ = std::this_thread::get_id();
  dict_table_t *table_ = nullptr;
  dict_index_t *index_ = nullptr;
  std::mutex mu_;
  std::condition_variable met_;        // used with mu_
  std::set<std::thread::id> present_;  // under mu_
  bool is_over_ = false;               // under mu_
};

std::mutex Meeting::only_one_;
Meeting *Meeting::current_ = nullptr;

std::atomic<size_t> n_by_several{0};

bool hand_over(uint64_t handle, uint64_t thread, void *argument) {
  return (*static_cast<const On_batch *>(argument))(Batch(handle, thread));
}

bool advance(const Cursor &cursor, size_t threads, On_batch *take) {
  return cursor_advance_parallel(cursor.handle, threads, hand_over, take);
}

bool advance(const Scan &scan, size_t threads, On_batch *take) {
  return seqscan_cursor_advance_parallel(scan.handle, threads, hand_over, take);
}

struct Read {
  bool complete;
  size_t n_workers;  // that delivered rows
};

template <class Reader>
Read read_counting(const Reader &reader, size_t threads, const On_batch &take,
                   Workers workers) {
  std::optional<Meeting> meeting;
  if (workers == Workers::several && threads > 1 && reader.is_open())
    meeting.emplace(reader.opened, std::is_same_v<Reader, Scan>);
  std::set<uint64_t> delivering;
  std::mutex mu;
  On_batch count = [&](const Batch &batch) {
    {
      const std::lock_guard<std::mutex> lock(mu);
      delivering.insert(batch.thread);
    }
    return take(batch);
  };
  const bool complete = advance(reader, threads, &count);
  if (complete && delivering.size() > 1) ++n_by_several;
  return {complete, delivering.size()};
}

bool is_short_of_workers(const Read &read, size_t threads, Workers workers) {
  return workers == Workers::several && threads > 1 && read.complete &&
         read.n_workers == 1;
}

void expect_workers(const Read &read, size_t threads, Workers workers) {
  EXPECT_FALSE(is_short_of_workers(read, threads, workers))
      << "one worker of " << threads << " delivered everything";
}

template <class Reader>
bool read_by_workers(const Reader &reader, size_t threads, const On_batch &take,
                     Workers workers) {
  const Read read = read_counting(reader, threads, take, workers);
  expect_workers(read, threads, workers);
  return read.complete;
}

/** Repeat a read until more than one worker has delivered rows. InnoDB may
    remove the mark by which the workers meet, or the second worker may find no
    visible row in what it reads. */
template <class Reader, class Result>
Result read_until_shared(
    const Reader &reader, size_t threads, Workers workers,
    const std::function<void(const Batch &, Result *)> &take) {
  const auto give_up =
      std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (int left = 50;; --left) {
    Result result;
    const Read read = read_counting(
        reader, threads,
        [&](const Batch &batch) {
          take(batch, &result);
          return false;
        },
        workers);
    result.complete = read.complete;
    if (is_short_of_workers(read, threads, workers) && left > 1 &&
        std::chrono::steady_clock::now() < give_up) {
      continue;
    }
    expect_workers(read, threads, workers);
    std::sort(result.rows.begin(), result.rows.end());
    return result;
  }
}

struct Delivered_ints {
  bool complete = false;
  std::vector<long long> rows;
};

}  // namespace

size_t reads_by_several() { return n_by_several; }

bool read_parallel(const Cursor &cursor, size_t threads, const On_batch &take,
                   Workers workers) {
  return read_by_workers(cursor, threads, take, workers);
}

bool read_parallel(const Scan &scan, size_t threads, const On_batch &take,
                   Workers workers) {
  return read_by_workers(scan, threads, take, workers);
}

template <class Reader>
Delivered collect(const Reader &reader, size_t threads, const Columns &columns,
                  Workers workers) {
  std::mutex mu;
  return read_until_shared<Reader, Delivered>(
      reader, threads, workers, [&](const Batch &batch, Delivered *result) {
        Rows rows;
        const size_t size = batch.size();
        for (unsigned int nr = 0; nr < size; ++nr)
          rows.push_back(batch.row(columns, nr));
        const std::lock_guard<std::mutex> lock(mu);
        result->batches[batch.thread].push_back(size);
        std::move(rows.begin(), rows.end(), std::back_inserter(result->rows));
      });
}

template Delivered collect(const Cursor &, size_t, const Columns &, Workers);
template Delivered collect(const Scan &, size_t, const Columns &, Workers);

template <class Reader>
std::vector<long long> collect_ints(const Reader &reader, size_t threads,
                                    unsigned int column, Workers workers) {
  std::mutex mu;
  Delivered_ints result = read_until_shared<Reader, Delivered_ints>(
      reader, threads, workers,
      [&](const Batch &batch, Delivered_ints *delivered) {
        std::vector<long long> own;
        const size_t size = batch.size();
        for (unsigned int nr = 0; nr < size; ++nr)
          own.push_back(batch.read_int(column, nr).value());
        const std::lock_guard<std::mutex> lock(mu);
        delivered->rows.insert(delivered->rows.end(), own.begin(), own.end());
      });
  EXPECT_TRUE(result.complete);
  return std::move(result.rows);
}

template std::vector<long long> collect_ints(const Cursor &, size_t,
                                             unsigned int, Workers);
template std::vector<long long> collect_ints(const Scan &, size_t, unsigned int,
                                             Workers);

std::string filler(size_t bytes) {
  const std::string n = std::to_string(bytes);
  return "pad VARCHAR(" + n +
         ") CHARACTER SET latin1 NOT NULL DEFAULT (REPEAT('p', " + n +
         ")) INVISIBLE";
}

Server_log::Server_log(Client &sql)
    : path_(sql.text("SELECT @@log_error")),
      from_(std::ifstream(path_, std::ios::ate).tellg()) {}

std::string Server_log::text() const {
  std::ifstream log(path_);
  log.seekg(from_);
  std::ostringstream text;
  text << log.rdbuf();
  return text.str();
}

size_t Server_log::count(const std::string &word) const {
  const std::string all = text();
  size_t n = 0;
  for (size_t at = all.find(word); at != std::string::npos;
       at = all.find(word, at + 1))
    ++n;
  return n;
}

namespace {

std::string shorten(const Row &row) {
  std::ostringstream text;
  for (const Value &value : row)
    text << (value ? value->substr(0, 60) : "NULL") << " | ";
  return text.str();
}

}  // namespace

void expect_rows(const Rows &delivered, const Rows &expected) {
  if (delivered == expected) return;
  size_t i = 0;
  while (i < delivered.size() && i < expected.size() &&
         delivered[i] == expected[i])
    ++i;
  ADD_FAILURE() << delivered.size() << " rows delivered, " << expected.size()
                << " expected; in sorted order they differ at " << i
                << ": delivered "
                << (i < delivered.size() ? shorten(delivered[i]) : "nothing")
                << ", expected "
                << (i < expected.size() ? shorten(expected[i]) : "nothing");
}

Parallel_test::Parallel_test() {
  donor.exec("USE db");
  // The server returns text in the column's own character set, as the reads do.
  donor.exec("SET character_set_results = NULL");
  sql.exec(
      "SET cte_max_recursion_depth = 10000000,"
      " group_concat_max_len = 1000000");
}

void Parallel_test::take_snapshot() {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
}

void Parallel_test::fill(const std::string &table, size_t n_rows,
                         const std::string &columns_of_i) {
  sql.exec("INSERT INTO " + table +
           " WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n"
           " WHERE i < " +
           std::to_string(n_rows) + ") SELECT " + columns_of_i + " FROM n");
}

Rows Parallel_test::donor_rows(const std::string &select) {
  Rows rows = donor.query(select);
  std::sort(rows.begin(), rows.end());
  return rows;
}

void Parallel_test::expect_whole_table(const std::string &select,
                                       Workers workers) {
  const Rows expected = donor_rows(
      !select.empty()
          ? select
          : sql.text("SELECT CONCAT('SELECT ', GROUP_CONCAT('`', column_name,"
                     " '`' ORDER BY ordinal_position), ' FROM t')"
                     " FROM information_schema.columns"
                     " WHERE table_schema = 'db' AND table_name = 't'"));
  const auto compare = [&](const auto &reader, const Columns &columns) {
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      const Delivered delivered = collect(reader, threads, columns, workers);
      EXPECT_TRUE(delivered.complete);
      expect_rows(delivered.rows, expected);
    }
  };
  const Scan scan({.donor = donor.id()});
  ASSERT_TRUE(scan.is_open()) << scan.error << scan.message;
  const Columns columns =
      first_columns(seqscan_cursor_output_col_num(scan.handle));
  {
    SCOPED_TRACE("sequential scan");
    compare(scan, columns);
  }
  if (sql.number("SELECT COUNT(*) FROM information_schema.statistics"
                 " WHERE table_schema = 'db' AND table_name = 't'"
                 " AND index_name = 'PRIMARY'") == 0)
    return;
  const Cursor cursor({.donor = donor.id()});
  ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
  SCOPED_TRACE("primary key");
  compare(cursor, columns);
}

void Parallel_test::expect_range(const Open &open, const Range &range,
                                 const Columns &columns,
                                 const std::string &select, Workers workers) {
  const Rows expected = donor_rows(select);
  Open with_donor = open;
  with_donor.donor = donor.id();
  Cursor cursor(with_donor);
  ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
  cursor.set_range(range);
  for (const size_t threads : thread_counts) {
    SCOPED_TRACE(std::to_string(threads) + " threads: " + select);
    const Delivered delivered = collect(cursor, threads, columns, workers);
    EXPECT_TRUE(delivered.complete);
    expect_rows(delivered.rows, expected);
  }
}

void Parallel_test::wait_for_purge() {
  // By default, purged history stays in the history list for many rounds.
  sql.exec("SET GLOBAL innodb_purge_rseg_truncate_frequency = 1");
  EXPECT_TRUE(wait_until([this] {
    return sql.number(
               "SELECT count FROM information_schema.innodb_metrics"
               " WHERE name = 'trx_rseg_history_len'") == 0;
  }));
}

}  // namespace harness
