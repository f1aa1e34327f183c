// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file value_test.h
  Reads of a column by all seven functions, compared with what SQL makes of the
  same values.
*/

#ifndef MORVENA_SN_TESTS_VALUE_TEST_H
#define MORVENA_SN_TESTS_VALUE_TEST_H

#include <string>
#include <vector>

#include "cursor_test.h"

namespace harness {

/** Days of the date that a column without one reads as. */
constexpr int32_t no_date = -730517;
constexpr int64_t usecs_per_day = 86400000000;

/** SQL expressions over column c for the value of each read. */
struct Expected {
  std::string integer = "CAST(c AS SIGNED)";
  // Times one: minus zero keeps its sign.
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
/** For durations; their date is the current one. */
Expected times();

class Value_test : public Cursor_test {
 protected:
  /** Make t (id INT PRIMARY KEY, c <type>) with the values, SQL literals, and
      a row of NULL. */
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
