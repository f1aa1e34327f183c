// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Ranges of partitioned tables, row by row. If an index holds a prefix of so
// many characters, the server merges the partitions by so many bytes as these
// characters may need. For a short text, that covers more characters than the
// index holds, and the merged rows are not in the order of the index.

#include <algorithm>

#include "cursor_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

Ints sorted(Ints rows) {
  std::sort(rows.begin(), rows.end());
  return rows;
}

class RangeOfPrefixesInPartitions : public Cursor_test {
 protected:
  void make_few(const std::string &column, const std::string &part) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, s " + column +
             " NOT NULL, v INT NOT NULL, KEY k (" + part +
             ", v)) CHARSET utf8mb4 PARTITION BY HASH (id) PARTITIONS 2");
    sql.exec(
        "INSERT INTO t VALUES (1, 'abczz', 1), (2, 'abcaa', 2),"
        " (3, 'abcmm', 3), (4, 'abcbb', 4)");
  }

  void make_many(const std::string &partitions) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, s VARCHAR(20) NOT NULL,"
        " v INT NOT NULL, KEY k (s(3), v)) CHARSET utf8mb4 " +
        partitions);
    sql.exec(
        "INSERT INTO t WITH RECURSIVE n (i) AS"
        " (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 600)"
        " SELECT i, CONCAT('ab', CHAR(97 + i DIV 100), CHAR(97 + i * 7 % 26),"
        " 'x'), i % 50 FROM n");
  }

  /** The ids of the rows between two keys of a text of three letters and a
      number, sorted by id. A backward range leaves out rows equal to the
      begin. */
  Ints select(const std::string &begin, const std::string &end, bool closed,
              bool reverse) {
    return as_ints(sql.query("SELECT id FROM t WHERE (LEFT(s, 3), v) " +
                             std::string(closed && !reverse ? ">= " : "> ") +
                             begin + " AND (LEFT(s, 3), v) " +
                             (closed ? "<= " : "< ") + end + " ORDER BY id"));
  }

  void expect_same(const std::string &begin_text, int begin_number,
                   const std::string &end_text, int end_number) {
    const auto tuple = [](const std::string &text, int number) {
      return "('" + text + "', " + std::to_string(number) + ")";
    };
    for (const bool index_only : {false, true}) {
      Cursor cursor({.index = "k", .index_only = index_only});
      for (const bool closed : {false, true})
        for (const bool reverse : {false, true}) {
          const Ints rows =
              cursor.ints(0, {Keys().text(begin_text).number(begin_number),
                              Keys().text(end_text).number(end_number), closed,
                              closed, reverse});
          EXPECT_EQ(sorted(rows),
                    select(tuple(begin_text, begin_number),
                           tuple(end_text, end_number), closed, reverse))
              << begin_text << begin_number << ' ' << end_text << end_number
              << ' ' << closed << reverse << index_only;
        }
    }
  }
};

TEST_F(RangeOfPrefixesInPartitions, TheMergeIsOutOfOrder) {
  make_few("VARCHAR(20)", "s(3)");
  const Ints rows = Cursor({.index = "k"}).ints(0);
  EXPECT_NE(rows, (Ints{1, 2, 3, 4}));
  EXPECT_EQ(sorted(rows), (Ints{1, 2, 3, 4}));
}

TEST_F(RangeOfPrefixesInPartitions, EveryRowOfAVarchar) {
  make_few("VARCHAR(20)", "s(3)");
  expect_same("abc", 2, "abc", 4);
  expect_same("abc", 1, "abc", 4);
  expect_same("abc", 0, "abc", 3);
}

TEST_F(RangeOfPrefixesInPartitions, EveryRowOfAText) {
  make_few("TEXT", "s(3)");
  expect_same("abc", 2, "abc", 4);
  expect_same("abc", 1, "abc", 4);
}

// For this type the merge compares exactly the prefix that the index holds.
TEST_F(RangeOfPrefixesInPartitions, EveryRowOfAChar) {
  make_few("CHAR(20)", "s(3)");
  expect_same("abc", 2, "abc", 4);
  expect_same("abc", 1, "abc", 4);
  EXPECT_EQ(Cursor({.index = "k"}).ints(0), (Ints{1, 2, 3, 4}));
}

TEST_F(RangeOfPrefixesInPartitions, EveryRowOfSingleBytes) {
  make_few("VARCHAR(20) CHARSET latin1", "s(3)");
  expect_same("abc", 2, "abc", 4);
  expect_same("abc", 1, "abc", 4);
  EXPECT_EQ(Cursor({.index = "k"}).ints(0), (Ints{1, 2, 3, 4}));
}

TEST_F(RangeOfPrefixesInPartitions, EveryRowOfManyInHashPartitions) {
  make_many("PARTITION BY HASH (id) PARTITIONS 7");
  expect_same("abb", 10, "abe", 40);
  expect_same("abc", 10, "abc", 40);
  expect_same("", 0, "abz", 0);
}

// Some partitions lie entirely below the range, some above it and some inside
// it.
TEST_F(RangeOfPrefixesInPartitions, EveryRowOfManyInRangePartitions) {
  make_many(
      "PARTITION BY RANGE (id) (PARTITION p0 VALUES LESS THAN (150),"
      " PARTITION p1 VALUES LESS THAN (310),"
      " PARTITION p2 VALUES LESS THAN (330),"
      " PARTITION p3 VALUES LESS THAN (460),"
      " PARTITION p4 VALUES LESS THAN MAXVALUE)");
  expect_same("abb", 10, "abe", 40);
  expect_same("abd", 0, "abd", 40);
  expect_same("aba", 0, "abb", 20);
}

TEST_F(RangeOfPrefixesInPartitions, EveryRowBackwardWithOneBound) {
  make_many("PARTITION BY HASH (id) PARTITIONS 5");
  Cursor cursor({.index = "k"});
  EXPECT_EQ(sorted(cursor.ints(0, {{}, Keys().text("abc"), true, true, true})),
            as_ints(sql.query("SELECT id FROM t WHERE LEFT(s, 3) <= 'abc'"
                              " ORDER BY id")));
  EXPECT_EQ(sorted(cursor.ints(0, {Keys().text("abc"), {}, true, true, true})),
            as_ints(sql.query("SELECT id FROM t WHERE LEFT(s, 3) > 'abc'"
                              " ORDER BY id")));
}

TEST_F(RangeOfPrefixesInPartitions, AfterTheLastRowThereIsNone) {
  make_few("VARCHAR(20)", "s(3)");
  Cursor cursor({.index = "k"});
  const Range range{Keys().text("abc").number(2), Keys().text("abc").number(4),
                    true, true, true};
  EXPECT_EQ(sorted(cursor.ints(0, range)), (Ints{3, 4}));
  EXPECT_FALSE(cursor.next());
  EXPECT_FALSE(cursor.next());
  EXPECT_EQ(sorted(cursor.ints(0, range)), (Ints{3, 4}));
  EXPECT_FALSE(
      cursor.set_range({Keys().text("abd").number(1),
                        Keys().text("abd").number(2), true, true, true}));
}

}  // namespace
