// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "cursor_test.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "known_thread.h"

namespace harness {

Keys &Keys::operator=(const Keys &other) {
  storage_ = other.storage_;
  lengths_ = other.lengths_;
  types_ = other.types_;
  values_.clear();
  for (auto &bytes : storage_) values_.push_back(bytes.data());
  return *this;
}

void Keys::add(char type, int32_t length, const void *bytes, size_t size) {
  const char *first = static_cast<const char *>(bytes);
  storage_.emplace_back(first, first + size);
  values_.push_back(storage_.back().data());
  lengths_.push_back(length);
  types_.push_back(type);
}

Keys &Keys::number(int64_t value) {
  add(1, sizeof value, &value, sizeof value);
  return *this;
}

Keys &Keys::real(double value) {
  add(2, sizeof value, &value, sizeof value);
  return *this;
}

Keys &Keys::text(const std::string &value) {
  add(3, static_cast<int32_t>(value.size()), value.data(), value.size());
  return *this;
}

Keys &Keys::time(const MYSQL_TIME &value) {
  add(4, sizeof value, &value, sizeof value);
  return *this;
}

Keys &Keys::stamp(int64_t seconds, int64_t microseconds) {
  timeval value;
  value.tv_sec = seconds;
  value.tv_usec = microseconds;
  add(5, sizeof value, &value, sizeof value);
  return *this;
}

Keys &Keys::null() {
  add(1, -1, "", 0);
  return *this;
}

Keys &Keys::raw(char type, int32_t length, const std::string &bytes) {
  add(type, length, bytes.data(), bytes.size());
  return *this;
}

field_arg *Keys::arg() {
  arg_ = {static_cast<uint32_t>(types_.size()), lengths_.data(), values_.data(),
          types_.data()};
  return &arg_;
}

std::string to_text(const Decimal &value) {
  std::string text = value.negative ? "-" : "";
  char word[16];
  bool leading = true;
  for (const int32_t digits : value.integer_words) {
    snprintf(word, sizeof word, leading ? "%d" : "%09d", digits);
    text += word;
    leading = false;
  }
  if (leading) text += '0';
  if (!value.fraction_words.empty()) text += '.';
  for (const int32_t digits : value.fraction_words) {
    snprintf(word, sizeof word, "%09d", digits);
    text += word;
  }
  return text;
}

Cursor::Cursor(const Open &open) : opened(open) {
  char text[512];
  memset(text, '?', sizeof text);
  handle = open_index_cursor(open.db, open.table, open.index, open.index_only,
                             open.donor, open.timeout, &error, text);
  if (!is_open()) message.assign(text, strnlen(text, sizeof text));
}

void Cursor::close() {
  close_index_cursor(handle);
  handle = 0;
}

bool Cursor::set_range(Range range) {
  return cursor_set_read_range(
      handle, range.begin ? range.begin->arg() : nullptr,
      range.end ? range.end->arg() : nullptr, range.closed_begin,
      range.closed_end, range.reverse);
}

void Cursor::set_columns(std::vector<uint32_t> positions) {
  cursor_set_readset(handle, positions.size(), positions.data());
}

std::optional<long long> Cursor::read_int(unsigned int column) const {
  long long value;
  if (cursor_read_field_int(handle, column, &value)) return {};
  return value;
}

std::optional<double> Cursor::read_real(unsigned int column) const {
  double value;
  if (cursor_read_field_real(handle, column, &value)) return {};
  return value;
}

std::optional<std::string> Cursor::read_text(unsigned int column) const {
  char *text;
  size_t size;
  if (cursor_read_field_str(handle, column, &text, &size)) return {};
  return std::string(text, size);
}

std::optional<Decimal> Cursor::read_decimal(unsigned int column) const {
  Decimal value;
  int32_t integer, fraction;
  int32_t *words;
  if (cursor_read_field_decimal(handle, column, &value.negative, &integer,
                                &fraction, &words))
    return {};
  value.integer_words.assign(words, words + integer);
  value.fraction_words.assign(words + integer, words + integer + fraction);
  return value;
}

std::optional<int32_t> Cursor::read_date(unsigned int column) const {
  int32_t value;
  if (cursor_read_field_date(handle, column, &value)) return {};
  return value;
}

std::optional<int64_t> Cursor::read_time(unsigned int column) const {
  int64_t value;
  if (cursor_read_field_time(handle, column, &value)) return {};
  return value;
}

std::optional<int64_t> Cursor::read_datetime(unsigned int column) const {
  int64_t value;
  if (cursor_read_field_datetime(handle, column, &value)) return {};
  return value;
}

std::vector<long long> Cursor::ints(unsigned int column, const Range &range) {
  std::vector<long long> values;
  if (!set_range(range)) return values;
  while (next()) values.push_back(read_int(column).value());
  return values;
}

Rows Cursor::texts(const std::vector<unsigned int> &columns,
                   const Range &range) {
  Rows rows;
  if (!set_range(range)) return rows;
  while (next()) {
    Row row;
    for (const unsigned int column : columns) row.push_back(read_text(column));
    rows.push_back(std::move(row));
  }
  return rows;
}

namespace {
std::vector<std::string> strings(const std::vector<const char *> &names) {
  return {names.begin(), names.end()};
}
}  // namespace

std::vector<std::string> Cursor::output_columns() const {
  std::vector<const char *> names(cursor_output_col_num(handle));
  cursor_output_col_names(handle, names.data());
  return strings(names);
}

std::vector<std::string> Cursor::index_columns() const {
  std::vector<const char *> names(cursor_idx_col_num(handle));
  cursor_idx_col_names(handle, names.data());
  return strings(names);
}

bool wait_until(const std::function<bool()> &reached) {
  using std::chrono::steady_clock;
  const auto give_up = steady_clock::now() + std::chrono::seconds(30);
  while (!reached()) {
    if (steady_clock::now() > give_up) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::future<void> on_own_thread(std::function<void()> f) {
  return std::async(std::launch::async, [f] {
    const Known_thread known;
    f();
  });
}

std::vector<long long> as_ints(const Rows &rows) {
  std::vector<long long> values;
  for (const Row &row : rows) values.push_back(std::stoll(row.at(0).value()));
  return values;
}

Cursor_test::Cursor_test() {
  sql.exec("DROP DATABASE IF EXISTS db");
  sql.exec("CREATE DATABASE db");
  sql.exec("USE db");
}

Cursor_test::~Cursor_test() { sql.attempt("DROP DATABASE db"); }

std::string Cursor_test::of_transactions(const std::string &aggregate,
                                         const std::string &condition) {
  // The table is filled anew only when nobody has read it for 0.1 s.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  return sql
      .value("SELECT " + aggregate +
             " FROM information_schema.innodb_trx WHERE " + condition)
      .value();
}

int64_t Cursor_test::metadata_locks() {
  return sql.number(
      "SELECT COUNT(*) FROM performance_schema.metadata_locks l"
      " LEFT JOIN performance_schema.threads t"
      " ON t.thread_id = l.owner_thread_id"
      " WHERE l.object_schema = 'db' AND COALESCE(t.name, '') NOT IN"
      " ('thread/innodb/srv_purge_thread', 'thread/innodb/srv_worker_thread',"
      " 'thread/innodb/dict_stats_thread')");
}

bool Cursor_test::wait_for_state(const std::string &state) {
  return wait_until([&] {
    return sql.number(
               "SELECT COUNT(*) FROM performance_schema.processlist "
               "WHERE state = '" +
               state + "'") > 0;
  });
}

}  // namespace harness
