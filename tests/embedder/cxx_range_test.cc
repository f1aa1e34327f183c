// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// cursor.hpp: ranges and the values of their bounds, compared with SQL.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "cursor_test.h"

namespace {

using namespace harness;
using morvena_sn::at_least;
using morvena_sn::at_most;
using morvena_sn::between;
using morvena_sn::Bound;
using morvena_sn::equal;
using morvena_sn::greater_than;
using morvena_sn::less_than;
using Ints = std::vector<long long>;

Ints ids(const std::string &index, const morvena_sn::Range &range) {
  morvena_sn::Cursor cursor("db", "t", index);
  Ints ids;
  for (const auto row : cursor.range(range))
    ids.push_back(row.get<int64_t>("id").value());
  return ids;
}

class CxxRange : public Cursor_test {
 protected:
  CxxRange() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, v INT,"
        " name VARCHAR(20), KEY by_v (v, name))");
    for (const char *v : {"NULL", "1", "2", "3", "4"})
      for (const char *name : {"NULL", "'a'", "'b'", "'c'"})
        sql.exec("INSERT INTO t (v, name) VALUES (" + std::string(v) + ", " +
                 name + ")");
  }

  Ints select(const std::string &condition) {
    return as_ints(sql.query("SELECT id FROM t WHERE " + condition +
                             " ORDER BY v, name, id"));
  }
};

TEST_F(CxxRange, EachFormGivesTheRowsOfItsName) {
  EXPECT_EQ(ids("by_v", morvena_sn::all()), select("TRUE"));
  EXPECT_EQ(ids("by_v", equal(2)), select("v = 2"));
  EXPECT_EQ(ids("by_v", between(2, 3)), select("v BETWEEN 2 AND 3"));
  EXPECT_EQ(ids("by_v", at_least(3)), select("v >= 3"));
  EXPECT_EQ(ids("by_v", greater_than(3)), select("v > 3"));
  EXPECT_EQ(ids("by_v", equal(7)), Ints());
}

TEST_F(CxxRange, WithoutALowerEndItBeginsWithNull) {
  EXPECT_EQ(ids("by_v", at_most(2)), select("v IS NULL OR v <= 2"));
  EXPECT_EQ(ids("by_v", less_than(2)), select("v IS NULL OR v < 2"));
}

TEST_F(CxxRange, EndsOfBothKindsGoTogether) {
  EXPECT_EQ(ids("by_v", at_least(1).less_than(3)), select("v >= 1 AND v < 3"));
  EXPECT_EQ(ids("by_v", greater_than(1).at_most(3)),
            select("v > 1 AND v <= 3"));
  EXPECT_EQ(ids("by_v", less_than(3).greater_than(1)), select("v = 2"));
  EXPECT_EQ(ids("by_v", at_least(1).at_least(4)), select("v = 4"));
  EXPECT_EQ(ids("by_v", equal(3).at_least(2)), select("v >= 2 AND v <= 3"));
  EXPECT_EQ(ids("by_v", equal(2).less_than(4)), select("v >= 2 AND v < 4"));
}

TEST_F(CxxRange, SeveralKeyPartsBoundTogether) {
  EXPECT_EQ(ids("by_v", equal(2, "b")), select("v = 2 AND name = 'b'"));
  EXPECT_EQ(ids("by_v", between(Bound(2, "b"), Bound(3, "a"))),
            select("(v = 2 AND name >= 'b') OR"
                   " (v = 3 AND (name IS NULL OR name <= 'a'))"));
  EXPECT_EQ(ids("by_v", greater_than(3, "b")),
            select("(v = 3 AND name > 'b') OR v > 3"));
}

TEST_F(CxxRange, NullIsAValueOfAnEnd) {
  EXPECT_EQ(ids("by_v", equal(nullptr)), select("v IS NULL"));
  EXPECT_EQ(ids("by_v", equal(std::optional<int>())), select("v IS NULL"));
  EXPECT_EQ(ids("by_v", equal(std::optional<int>(2), std::nullopt)),
            select("v = 2 AND name IS NULL"));
  EXPECT_EQ(ids("by_v", greater_than(nullptr)), select("v IS NOT NULL"));
}

TEST_F(CxxRange, ReversedItGoesDownwards) {
  Ints expected = select("v IS NULL OR v <= 2");
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(ids("by_v", at_most(2).reversed()), expected);
  expected = select("v > 1 AND v < 3");
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(ids("by_v", greater_than(1).less_than(3).reversed()), expected);
}

