// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "cursor_test.h"

#include <chrono>
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

morvena_sn::Options options_of(const Open &open) {
  return {open.donor, open.index_only, std::chrono::seconds(open.timeout)};
}

Cursor::Cursor(const Open &open)
    : cursor_(morvena_sn::Cursor::open(open.db, open.table, open.index,
                                       options_of(open))),
      opened(open) {
  if (cursor_.has_value()) {
    handle = cursor_.value().handle();
  } else {
    error = cursor_.error().code();
    message = cursor_.error().what();
  }
}

void Cursor::close() {
  if (is_open()) cursor_.value().close();
  handle = 0;
}

bool Cursor::set_range(Range range) {
  return cursor_set_read_range(
      handle, range.begin ? range.begin->arg() : nullptr,
      range.end ? range.end->arg() : nullptr, range.closed_begin,
      range.closed_end, range.reverse);
}

void Cursor::set_columns(const std::vector<uint32_t> &positions) {
  if (is_open()) cursor_.value().set_columns(positions);
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

std::vector<std::string> Cursor::output_columns() const {
  return cursor_.value().column_names();
}

std::vector<std::string> Cursor::index_columns() const {
  return cursor_.value().index_column_names();
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
  // InnoDB refreshes this table only when nobody has read it for 0.1 s.
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
