/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

#include "parallel_test.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>

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

std::optional<long long> Batch::read_int(unsigned int column,
                                         unsigned int nr) const {
  long long value;
  if (pread_field_int(handle, column, nr, &value)) return {};
  return value;
}

std::optional<double> Batch::read_real(unsigned int column,
                                       unsigned int nr) const {
  double value;
  if (pread_field_real(handle, column, nr, &value)) return {};
  return value;
}

std::optional<std::string> Batch::read_text(unsigned int column,
                                            unsigned int nr) const {
  char *text;
  size_t size;
  if (pread_field_str(handle, column, nr, &text, &size)) return {};
  return std::string(text, size);
}

std::optional<Decimal> Batch::read_decimal(unsigned int column,
                                           unsigned int nr) const {
  Decimal value;
  int32_t integer, fraction;
  int32_t *words;
  if (pread_field_decimal(handle, column, nr, &value.negative, &integer,
                          &fraction, &words))
    return {};
  value.integer_words.assign(words, words + integer);
  value.fraction_words.assign(words + integer, words + integer + fraction);
  return value;
}

std::optional<int32_t> Batch::read_date(unsigned int column,
                                        unsigned int nr) const {
  int32_t value;
  if (pread_field_date(handle, column, nr, &value)) return {};
  return value;
}

std::optional<int64_t> Batch::read_time(unsigned int column,
                                        unsigned int nr) const {
  int64_t value;
  if (pread_field_time(handle, column, nr, &value)) return {};
  return value;
}

std::optional<int64_t> Batch::read_datetime(unsigned int column,
                                            unsigned int nr) const {
  int64_t value;
  if (pread_field_datetime(handle, column, nr, &value)) return {};
  return value;
}

Row Batch::row(const Columns &columns, unsigned int nr) const {
  Row row;
  for (const unsigned int column : columns)
    row.push_back(read_text(column, nr));
  return row;
}

Scan::Scan(const Open &open) {
  char text[512];
  memset(text, '?', sizeof text);
  handle = open_seqscan_cursor(open.db, open.table, open.donor, open.timeout,
                               &error, text);
  if (!is_open()) message.assign(text, strnlen(text, sizeof text));
}

void Scan::close() {
  close_seqscan_cursor(handle);
  handle = 0;
}

void Scan::set_columns(std::vector<uint32_t> positions) {
  seqscan_cursor_set_readset(handle, positions.size(), positions.data());
}

std::vector<std::string> Scan::output_columns() const {
  std::vector<const char *> names(seqscan_cursor_output_col_num(handle));
  seqscan_cursor_output_col_names(handle, names.data());
  return {names.begin(), names.end()};
}

namespace {

bool hand_over(uint64_t handle, uint64_t thread, void *argument) {
  return (*static_cast<const On_batch *>(argument))(Batch(handle, thread));
}

}  // namespace

bool read_parallel(const Cursor &cursor, size_t threads, const On_batch &take) {
  return cursor_advance_parallel(cursor.handle, threads, hand_over,
                                 const_cast<On_batch *>(&take));
}

bool read_parallel(const Scan &scan, size_t threads, const On_batch &take) {
  return seqscan_cursor_advance_parallel(scan.handle, threads, hand_over,
                                         const_cast<On_batch *>(&take));
}

template <class Reader>
Delivered collect(const Reader &reader, size_t threads,
                  const Columns &columns) {
  Delivered result;
  std::mutex mu;
  result.complete = read_parallel(reader, threads, [&](const Batch &batch) {
    Rows rows;
    const size_t size = batch.size();
    for (unsigned int nr = 0; nr < size; ++nr)
      rows.push_back(batch.row(columns, nr));
    const std::lock_guard<std::mutex> lock(mu);
    result.batches[batch.thread].push_back(size);
    std::move(rows.begin(), rows.end(), std::back_inserter(result.rows));
    return false;
  });
  std::sort(result.rows.begin(), result.rows.end());
  return result;
}

template Delivered collect(const Cursor &, size_t, const Columns &);
template Delivered collect(const Scan &, size_t, const Columns &);

template <class Reader>
std::vector<long long> collect_ints(const Reader &reader, size_t threads,
                                    unsigned int column) {
  std::vector<long long> values;
  std::mutex mu;
  const bool complete = read_parallel(reader, threads, [&](const Batch &batch) {
    std::vector<long long> own;
    const size_t size = batch.size();
    for (unsigned int nr = 0; nr < size; ++nr)
      own.push_back(batch.read_int(column, nr).value());
    const std::lock_guard<std::mutex> lock(mu);
    values.insert(values.end(), own.begin(), own.end());
    return false;
  });
  EXPECT_TRUE(complete);
  std::sort(values.begin(), values.end());
  return values;
}

template std::vector<long long> collect_ints(const Cursor &, size_t,
                                             unsigned int);
template std::vector<long long> collect_ints(const Scan &, size_t,
                                             unsigned int);

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
  // Text in the column's own character set, which the reads give.
  donor.exec("SET character_set_results = NULL");
  sql.exec("SET cte_max_recursion_depth = 10000000");
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

void Parallel_test::expect_whole_table(const std::string &select) {
  const Rows expected = donor_rows(select);
  const auto compare = [&](const auto &reader, const Columns &columns) {
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      const Delivered delivered = collect(reader, threads, columns);
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
                                 const std::string &select) {
  const Rows expected = donor_rows(select);
  Open with_donor = open;
  with_donor.donor = donor.id();
  Cursor cursor(with_donor);
  ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
  cursor.set_range(range);
  for (const size_t threads : thread_counts) {
    SCOPED_TRACE(std::to_string(threads) + " threads: " + select);
    const Delivered delivered = collect(cursor, threads, columns);
    EXPECT_TRUE(delivered.complete);
    expect_rows(delivered.rows, expected);
  }
}

void Parallel_test::wait_for_purge() {
  // Else what has been purged stays in the history for a while.
  sql.exec("SET GLOBAL innodb_purge_rseg_truncate_frequency = 1");
  EXPECT_TRUE(wait_until([this] {
    return sql.number(
               "SELECT count FROM information_schema.innodb_metrics"
               " WHERE name = 'trx_rseg_history_len'") == 0;
  }));
}

}  // namespace harness
