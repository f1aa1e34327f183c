// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Read sets and index-only cursors.

#include "cursor_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class ReadSet : public Cursor_test {
 protected:
  ReadSet() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(20), c TEXT,"
        " d INT, KEY by_a (a), KEY by_b (b(2)))");
    sql.exec(
        "INSERT INTO t VALUES (1, 30, 'xxx', REPEAT('p', 20000), 100),"
        " (2, 20, 'yyy', REPEAT('q', 20000), 200),"
        " (3, 10, 'zzz', REPEAT('r', 20000), 300)");
  }
};

TEST_F(ReadSet, OneColumn) {
  Cursor cursor;
  cursor.set_columns({4});
  EXPECT_EQ(cursor.ints(4), (Ints{100, 200, 300}));
}

TEST_F(ReadSet, SomeColumnsInAnyOrder) {
  Cursor cursor;
  cursor.set_columns({4, 0, 2});
  EXPECT_EQ(
      cursor.texts({0, 2, 4}),
      (Rows{{"1", "xxx", "100"}, {"2", "yyy", "200"}, {"3", "zzz", "300"}}));
}

TEST_F(ReadSet, LargeObjectsAlone) {
  Cursor cursor;
  cursor.set_columns({3});
  EXPECT_EQ(cursor.texts({3}), (Rows{{std::string(20000, 'p')},
                                     {std::string(20000, 'q')},
                                     {std::string(20000, 'r')}}));
}

TEST_F(ReadSet, EmptySetStillSteps) {
  Cursor cursor;
  cursor.set_columns({});
  int rows = 0;
  for (bool more = cursor.set_range(); more; more = false)
    while (cursor.next()) ++rows;
  EXPECT_EQ(rows, 3);
}

TEST_F(ReadSet, PositionsBeyondTheTableAreSkipped) {
  Cursor cursor;
  cursor.set_columns({5, 6, 63, 64, 1000, UINT32_MAX, 1});
  EXPECT_EQ(cursor.ints(1), (Ints{30, 20, 10}));
}

TEST_F(ReadSet, SamePositionTwice) {
  Cursor cursor;
  cursor.set_columns({1, 1, 1});
  EXPECT_EQ(cursor.ints(1), (Ints{30, 20, 10}));
}

TEST_F(ReadSet, BoundsNeedNoColumnOfTheSet) {
  Cursor cursor({.index = "by_a"});
  cursor.set_columns({4});
  EXPECT_EQ(cursor.ints(4, {Keys().number(15), Keys().number(30)}),
            (Ints{200, 100}));
  EXPECT_EQ(
      cursor.ints(4, {Keys().number(10), Keys().number(25), true, true, true}),
      (Ints{200}));
  EXPECT_EQ(cursor.ints(4, {Keys().number(20), Keys().number(20)}),
            (Ints{200}));
}

TEST_F(ReadSet, WiderSetIsInForceFromTheNextRange) {
  Cursor cursor;
  cursor.set_columns({0});
  EXPECT_EQ(cursor.ints(0), (Ints{1, 2, 3}));
  cursor.set_columns({0, 1, 2, 3, 4});
  EXPECT_EQ(cursor.texts({4, 2}),
            (Rows{{"100", "xxx"}, {"200", "yyy"}, {"300", "zzz"}}));
}

TEST_F(ReadSet, EachSetAfterEachOther) {
  Cursor cursor({.index = "by_a"});
  for (int round = 0; round < 3; ++round) {
    cursor.set_columns({4});
    EXPECT_EQ(cursor.ints(4), (Ints{300, 200, 100}));
    cursor.set_columns({2});
    EXPECT_EQ(cursor.texts({2}, {.reverse = true}),
              (Rows{{"xxx"}, {"yyy"}, {"zzz"}}));
    cursor.set_columns({});
    EXPECT_TRUE(cursor.set_range());
    cursor.set_columns({0, 3});
    EXPECT_EQ(cursor.texts({3}, {Keys().number(20), Keys().number(20)}),
              (Rows{{std::string(20000, 'q')}}));
  }
}

TEST_F(ReadSet, OfOneCursorIsNotOfAnother) {
  Cursor narrow, wide;
  narrow.set_columns({0});
  EXPECT_EQ(wide.ints(4), (Ints{100, 200, 300}));
  EXPECT_EQ(narrow.ints(0), (Ints{1, 2, 3}));
}

TEST_F(ReadSet, OfAPartitionedTable) {
  sql.exec(
      "CREATE TABLE p (id INT PRIMARY KEY, a INT, b INT) "
      "PARTITION BY HASH (id) PARTITIONS 3");
  sql.exec("INSERT INTO p VALUES (1, 10, 100), (2, 20, 200), (3, 30, 300)");
  Cursor cursor({.table = "p"});
  cursor.set_columns({1});
  EXPECT_EQ(cursor.ints(1), (Ints{10, 20, 30}));
  cursor.set_columns({2});
  EXPECT_EQ(cursor.ints(2), (Ints{100, 200, 300}));
  cursor.set_columns({0, 1, 2});
  EXPECT_EQ(cursor.texts({0, 1, 2}),
            (Rows{{"1", "10", "100"}, {"2", "20", "200"}, {"3", "30", "300"}}));
}

