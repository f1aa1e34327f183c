// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Ranges: which rows a range reads, and in which order. A SELECT with the same
// bounds gives the expected rows.

#include <atomic>
#include <chrono>

#include "cursor_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class RangeOfOnePart : public Cursor_test {
 protected:
  RangeOfOnePart() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    // Three rows for each v of 10, 20, ... 200.
    sql.exec(
        "INSERT INTO t WITH RECURSIVE n (i) AS"
        " (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 60)"
        " SELECT i, 10 * CEIL(i / 3) FROM n");
  }

  /** The ids of the rows between the bounds, by SQL. */
  Ints select(std::optional<int> begin, std::optional<int> end,
              bool closed_begin, bool closed_end, bool reverse) {
    std::string where = "TRUE";
    if (begin)
      where +=
          (closed_begin ? " AND v >= " : " AND v > ") + std::to_string(*begin);
    if (end)
      where += (closed_end ? " AND v <= " : " AND v < ") + std::to_string(*end);
    const char *order = reverse ? "v DESC, id DESC" : "v, id";
    return as_ints(
        sql.query("SELECT id FROM t WHERE " + where + " ORDER BY " + order));
  }

  static std::optional<Keys> keys(std::optional<int> value) {
    if (!value) return {};
    return Keys().number(*value);
  }
};

// The server lets only one thread at a time into InnoDB.
class RangeWithOneThreadInInnodb : public RangeOfOnePart {
 protected:
  static void limit_threads(const std::string &n) {
    Client().exec("SET GLOBAL innodb_thread_concurrency = " + n);
  }
  RangeWithOneThreadInInnodb() { limit_threads("1"); }
  ~RangeWithOneThreadInInnodb() override { limit_threads("DEFAULT"); }
};