TEST_F(CxxRange, ValuesBeyondSixteenPartsAreDropped) {
  Bound bound(2, "b");
  for (int i = 0; i < 20; ++i) bound.add(i);
  EXPECT_EQ(ids("by_v", between(bound, bound)), select("v = 2 AND name = 'b'"));
}

// A range copies the bounds that the caller gives. Later changes to them do not
// change the range.
TEST_F(CxxRange, BoundsAreCopied) {
  std::string name = "b";
  const Bound bound(2, name);
  name = "c";
  const morvena_sn::Range range = between(bound, bound);
  morvena_sn::Range other = range;
  EXPECT_EQ(ids("by_v", other), select("v = 2 AND name = 'b'"));
  EXPECT_EQ(ids("by_v", range), select("v = 2 AND name = 'b'"));
}

class CxxBound : public Cursor_test {
 protected:
  void store(const std::string &type, const std::vector<std::string> &values) {
    sql.exec("SET time_zone = '+00:00'");
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, c " + type +
             ", KEY by_c (c))");
    for (const std::string &value : values)
      sql.exec("INSERT INTO t (c) VALUES (" + value + ")");
  }

  /** Check that each value, used as a key, finds the row that it was read from
      and no other row. */
  template <class T>
  void expect_each_finds_its_row() {
    const auto n = sql.number("SELECT COUNT(*) FROM t");
    for (long long id = 1; id <= n; ++id) {
      morvena_sn::Cursor cursor("db", "t");
      ASSERT_TRUE(cursor.range(equal(id)).next());
      const auto value = cursor.get<T>("c");
      EXPECT_EQ(ids("by_c", equal(value)), Ints{id});
    }
  }
};

// 2^53 + 1 is the first integer that a double cannot represent.
TEST_F(CxxBound, IntegersAreExact) {
  store("BIGINT", {"9007199254740991", "9007199254740992", "9007199254740993",
                   "-9007199254740993", "-9007199254740992",
                   "9223372036854775807", "-9223372036854775808", "0"});
  expect_each_finds_its_row<int64_t>();
}

TEST_F(CxxBound, UnsignedIntegersAreExact) {
  store("BIGINT UNSIGNED",
        {"9007199254740993", "18446744073709551615", "18446744073709551614"});
  expect_each_finds_its_row<uint64_t>();
}

TEST_F(CxxBound, RealsFindTheirRow) {
  store("DOUBLE", {"0.1e0", "-2.5e300", "0e0"});
  expect_each_finds_its_row<double>();
}

TEST_F(CxxBound, TextsFindTheirRow) {
  store("VARBINARY(20)", {"''", "'a'", "'a\\0b'", "NULL"});
  expect_each_finds_its_row<std::string>();
}

TEST_F(CxxBound, DecimalsFindTheirRow) {
  store("DECIMAL(65,30)",
        {"99999999999999999999999999999999999.999999999999999999999999999999",
         "-0.000000000000000000000000000001", "0", "12.5"});
  expect_each_finds_its_row<Decimal>();
}

TEST_F(CxxBound, DatesFindTheirRow) {
  sql.exec("SET sql_mode = ''");
  store("DATE", {"'1969-12-31'", "'2000-02-29'", "'1900-02-28'", "'1000-01-01'",
                 "'9999-12-31'", "'2023-03-01'", "'0000-00-00'"});
  expect_each_finds_its_row<morvena_sn::Date>();
}

TEST_F(CxxBound, DatetimesFindTheirRow) {
  store("DATETIME(6)", {"'1969-12-31 23:59:59.999999'",
                        "'2024-02-29 12:30:00.000001'", "'1000-01-01'"});
  expect_each_finds_its_row<morvena_sn::Datetime>();
}

TEST_F(CxxBound, TimestampsFindTheirRow) {
  store("TIMESTAMP(6)", {"'2024-02-29 12:30:00.000001'", "'1970-01-02'"});
  expect_each_finds_its_row<morvena_sn::Datetime>();
}

TEST_F(CxxBound, TimesFindTheirRow) {
  store("TIME(6)", {"'-01:30:00.5'", "'838:59:59'", "'00:00:00.000001'"});
  expect_each_finds_its_row<morvena_sn::Duration>();
}

}  // namespace
