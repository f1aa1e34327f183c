// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Ranges: the ways to give a range, and the units that it is cut into.

#include <algorithm>

#include "parallel_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class ParallelRange : public Parallel_test {
 protected:
  void make(size_t n_rows) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(4000),"
        " KEY by_v (v, w(1500))) CHARACTER SET latin1");
    fill("t", n_rows, "i, i * 10, REPEAT('w', 3900)");
  }
};

TEST_F(ParallelRange, NoRangeGivenIsTheWholeIndex) {
  make(100);
  const Cursor cursor;
  for (const size_t threads : thread_counts)
    EXPECT_EQ(collect_ints(cursor, threads, 0),
              as_ints(sql.query("SELECT id FROM t ORDER BY id")));
}

TEST_F(ParallelRange, ReverseMakesAClosedEndOpen) {
  make(50);
  Cursor cursor;
  for (const size_t threads : thread_counts) {
    cursor.set_range({Keys().number(3), Keys().number(6), true, true, true});
    EXPECT_EQ(collect_ints(cursor, threads, 0, Workers::any), (Ints{3, 4, 5}));
    cursor.set_range({Keys().number(3), Keys().number(6), false, false, true});
    EXPECT_EQ(collect_ints(cursor, threads, 0, Workers::any), (Ints{4, 5}));
  }
}

TEST_F(ParallelRange, ReverseMakesAClosedEndOpenOverManyPages) {
  make(150);
  Cursor cursor;
  cursor.set_range({Keys().number(3), Keys().number(140), true, true, true});
  const Ints expected = as_ints(
      sql.query("SELECT id FROM t WHERE id >= 3 AND id < 140 ORDER BY id"));
  for (const size_t threads : thread_counts)
    EXPECT_EQ(collect_ints(cursor, threads, 0), expected) << threads;
}

TEST_F(ParallelRange, EqualBoundsReadTheKeyIfBothAreClosed) {
  make(50);
  Cursor cursor;
  for (const size_t threads : thread_counts) {
    cursor.set_range({Keys().number(7), Keys().number(7), true, true});
    EXPECT_EQ(collect_ints(cursor, threads, 0, Workers::any), (Ints{7}));
    cursor.set_range({Keys().number(7), Keys().number(7), true, false});
    EXPECT_EQ(collect_ints(cursor, threads, 0), (Ints{}));
    cursor.set_range({Keys().number(7), Keys().number(7), false, true});
    EXPECT_EQ(collect_ints(cursor, threads, 0), (Ints{}));
    cursor.set_range({Keys().number(7), Keys().number(7), true, true, true});
    EXPECT_EQ(collect_ints(cursor, threads, 0), (Ints{}));
  }
}

TEST_F(ParallelRange, BoundsOfNoPartsBoundNothing) {
  make(100);
  Cursor cursor;
  cursor.set_range({Keys(), Keys()});
  for (const size_t threads : thread_counts)
    EXPECT_EQ(collect_ints(cursor, threads, 0).size(), 100u);
}

TEST_F(ParallelRange, TheLastRangeGivenCounts) {
  make(50);
  Cursor cursor;
  cursor.set_range({Keys().number(10), Keys().number(12)});
  cursor.set_range({Keys().number(48), {}});
  EXPECT_EQ(collect_ints(cursor, 3, 0, Workers::any), (Ints{48, 49, 50}));
  cursor.set_range();
  EXPECT_EQ(collect_ints(cursor, 3, 0).size(), 50u);
}

TEST_F(ParallelRange, TheCursorsPositionStays) {
  make(50);
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range({Keys().number(10), Keys().number(40)}));
  ASSERT_TRUE(cursor.next());
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.read_int(0), 11);
  EXPECT_EQ(collect_ints(cursor, 4, 0).size(), 31u);
  EXPECT_EQ(collect_ints(cursor, 0, 0).size(), 31u);
  EXPECT_EQ(cursor.read_int(0), 11);
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.read_int(0), 12);
  EXPECT_EQ(cursor.read_int(1), 120);
}