TEST_F(RangeWithOneThreadInInnodb, NobodyIsKeptOutBetweenSteps) {
  Cursor cursor({.index = "by_v"});
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  std::future<Reply> statement = sql.send("SELECT SUM(id) FROM t");
  std::future<void> read =
      on_own_thread([] { EXPECT_EQ(Cursor().ints(0).size(), 60u); });
  EXPECT_EQ(statement.wait_for(std::chrono::seconds(10)),
            std::future_status::ready);
  EXPECT_EQ(read.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  limit_threads("0");  // lets waiting threads in if the case fails
  EXPECT_EQ(as_ints(statement.get().rows), Ints{1830});
  read.get();
  EXPECT_TRUE(cursor.next());
}

TEST_F(RangeOfOnePart, NoBoundsForward) {
  EXPECT_EQ(Cursor({.index = "by_v"}).ints(0),
            select({}, {}, true, true, false));
}

TEST_F(RangeOfOnePart, NoBoundsBackward) {
  EXPECT_EQ(Cursor({.index = "by_v"}).ints(0, {.reverse = true}),
            select({}, {}, true, true, true));
}

// Bounds that are absent, equal to a value, or between values, open and closed.
TEST_F(RangeOfOnePart, ForwardLikeSelect) {
  Cursor cursor({.index = "by_v"});
  const std::vector<std::optional<int>> bounds = {{},  0,   10,  15, 20,
                                                  100, 105, 200, 300};
  for (const auto begin : bounds)
    for (const auto end : bounds)
      for (const bool closed_begin : {false, true})
        for (const bool closed_end : {false, true}) {
          if (begin && begin == end) continue;
          EXPECT_EQ(cursor.ints(
                        0, {keys(begin), keys(end), closed_begin, closed_end}),
                    select(begin, end, closed_begin, closed_end, false))
              << begin.value_or(-1) << ' ' << end.value_or(-1) << ' '
              << closed_begin << closed_end;
        }
}

// Backward, rows equal to the begin are left out even if it is closed.
TEST_F(RangeOfOnePart, BackwardLikeSelectWithAnOpenBegin) {
  Cursor cursor({.index = "by_v"});
  const std::vector<std::optional<int>> begins = {{}, 0, 10, 15, 20, 100, 105};
  for (const auto begin : begins)
    for (const int end : {5, 10, 15, 20, 100, 105, 200, 300})
      for (const bool closed_begin : {false, true})
        for (const bool closed_end : {false, true}) {
          if (begin == end) continue;
          EXPECT_EQ(cursor.ints(0, {keys(begin), keys(end), closed_begin,
                                    closed_end, true}),
                    select(begin, end, false, closed_end, true))
              << begin.value_or(-1) << ' ' << end << ' ' << closed_begin
              << closed_end;
        }
}

TEST_F(RangeOfOnePart, BackwardWithoutAnEndStopsAtTheBegin) {
  Cursor cursor({.index = "by_v"});
  EXPECT_EQ(cursor.ints(0, {Keys().number(150), {}, true, true, true}),
            select(150, {}, false, true, true));
}

// The first row that is read, the last of the index, is not compared with the
// begin bound. Later rows are.
TEST_F(RangeOfOnePart, BackwardWithoutAnEndGivesTheLastRowAlways) {
  Cursor cursor({.index = "by_v"});
  EXPECT_EQ(cursor.ints(0, {Keys().number(1000), {}, true, true, true}),
            (Ints{60}));
}

TEST_F(RangeOfOnePart, BackwardEndBelowEverything) {
  Cursor cursor({.index = "by_v"});
  EXPECT_FALSE(cursor.set_range({{}, Keys().number(1), true, true, true}));
}

TEST_F(RangeOfOnePart, EqualBoundsReadTheKeyHoweverClosed) {
  Cursor cursor({.index = "by_v"});
  const Ints rows = select(70, 70, true, true, false);
  for (const bool closed_begin : {false, true})
    for (const bool closed_end : {false, true})
      for (const bool reverse : {false, true})
        EXPECT_EQ(cursor.ints(0, {Keys().number(70), Keys().number(70),
                                  closed_begin, closed_end, reverse}),
                  rows);
}

TEST_F(RangeOfOnePart, EqualBoundsOfDifferentFormsAreTheSameKey) {
  Cursor cursor({.index = "by_v"});
  EXPECT_EQ(
      cursor.ints(0, {Keys().number(70), Keys().text("70"), false, false}),
      select(70, 70, true, true, false));
}

TEST_F(RangeOfOnePart, EqualBoundsOfAMissingKey) {
  Cursor cursor({.index = "by_v"});
  EXPECT_FALSE(cursor.set_range({Keys().number(75), Keys().number(75)}));
  EXPECT_TRUE(cursor_advance(cursor.handle));
}

TEST_F(RangeOfOnePart, BoundsInTheWrongOrder) {
  Cursor cursor({.index = "by_v"});
  EXPECT_FALSE(cursor.set_range({Keys().number(100), Keys().number(50)}));
  EXPECT_FALSE(cursor.set_range(
      {Keys().number(100), Keys().number(50), true, true, true}));
}

TEST_F(RangeOfOnePart, BoundsOfNoValuesBoundNothing) {
  Cursor cursor({.index = "by_v"});
  const Ints all = select({}, {}, true, true, false);
  EXPECT_EQ(cursor.ints(0, {Keys(), Keys()}), all);
  EXPECT_EQ(cursor.ints(0, {Keys(), {}}), all);
  EXPECT_EQ(cursor.ints(0, {{}, Keys(), false, false}), all);
  EXPECT_EQ(cursor.ints(0, {Keys(), Keys(), true, true, true}),
            select({}, {}, true, true, true));
  EXPECT_EQ(cursor.ints(0, {Keys().number(150), Keys()}),
            select(150, {}, true, true, false));
}

// A range must not affect the next range: neither by the end of a forward
// range, nor by rows fetched ahead, nor by a single key.
TEST_F(RangeOfOnePart, EveryRangeAfterEveryOther) {
  Cursor cursor({.index = "by_v"});
  struct Step {
    Range range;
    Ints rows;
  };
  const std::vector<Step> steps = {
      {{}, select({}, {}, true, true, false)},
      {{{}, {}, true, true, true}, select({}, {}, true, true, true)},
      {{Keys().number(20), Keys().number(50)},
       select(20, 50, true, true, false)},
      {{{}, Keys().number(30), true, false},
       select({}, 30, true, false, false)},
      {{Keys().number(100), {}, false}, select(100, {}, false, true, false)},
      {{Keys().number(90), Keys().number(120), true, true, true},
       select(90, 120, false, true, true)},
      {{Keys().number(160), Keys().number(160)},
       select(160, 160, true, true, false)},
      {{Keys().number(165), Keys().number(165)}, {}},
  };
  for (size_t i = 0; i < steps.size(); ++i) {
    for (size_t j = 0; j < steps.size(); ++j) {
      EXPECT_EQ(cursor.ints(0, steps[i].range), steps[i].rows) << i;
      EXPECT_EQ(cursor.ints(0, steps[j].range), steps[j].rows) << i << ' ' << j;
      // Set the second range in the middle of the first.
      cursor.set_range(steps[i].range);
      cursor.next();
      EXPECT_EQ(cursor.ints(0, steps[j].range), steps[j].rows) << i << ' ' << j;
    }
  }
}

TEST_F(RangeOfOnePart, SkippedKindsOfKeysAreStillKeys) {
  Cursor cursor;
  EXPECT_EQ(cursor.ints(1, {Keys().number(1), Keys().number(6)}),
            (Ints{10, 10, 10, 20, 20, 20}));
  EXPECT_EQ(cursor.ints(0, {Keys().number(58), {}, false}), (Ints{59, 60}));
  EXPECT_EQ(cursor.ints(0, {{}, Keys().number(3), true, false}), (Ints{1, 2}));
}

TEST_F(RangeOfOnePart, ManyRowsAcrossPages) {
  sql.exec(
      "CREATE TABLE big (id INT PRIMARY KEY, v INT, pad CHAR(200), KEY (v))");
  sql.exec("SET cte_max_recursion_depth = 30000");
  sql.exec(
      "INSERT INTO big WITH RECURSIVE n (i) AS"
      " (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)"
      " SELECT i, (i * 7919) % 20011, REPEAT('p', 200) FROM n");
  for (const bool index_only : {false, true}) {
    Cursor cursor({.table = "big", .index = "v", .index_only = index_only});
    EXPECT_EQ(cursor.ints(1),
              as_ints(sql.query("SELECT v FROM big ORDER BY v, id")));
    EXPECT_EQ(
        cursor.ints(0, {.reverse = true}),
        as_ints(sql.query("SELECT id FROM big ORDER BY v DESC, id DESC")));
    EXPECT_EQ(
        cursor.ints(0, {Keys().number(5000), Keys().number(15000), false}),
        as_ints(sql.query("SELECT id FROM big WHERE v > 5000 AND"
                          " v <= 15000 ORDER BY v, id")));
  }
}

class RefusedRange : public RangeOfOnePart {
 protected:
  struct Batches {
    std::atomic<unsigned int> calls{0}, rows{0};
  };

  static bool count(uint64_t batch, uint64_t, void *argument) {
    auto *batches = static_cast<Batches *>(argument);
    ++batches->calls;
    batches->rows += pread_n_tuples(batch);
    return false;
  }

  /** Set a range with a bound that cannot be read. */
  void refuse(Cursor &cursor, int kind) {
    int32_t bytes = sizeof(int64_t);
    void *value = nullptr;
    char type = 1;
    field_arg no_value{1, &bytes, &value, &type};
    field_arg no_array{1, &bytes, nullptr, &type};
    int64_t low = 20;
    void *low_value = &low;
    field_arg good{1, &bytes, &low_value, &type};
    switch (kind) {
      case 0:
        EXPECT_FALSE(cursor_set_read_range(cursor.handle, &no_value, nullptr,
                                           true, true, false));
        break;
      case 1:
        EXPECT_FALSE(cursor_set_read_range(cursor.handle, &good, &no_value,
                                           true, true, false));
        break;
      default:
        EXPECT_FALSE(cursor_set_read_range(cursor.handle, nullptr, &no_array,
                                           true, true, true));
        break;
    }
  }

  static void expect_rows(Cursor &cursor, unsigned int rows) {
    Batches batches;
    EXPECT_TRUE(cursor_advance_parallel(cursor.handle, 4, count, &batches));
    EXPECT_EQ(batches.rows, rows);
  }

  static void expect_nothing(Cursor &cursor) {
    EXPECT_FALSE(cursor.next());
    EXPECT_FALSE(cursor.next());
    Batches batches;
    EXPECT_FALSE(cursor_advance_parallel(cursor.handle, 4, count, &batches));
    EXPECT_EQ(batches.calls, 0u);
  }
};

TEST_F(RefusedRange, LeavesNoRangeToRead) {
  for (const int kind : {0, 1, 2}) {
    SCOPED_TRACE(kind);
    Cursor cursor({.index = "by_v", .index_only = true});
    expect_rows(cursor, 60);
    ASSERT_TRUE(cursor.set_range({Keys().number(20), Keys().number(50)}));
    expect_rows(cursor, 12);
    refuse(cursor, kind);
    expect_nothing(cursor);
    expect_nothing(cursor);
  }
}

TEST_F(RefusedRange, EndsWithTheNextGoodOne) {
  Cursor cursor({.index = "by_v", .index_only = true});
  for (const int kind : {0, 1, 2}) {
    SCOPED_TRACE(kind);
    refuse(cursor, kind);
    expect_nothing(cursor);
    EXPECT_EQ(cursor.ints(0, {Keys().number(20), Keys().number(50)}),
              select(20, 50, true, true, false));
    expect_rows(cursor, 12);
    refuse(cursor, kind);
    // An empty range is a valid range.
    EXPECT_FALSE(cursor.set_range({Keys().number(500), {}}));
    expect_rows(cursor, 0);
    ASSERT_TRUE(cursor.set_range());
    expect_rows(cursor, 60);
  }
}

class Rows_of_several_parts : public Cursor_test {
 protected:
  Rows_of_several_parts() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, a INT, b INT,"
        " c VARCHAR(5), KEY k (a, b, c), KEY d (a DESC, b))");
    sql.exec(
        "INSERT INTO t (a, b, c) WITH n (i) AS"
        " (VALUES ROW(NULL), ROW(1), ROW(2), ROW(3))"
        " SELECT x.i, y.i, IF(z.i IS NULL, NULL, CHAR(96 + z.i))"
        " FROM n x, n y, n z");
  }
  Ints select(const std::string &rest) {
    return as_ints(sql.query("SELECT id FROM t " + rest));
  }
};

