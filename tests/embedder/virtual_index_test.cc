// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Ranges of indexes with a virtual column, row by row, while another session
// changes the pages of the index. InnoDB then looks up each entry in the
// clustered index, whose records do not hold the virtual value. The other
// session does not commit, so SQL sees the same rows as the cursor.

#include "cursor_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class ChangingVirtualIndex : public Cursor_test {
 protected:
  ~ChangingVirtualIndex() override { other.exec("ROLLBACK"); }

  void fill(const std::string &columns, const std::string &values) {
    sql.exec("INSERT INTO t (" + columns +
             ") WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL"
             " SELECT i + 1 FROM n WHERE i < 400) SELECT " +
             values + " FROM n");
  }

  void begin_changes(const std::vector<std::string> &statements) {
    other.exec("USE db");
    other.exec("BEGIN");
    for (const std::string &statement : statements) other.exec(statement);
  }

  /** Check ranges of index k, whose first part is the expression, by the ids in
      the first column of t. */
  void expect_same(const std::string &expression,
                   const std::vector<uint32_t> &read_set, bool index_only) {
    SCOPED_TRACE("columns " + std::to_string(read_set.size()) +
                 (index_only ? ", index-only" : ""));
    Cursor cursor({.index = "k", .index_only = index_only});
    ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
    if (!read_set.empty()) cursor.set_columns(read_set);
    for (const std::optional<int> begin :
         {std::optional<int>(), std::optional<int>(20)})
      for (const int end : {50, 500, 10000})
        for (const bool closed : {false, true})
          for (const bool reverse : {false, true})
            expect_same_range(cursor, expression, begin, end, closed, reverse);
  }

  void expect_same_range(Cursor &cursor, const std::string &expression,
                         std::optional<int> begin, int end, bool closed,
                         bool reverse) {
    Range range;
    range.end = Keys().number(end);
    range.closed_begin = range.closed_end = closed;
    range.reverse = reverse;
    std::string where =
        expression + (closed ? " <= " : " < ") + std::to_string(end);
    if (begin) {
      range.begin = Keys().number(*begin);
      // Backward, rows equal to the begin are left out.
      where += " AND " + expression + (closed && !reverse ? " >= " : " > ") +
               std::to_string(*begin);
    }
    const std::string order = reverse ? " DESC" : "";
    EXPECT_EQ(
        cursor.ints(0, range),
        as_ints(sql.query("SELECT uid FROM t WHERE " + where + " ORDER BY " +
                          expression + order + ", uid" + order)))
        << begin.value_or(-1) << ' ' << end << ' ' << closed << reverse;
  }

  Client other;
};

TEST_F(ChangingVirtualIndex, InsertBesideIndexThatHoldsEveryColumn) {
  sql.exec(
      "CREATE TABLE t (uid INT NOT NULL PRIMARY KEY,"
      " g INT AS (uid * 2) VIRTUAL, KEY k (g))");
  fill("uid", "i");
  begin_changes({"INSERT INTO t (uid) VALUES (1000)"});
  for (const bool index_only : {false, true}) {
    expect_same("g", {}, index_only);
    expect_same("g", {0}, index_only);
    expect_same("g", {0, 1}, index_only);
  }
}

TEST_F(ChangingVirtualIndex, ChangedRowsHaveTheValuesOfTheSnapshot) {
  sql.exec(
      "CREATE TABLE t (uid INT NOT NULL PRIMARY KEY, b INT,"
      " g INT AS (b * 2) VIRTUAL, pad VARCHAR(100), KEY k (g, b))");
  fill("uid, b, pad", "i, i, REPEAT('p', 90)");
  begin_changes({"UPDATE t SET b = b + 7 WHERE uid % 3 = 0",
                 "DELETE FROM t WHERE uid % 5 = 0",
                 "INSERT INTO t (uid, b) VALUES (1000, 15), (1001, 900)"});
  for (const bool index_only : {false, true}) {
    expect_same("g", {}, index_only);
    expect_same("g", {0}, index_only);
    expect_same("g", {0, 1, 2}, index_only);
    expect_same("g", {0, 1, 2, 3}, index_only);
  }
}

TEST_F(ChangingVirtualIndex, VirtualColumnAfterAnother) {
  sql.exec(
      "CREATE TABLE t (uid INT NOT NULL PRIMARY KEY, b INT NOT NULL,"
      " g INT AS (uid + 1) VIRTUAL, KEY k (b, g))");
  fill("uid, b", "i, 2 * i");
  begin_changes({"INSERT INTO t (uid, b) VALUES (1000, 15)"});
  for (const bool index_only : {false, true}) {
    expect_same("b", {}, index_only);
    expect_same("b", {0}, index_only);
  }
  Cursor cursor({.index = "k"});
  EXPECT_EQ(cursor.ints(0, {{}, Keys().number(100).number(51)}),
            as_ints(sql.query("SELECT uid FROM t WHERE b < 100 OR (b = 100 AND"
                              " g <= 51) ORDER BY b, g")));
}

TEST_F(ChangingVirtualIndex, FunctionalIndex) {
  sql.exec("CREATE TABLE t (uid INT NOT NULL PRIMARY KEY, KEY k ((uid * 2)))");
  fill("uid", "i");
  begin_changes({"INSERT INTO t (uid) VALUES (1000)"});
  for (const bool index_only : {false, true}) {
    expect_same("uid * 2", {}, index_only);
    expect_same("uid * 2", {0}, index_only);
  }
}

TEST_F(ChangingVirtualIndex, PartitionedTable) {
  sql.exec(
      "CREATE TABLE t (uid INT NOT NULL PRIMARY KEY,"
      " g INT AS (uid * 2) VIRTUAL, KEY k (g)) PARTITION BY HASH (uid)"
      " PARTITIONS 3");
  fill("uid", "i");
  begin_changes({"INSERT INTO t (uid) VALUES (1000), (1001), (1002)"});
  for (const bool index_only : {false, true}) {
    expect_same("g", {}, index_only);
    expect_same("g", {0}, index_only);
  }
}

}  // namespace
