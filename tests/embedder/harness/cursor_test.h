// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_test.h
  The base of most cases: a fresh database, a client, a cursor whose opening may
  fail, every form of bound that cursor.h has, and reads into standard types.
*/

#ifndef MORVENA_SN_TESTS_CURSOR_TEST_H
#define MORVENA_SN_TESTS_CURSOR_TEST_H

#include <sys/time.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "client.h"
#include "cursor.hpp"
#include "gtest/gtest.h"
#include "my_config.h"
#include "mysql_time.h"

namespace harness {

/** The values of a bound, in key-part order. */
class Keys {
 public:
  Keys() = default;
  Keys(const Keys &other) { *this = other; }
  Keys &operator=(const Keys &other);

  Keys &number(int64_t value);
  Keys &real(double value);
  Keys &text(const std::string &value);
  Keys &time(const MYSQL_TIME &value);
  Keys &stamp(int64_t seconds, int64_t microseconds);
  Keys &null();
  /** A value with any type code and any stated length. */
  Keys &raw(char type, int32_t length, const std::string &bytes);

  /** Valid while this object is unchanged. */
  field_arg *arg();

 private:
  void add(char type, int32_t length, const void *bytes, size_t size);

  std::deque<std::vector<char>> storage_;
  std::vector<int32_t> lengths_;
  std::vector<void *> values_;
  std::string types_;
  field_arg arg_ = {};
};

struct Range {
  std::optional<Keys> begin = {};
  std::optional<Keys> end = {};
  bool closed_begin = true;
  bool closed_end = true;
  bool reverse = false;
};

struct Open {
  const char *db = "db";
  const char *table = "t";
  const char *index = "PRIMARY";
  bool index_only = false;
  uint32_t donor = 0;
  int timeout = 10;
};

using morvena_sn::Decimal;

/** Read a value by the integer form of the C function. NULL gives no value.
    @param row  a row of a cursor or of a batch */
template <class Row>
std::optional<int32_t> days_of(const Row &row, unsigned int column) {
  const auto date = row.template get<morvena_sn::Date>(column);
  if (!date) return {};
  return static_cast<int32_t>((*date - morvena_sn::epoch).count());
}
template <class Row>
std::optional<int64_t> usecs_of_time(const Row &row, unsigned int column) {
  const auto time = row.template get<morvena_sn::Duration>(column);
  if (!time) return {};
  return time->count();
}
template <class Row>
std::optional<int64_t> usecs_of_datetime(const Row &row, unsigned int column) {
  const auto time = row.template get<morvena_sn::Datetime>(column);
  if (!time) return {};
  return (*time - morvena_sn::epoch).count();
}

/** The same options in the type of cursor.hpp. */
morvena_sn::Options options_of(const Open &open);

/** An index cursor; its opening may fail. It takes ranges as cursor.h does,
    with every form of bound. Reads of NULL give no value. */
class Cursor {
 public:
  explicit Cursor(const Open &open = {});

  bool is_open() const { return handle != 0; }
  void close();

  /** @return whether a row is current */
  bool set_range(Range range = {});
  bool next() { return !cursor_advance(handle); }
  void set_columns(const std::vector<uint32_t> &positions);

  std::optional<long long> read_int(unsigned int column) const {
    return row().get<long long>(column);
  }
  std::optional<double> read_real(unsigned int column) const {
    return row().get<double>(column);
  }
  std::optional<std::string> read_text(unsigned int column) const {
    return row().get<std::string>(column);
  }
  std::optional<Decimal> read_decimal(unsigned int column) const {
    return row().get<Decimal>(column);
  }
  std::optional<int32_t> read_date(unsigned int column) const {
    return days_of(row(), column);
  }
  std::optional<int64_t> read_time(unsigned int column) const {
    return usecs_of_time(row(), column);
  }
  std::optional<int64_t> read_datetime(unsigned int column) const {
    return usecs_of_datetime(row(), column);
  }

  /** One column of every row of a range. */
  std::vector<long long> ints(unsigned int column, const Range &range = {});
  /** Some columns, as text, of every row of a range. */
  Rows texts(const std::vector<unsigned int> &columns, const Range &range = {});

  std::vector<std::string> output_columns() const;
  std::vector<std::string> index_columns() const;

 private:
  morvena_sn::Row row() const { return morvena_sn::Row(handle); }

  morvena_sn::Result<morvena_sn::Cursor> cursor_;

 public:
  const Open opened;  // what the cursor was opened on
  uintptr_t handle = 0;
  unsigned int error = 0;
  std::string message;
};

/** Poll until reached() is true. Returns false after half a minute. */
bool wait_until(const std::function<bool()> &reached);

/** Run f on a new thread that is registered with the server. */
std::future<void> on_own_thread(std::function<void()> f);

/** Read the first column of a result of SQL as integers. */
std::vector<long long> as_ints(const Rows &rows);

/** Creates a fresh database db for each case. sql is a client whose current
    database it is. */
class Cursor_test : public testing::Test {
 protected:
  Cursor_test();
  ~Cursor_test() override;

  /** Wait until some statement is in the state of that name in the server's
      process list. */
  bool wait_for_state(const std::string &state);

  /** An aggregate over the InnoDB transactions that meet a condition at this
      moment. Takes 0.2 s. */
  std::string of_transactions(const std::string &aggregate,
                              const std::string &condition);

  /** The number of metadata locks on tables of db. Locks of purge and of the
      statistics thread are left out: they come and go on their own. */
  int64_t metadata_locks();

  Client sql;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_CURSOR_TEST_H