TEST_F(ParallelRange, IndexNameInAnotherCase) {
  make(100);
  const Cursor primary({.index = "primary"});
  EXPECT_EQ(collect_ints(primary, 2, 0).size(), 100u);
  const Cursor secondary({.index = "BY_V", .index_only = true});
  EXPECT_EQ(collect_ints(secondary, 2, 1).size(), 100u);
}

TEST_F(ParallelRange, KeysOfEveryForm) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, d DECIMAL(12,3), e DATETIME(3),"
      " u BIGINT UNSIGNED, f DOUBLE, g DATE, " +
      filler(150) +
      ", KEY d (d, pad), KEY e (e, pad), KEY u (u, pad), KEY f (f, pad),"
      " KEY g (g, pad))");
  fill("t", 3000,
       "i, i / 8, '2020-01-01' + INTERVAL i MINUTE,"
       " 18446744073709551615 - i, i / 3, '2020-01-01' + INTERVAL i DAY");
  const auto from = [this](const char *index, const std::string &value) {
    expect_range(
        {.index = index, .index_only = true}, {Keys().text(value), {}}, {0},
        "SELECT id FROM t WHERE " + std::string(index) + " >= '" + value + "'");
  };
  from("d", "30.125");
  from("e", "2020-01-01 04:30:00");
  from("u", "18446744073709549000");
  from("g", "2020-02-29");
  expect_range({.index = "f", .index_only = true}, {Keys().real(33.5), {}}, {0},
               "SELECT id FROM t WHERE f >= 33.5");
}

// A tree with few records to a page and with many levels.
class ParallelDeepRange : public ParallelRange {
 protected:
  ParallelDeepRange() {
    sql.exec(
        "CREATE TABLE t (k VARCHAR(3000) CHARACTER SET latin1 PRIMARY KEY,"
        " v INT)");
  }

  /** Even numbers from 2 on. */
  void fill_even(size_t rows) {
    fill("t", rows, "CONCAT(LPAD(i * 2, 6, '0'), REPEAT('k', 2994)), i * 2");
  }

  static Keys key(int i) {
    char text[16];
    snprintf(text, sizeof text, "%06d", i);
    return Keys().text(text + std::string(2994, 'k'));
  }

  /** @param unit  how many rows a unit may have */
  static Workers workers_for(const Ints &rows, size_t unit) {
    return rows.size() > 2 * unit ? Workers::several : Workers::any;
  }
};

// Some of the keys are the first of their page or lie between two pages.
TEST_F(ParallelDeepRange, EveryKeyAsTheBegin) {
  constexpr int n_rows = 400;
  fill_even(n_rows);
  ASSERT_GE(tree_levels(), 4u);
  Cursor cursor;
  cursor.set_columns({1});
  for (int from = 1; from <= 2 * n_rows + 1; ++from) {
    for (const bool closed : {true, false}) {
      cursor.set_range({key(from), {}, closed});
      Ints expected;
      for (int i = closed ? from + from % 2 : from / 2 * 2 + 2; i <= 2 * n_rows;
           i += 2)
        expected.push_back(i);
      for (const size_t threads : {size_t{0}, size_t{2}, size_t{9}})
        ASSERT_EQ(collect_ints(cursor, threads, 1, workers_for(expected, 60)),
                  expected)
            << from << (closed ? " closed by " : " open by ") << threads;
    }
  }
}

TEST_F(ParallelDeepRange, EveryKeyAsBothBounds) {
  fill_even(60);
  ASSERT_EQ(tree_levels(), 3u);
  Cursor cursor;
  cursor.set_columns({1});
  for (int from = 1; from <= 121; ++from) {
    for (int to = from; to <= 121; to += 7) {
      cursor.set_range({key(from), key(to), false, false});
      Ints expected;
      for (int i = from / 2 * 2 + 2; i < to; i += 2) expected.push_back(i);
      for (const size_t threads : {size_t{0}, size_t{2}, size_t{5}})
        EXPECT_EQ(collect_ints(cursor, threads, 1, workers_for(expected, 25)),
                  expected)
            << from << " to " << to << " by " << threads;
    }
  }
}

}  // namespace