TEST_F(ReadSet, OfVirtualColumns) {
  sql.exec(
      "CREATE TABLE g (id INT PRIMARY KEY, a INT, v INT AS (a + 1) VIRTUAL,"
      " b INT)");
  sql.exec("INSERT INTO g (id, a, b) VALUES (1, 10, 5), (2, 20, 6)");
  Cursor cursor({.table = "g"});
  cursor.set_columns({2});
  EXPECT_EQ(cursor.ints(2), (Ints{11, 21}));
  cursor.set_columns({3});
  EXPECT_EQ(cursor.ints(3), (Ints{5, 6}));
  cursor.set_columns({2, 3});
  EXPECT_EQ(cursor.texts({2, 3}), (Rows{{"11", "5"}, {"21", "6"}}));
}

// A virtual column is computed when its row is read.
TEST_F(ReadSet, ChangedAmidARangeLeavesVirtualColumnsRight) {
  sql.exec("ALTER TABLE t ADD e INT AS (d + 1)");
  Cursor cursor;
  cursor.set_columns({0, 5});
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.read_int(5), 101);
  cursor.set_columns({0});
  ASSERT_TRUE(cursor.next());
  EXPECT_FALSE(cursor.read_int(5));
  cursor.set_columns({0, 5});
  EXPECT_EQ(cursor.read_int(5), 201);
  cursor.set_columns({0});
  ASSERT_TRUE(cursor.set_range());
  cursor.set_columns({0, 5});
  ASSERT_TRUE(cursor.next());
  EXPECT_FALSE(cursor.read_int(5));
}

TEST_F(ReadSet, NamesBecomePositionsByTakingOneAway) {
  Cursor cursor;
  const uint32_t position = cursor_col_fieldnr(cursor.handle, "d") - 1;
  cursor.set_columns({position});
  EXPECT_EQ(cursor.ints(position), (Ints{100, 200, 300}));
}

TEST_F(ReadSet, IndexOnlyReadsTheIndexsColumns) {
  Cursor cursor({.index = "by_a", .index_only = true});
  EXPECT_EQ(cursor.texts({1, 0}),
            (Rows{{"10", "3"}, {"20", "2"}, {"30", "1"}}));
  EXPECT_EQ(cursor.texts({0}, {Keys().number(20), {}}), (Rows{{"2"}, {"1"}}));
}

TEST_F(ReadSet, IndexOnlyOfAUniqueIndexReadsThePrimaryKeyToo) {
  sql.exec("CREATE UNIQUE INDEX once ON t (d)");
  Cursor cursor({.index = "once", .index_only = true});
  EXPECT_EQ(cursor.texts({4, 0}),
            (Rows{{"100", "1"}, {"200", "2"}, {"300", "3"}}));
}

// The table handler does not fill in these columns, or fills in values of other
// rows that it has fetched ahead.
TEST_F(ReadSet, IndexOnlyColumnsOutsideTheIndexHaveNoValue) {
  sql.exec("INSERT INTO t SELECT id + 3, a + 30, b, c, d FROM t");
  sql.exec("INSERT INTO t SELECT id + 6, a + 60, b, c, d FROM t");
  Cursor cursor({.index = "by_a", .index_only = true});
  int rows = 0;
  for (bool more = cursor.set_range(); more && cursor.next(); ++rows) {
    EXPECT_EQ(cursor.read_int(1), 10 * (rows + 1));
    for (const unsigned int outside : {2u, 3u, 4u}) {
      EXPECT_FALSE(cursor.read_int(outside));
      EXPECT_FALSE(cursor.read_real(outside));
      EXPECT_FALSE(cursor.read_text(outside));
      EXPECT_FALSE(cursor.read_decimal(outside));
      EXPECT_FALSE(cursor.read_date(outside));
      EXPECT_FALSE(cursor.read_time(outside));
      EXPECT_FALSE(cursor.read_datetime(outside));
    }
  }
  EXPECT_EQ(rows, 12);
}

TEST_F(ReadSet, IndexOnlyOnThePrimaryKeyHasNoVirtualColumns) {
  sql.exec(
      "ALTER TABLE t ADD e INT AS (d + 1) NOT NULL, ADD f INT AS (d + 2) "
      "STORED");
  Cursor cursor({.index_only = true});
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  EXPECT_FALSE(cursor.read_int(5));
  EXPECT_EQ(cursor.read_int(6), 102);
}

TEST_F(ReadSet, IndexOnlyFetchesAColumnOfWhichTheIndexHoldsAPrefix) {
  Cursor cursor({.index = "by_b", .index_only = true});
  EXPECT_EQ(cursor.ints(0), (Ints{1, 2, 3}));
  EXPECT_EQ(cursor.texts({2}), (Rows{{"xxx"}, {"yyy"}, {"zzz"}}));
}

TEST_F(ReadSet, IndexOnlyOnThePrimaryKeyReadsAll) {
  Cursor cursor({.index_only = true});
  EXPECT_EQ(cursor.texts({0, 4}),
            (Rows{{"1", "100"}, {"2", "200"}, {"3", "300"}}));
}

}  // namespace
