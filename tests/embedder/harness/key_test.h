// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file key_test.h
  A table with one key, and bounds on it compared with SQL.
*/

#ifndef MORVENA_SN_TESTS_KEY_TEST_H
#define MORVENA_SN_TESTS_KEY_TEST_H

#include <algorithm>
#include <string>
#include <vector>

#include "cursor_test.h"

namespace harness {

using Ints = std::vector<long long>;

class Key_of : public Cursor_test {
 protected:
  // SQL gives the expected order, so it must sort by whole values.
  Key_of() { sql.exec("SET max_sort_length = 8388608"); }

  /** Make t (id, c <type>, KEY k) with one row for each value, given as SQL
      literals, and one row for NULL. */
  void store(const std::string &type, const std::vector<std::string> &values,
             const std::string &part = "c") {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, c " + type +
             ", KEY k (" + part + "))");
    for (const std::string &value : values)
      sql.exec("INSERT INTO t (c) VALUES (" + value + ")");
    sql.exec("INSERT INTO t (c) VALUES (NULL)");
  }

  Ints select(const std::string &condition) {
    return as_ints(
        sql.query("SELECT id FROM t WHERE " + condition + " ORDER BY c, id"));
  }

  /** Check that a bound selects the same rows as the SQL literal, as the begin
      and as the end of a range. */
  void expect_same(const Keys &key, const std::string &literal) {
    SCOPED_TRACE(literal);
    Cursor cursor({.index = "k"});
    const Ints equal = select("c = " + literal);
    EXPECT_EQ(cursor.ints(0, {key, key}), equal);
    EXPECT_EQ(cursor.ints(0, {key, {}}), select("c >= " + literal));
    EXPECT_EQ(cursor.ints(0, {key, {}, false}), select("c > " + literal));
    EXPECT_EQ(cursor.ints(0, {{}, key}),
              select("c IS NULL OR c <= " + literal));
    EXPECT_EQ(cursor.ints(0, {{}, key, true, false}),
              select("c IS NULL OR c < " + literal));
    Ints below = select("c IS NULL OR c <= " + literal);
    std::reverse(below.begin(), below.end());
    EXPECT_EQ(cursor.ints(0, {{}, key, true, true, true}), below);
  }
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_KEY_TEST_H