class RangeOfSeveralParts : public Rows_of_several_parts {
 protected:
  Cursor cursor{{.index = "k"}};
};

TEST_F(RangeOfSeveralParts, FewerValuesThanPartsAreAPrefix) {
  EXPECT_EQ(cursor.ints(0, {Keys().number(2), Keys().number(2)}),
            select("WHERE a = 2 ORDER BY a, b, c, id"));
  EXPECT_EQ(cursor.ints(0, {Keys().number(2).number(3), Keys().number(3)}),
            select("WHERE (a = 2 AND b >= 3) OR a = 3 ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, AllParts) {
  const Keys begin = Keys().number(1).number(3).text("b");
  const Keys end = Keys().number(2).number(1).text("a");
  EXPECT_EQ(cursor.ints(0, {begin, end}),
            select("WHERE (a, b, c) IN ((1,3,'b'), (1,3,'c'), (2,1,'a')) OR"
                   " (a = 2 AND b IS NULL) OR (a = 2 AND b = 1 AND c IS NULL)"
                   " ORDER BY a, b, c, id"));
  EXPECT_EQ(cursor.ints(0, {begin, begin}),
            select("WHERE a = 1 AND b = 3 AND c = 'b'"));
}

TEST_F(RangeOfSeveralParts, OpenPrefixBoundsLeaveAllItsRowsOut) {
  EXPECT_EQ(cursor.ints(0, {Keys().number(1), Keys().number(3), false, false}),
            select("WHERE a = 2 ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, BackwardFromAClosedPrefix) {
  EXPECT_EQ(cursor.ints(0, {{}, Keys().number(2), true, true, true}),
            select("WHERE a <= 2 OR a IS NULL ORDER BY a DESC, b DESC, c DESC,"
                   " id DESC"));
}

TEST_F(RangeOfSeveralParts, BackwardLeavesOutTheRowsOfTheBeginPrefix) {
  EXPECT_EQ(
      cursor.ints(0, {Keys().number(1), Keys().number(3), true, true, true}),
      select("WHERE a IN (2, 3) ORDER BY a DESC, b DESC, c DESC, id DESC"));
}

TEST_F(RangeOfSeveralParts, NullIsAKey) {
  EXPECT_EQ(cursor.ints(0, {Keys().null(), Keys().null()}),
            select("WHERE a IS NULL ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, NullOfTheFirstPartAndAValueOfTheNext) {
  EXPECT_EQ(cursor.ints(0, {Keys().null().number(2), Keys().null().number(2)}),
            select("WHERE a IS NULL AND b = 2 ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, NullOfALaterPart) {
  EXPECT_EQ(cursor.ints(0, {Keys().number(2).null(), Keys().number(2).null()}),
            select("WHERE a = 2 AND b IS NULL ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, RangeFromNullToAValue) {
  EXPECT_EQ(cursor.ints(0, {Keys().null(), Keys().number(1)}),
            select("WHERE a IS NULL OR a = 1 ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, AfterNull) {
  EXPECT_EQ(cursor.ints(0, {Keys().null(), {}, false}),
            select("WHERE a IS NOT NULL ORDER BY a, b, c, id"));
}

TEST_F(RangeOfSeveralParts, ValuesBeyondThePartsAreIgnored) {
  const Keys keys =
      Keys().number(2).number(3).text("b").number(4).real(5).null();
  EXPECT_EQ(cursor.ints(0, {keys, keys}),
            select("WHERE a = 2 AND b = 3 AND c = 'b'"));
}

TEST_F(RangeOfSeveralParts, VeryManyValues) {
  Keys keys = Keys().number(2).number(3).text("b");
  for (int i = 3; i < 64; ++i) keys.number(i);
  EXPECT_EQ(cursor.ints(0, {keys, keys}),
            select("WHERE a = 2 AND b = 3 AND c = 'b'"));
}

// The server appends the primary key's parts to the index. A bound takes no
// values for them.
TEST_F(RangeOfSeveralParts, PrimaryKeyPartsTakeNoValue) {
  EXPECT_EQ(cursor_idx_user_col_num(cursor.handle), 3u);
  sql.exec("INSERT INTO t (a, b, c) VALUES (2, 3, 'b'), (2, 3, 'b')");
  const Ints all = select("WHERE a = 2 AND b = 3 AND c = 'b' ORDER BY id");
  ASSERT_EQ(all.size(), 3u);
  Cursor later({.index = "k"});
  for (const long long id : all) {
    const Keys keys = Keys().number(2).number(3).text("b").number(id);
    EXPECT_EQ(later.ints(0, {keys, keys}), all) << id;
    EXPECT_EQ(later.ints(0, {keys, {}, false}),
              select("WHERE (a = 2 AND b = 3 AND c = 'c') OR a = 3"
                     " ORDER BY a, b, c, id"))
        << id;
  }
}

TEST_F(RangeOfSeveralParts, DescendingPart) {
  Cursor descending({.index = "d"});
  EXPECT_EQ(descending.ints(0), select("ORDER BY a DESC, b, id"));
  EXPECT_EQ(descending.ints(0, {.reverse = true}),
            select("ORDER BY a, b DESC, id DESC"));
  // In the order of this index, 3 comes before 1.
  EXPECT_EQ(descending.ints(0, {Keys().number(3), Keys().number(2)}),
            select("WHERE a IN (2, 3) ORDER BY a DESC, b, id"));
  EXPECT_EQ(
      descending.ints(0, {Keys().number(3), Keys().number(1), false, false}),
      select("WHERE a = 2 ORDER BY a DESC, b, id"));
  EXPECT_EQ(descending.ints(0, {Keys().number(2), Keys().number(2)}),
            select("WHERE a = 2 ORDER BY b, id"));
}

TEST_F(RangeOfSeveralParts, DescendingPartBackward) {
  Cursor descending({.index = "d"});
  EXPECT_EQ(descending.ints(0, {{}, Keys().number(2), true, true, true}),
            select("WHERE a IN (2, 3) ORDER BY a, b DESC, id DESC"));
}

TEST_F(RangeOfSeveralParts, PrefixBoundOfADescendingSecondPart) {
  sql.exec(
      "CREATE TABLE e (id INT PRIMARY KEY, a INT, b INT, KEY k (a, b DESC))");
  sql.exec("INSERT INTO e SELECT id, a, b FROM t WHERE c IS NULL");
  Cursor descending({.table = "e", .index = "k"});
  EXPECT_EQ(descending.ints(
                0, {Keys().number(1).number(3), Keys().number(1).number(2)}),
            as_ints(sql.query("SELECT id FROM e WHERE a = 1 AND b IN (2, 3)"
                              " ORDER BY b DESC, id")));
  EXPECT_EQ(descending.ints(0, {Keys().number(2), Keys().number(3)}),
            as_ints(sql.query("SELECT id FROM e WHERE a IN (2, 3)"
                              " ORDER BY a, b DESC, id")));
}

// When bounds are compared with each other, NULL counts like any other value.
TEST_F(RangeOfSeveralParts, BoundsThatDifferInPartsBesideANull) {
  sql.exec("CREATE TABLE n (id INT PRIMARY KEY, a INT, b INT, KEY ab (a, b))");
  sql.exec(
      "INSERT INTO n VALUES (1, NULL, 1), (2, NULL, 2), (3, NULL, 3),"
      " (4, 2, NULL), (5, 2, 5), (6, 2, 6), (7, 3, NULL)");
  Cursor cursor({.table = "n", .index = "ab"});
  EXPECT_EQ(cursor.ints(0, {Keys().null().number(1), Keys().null().number(3)}),
            (Ints{1, 2, 3}));
  EXPECT_EQ(cursor.ints(0, {Keys().number(2).null(), Keys().number(2)}),
            (Ints{4, 5, 6}));
  EXPECT_EQ(cursor.ints(0, {Keys().number(2), Keys().number(2).null()}),
            (Ints{4}));
  EXPECT_EQ(cursor.ints(0, {Keys().number(5).null(), Keys().number(5).null()}),
            (Ints{}));
  EXPECT_EQ(cursor.ints(0, {Keys().number(2).null(), Keys().number(2).null()}),
            (Ints{4}));
}

}  // namespace
