// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file value_test.h
  Reads a column by all seven functions and compares the values with SQL.
*/

#ifndef MORVENA_SN_TESTS_VALUE_TEST_H
#define MORVENA_SN_TESTS_VALUE_TEST_H

#include <string>
#include <vector>

#include "cursor_test.h"

namespace harness {

/** What a date read of a column without a date gives, in days since
    2000-01-01. */
constexpr int32_t no_date = -730517;
constexpr int64_t usecs_per_day = 86400000000;

/** For each kind of read, the SQL expression over column c that gives the
    expected value. */
struct Expected {
  std::string integer = "CAST(c AS SIGNED)";
  // A product with 1 keeps the sign of minus zero.
  std::string real = "c * 1e0";
  std::string text = "c";
  std::string decimal = "CAST(c AS DECIMAL(65,30))";
  std::string date = "-730517";
  std::string time = "0";
  std::string datetime = "-730517 * 86400000000";
};

/** For columns with a date and a time of day. */
Expected datetimes();
/** For columns with a date alone. */
Expected dates();
/** For durations. Their date is the current date. */
Expected times();

class Value_test : public Cursor_test {
 protected:
  /** Make t (id INT PRIMARY KEY, c <type>) with one row for each value, given
      as SQL literals, and one row for NULL. */
  void store(const std::string &type, const std::vector<std::string> &values);
  /** Compare all reads of t.c with SQL. */
  void compare(const Expected &expected = {});
  void check(const std::string &type, const std::vector<std::string> &values,
             const Expected &expected = {}) {
    store(type, values);
    compare(expected);
  }
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_VALUE_TEST_H
