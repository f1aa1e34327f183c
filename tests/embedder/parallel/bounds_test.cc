// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Bounds of each kind, open, closed or absent, at either end of a range and on
// keys of every type. Their values exist, were deleted, never existed, or lie
// outside the table's values.

#include "parallel_test.h"

namespace {

using namespace harness;

enum Bound { none, closed, open };

/** A bound's value, as the cursor takes it and as a SQL literal. */
struct Key_value {
  Keys keys;
  std::string sql;
};

class Bounds : public Parallel_test {
 protected:
  /** Read with all pairs of values as bounds, for every number of threads. */
  void check(Bound begin, Bound end) {
    const std::vector<Key_value> at_begin = values_of(begin),
                                 at_end = values_of(end);
    Open open = open_;
    open.donor = donor.id();
    Cursor cursor(open);
    ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
    cursor.set_columns(columns_);
    for (const Key_value &from : at_begin) {
      for (const Key_value &to : at_end) {
        Range range;
        std::string where = " WHERE 1";
        if (begin != none) {
          range.begin = from.keys;
          where += " AND " + left(from.sql) + (falling_ ? " <" : " >") +
                   (begin == closed ? "= " : " ") + from.sql;
        }
        if (end != none) {
          range.end = to.keys;
          where += " AND " + left(to.sql) + (falling_ ? " >" : " <") +
                   (end == closed ? "= " : " ") + to.sql;
        }
        range.closed_begin = begin == closed;
        range.closed_end = end == closed;
        cursor.set_range(range);
        compare(cursor, where);
      }
    }
  }

  /** The SQL expression that is compared with the bound's value. */
  virtual std::string left(const std::string &) const { return key_; }

  Open open_;
  std::string key_;
  std::string select_ = "SELECT *";
  bool falling_ = false;  // the index is descending
  std::vector<Key_value> values_;
  std::vector<uint32_t> columns_{0, 1};
  size_t rows_of_a_page_ = 2;

 private:
  std::vector<Key_value> values_of(Bound bound) const {
    return bound == none ? std::vector<Key_value>(1) : values_;
  }

  void compare(const Cursor &cursor, const std::string &where) {
    const Rows expected = donor_rows(select_ + " FROM t" + where);
    const Workers workers =
        expected.size() > 4 * rows_of_a_page_ ? Workers::several : Workers::any;
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads" + where.substr(0, 200));
      const Delivered delivered = collect(cursor, threads, {0, 1}, workers);
      EXPECT_TRUE(delivered.complete);
      expect_rows(delivered.rows, expected);
    }
  }
};

/** Even numbers, two rows to a page; some rows are deleted. */
class ParallelBoundsInteger : public Bounds {
 protected:
  ParallelBoundsInteger() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(8000))"
        " CHARACTER SET latin1");
    fill("t", 200, "i * 2, i % 7, REPEAT('w', 7000)");
    sql.exec("DELETE FROM t WHERE id BETWEEN 100 AND 120");
    wait_for_purge();
    key_ = "id";
    select_ = "SELECT id, v";
    for (const int value : {-5, 2, 110, 201, 302, 400, 9999})
      values_.push_back({Keys().number(value), std::to_string(value)});
  }
};

TEST_F(ParallelBoundsInteger, NoBounds) { check(none, none); }
TEST_F(ParallelBoundsInteger, ClosedBegin) { check(closed, none); }
TEST_F(ParallelBoundsInteger, OpenBegin) { check(open, none); }
TEST_F(ParallelBoundsInteger, ClosedEnd) { check(none, closed); }
TEST_F(ParallelBoundsInteger, OpenEnd) { check(none, open); }
TEST_F(ParallelBoundsInteger, ClosedBeginClosedEnd) { check(closed, closed); }
TEST_F(ParallelBoundsInteger, ClosedBeginOpenEnd) { check(closed, open); }
TEST_F(ParallelBoundsInteger, OpenBeginClosedEnd) { check(open, closed); }
TEST_F(ParallelBoundsInteger, OpenBeginOpenEnd) { check(open, open); }

/** Keys so long that a page holds 25 of them, under a collation that ignores
    case. */
class ParallelBoundsString : public Bounds {
 protected:
  ParallelBoundsString() {
    sql.exec(
        "CREATE TABLE t (k VARCHAR(700) CHARACTER SET utf8mb4 COLLATE"
        " utf8mb4_0900_ai_ci PRIMARY KEY, v INT)");
    fill("t", 300, "CONCAT('Key', LPAD(i * 2, 5, '0'), REPEAT('x', 600)), i");
    sql.exec("DELETE FROM t WHERE v BETWEEN 100 AND 110");
    wait_for_purge();
    key_ = "k";
    rows_of_a_page_ = 25;
    const std::string rest(600, 'x');
    for (const std::string &value :
         {std::string("a"), "key00002" + rest, "KEY00210" + rest,
          "kEy00303" + rest, "key00500" + rest, std::string("z")})
      values_.push_back(
          {Keys().text(value), "'" + value + "' COLLATE utf8mb4_0900_ai_ci"});
  }
};

TEST_F(ParallelBoundsString, NoBounds) { check(none, none); }
TEST_F(ParallelBoundsString, ClosedBegin) { check(closed, none); }
TEST_F(ParallelBoundsString, OpenBegin) { check(open, none); }
TEST_F(ParallelBoundsString, ClosedEnd) { check(none, closed); }
TEST_F(ParallelBoundsString, OpenEnd) { check(none, open); }
TEST_F(ParallelBoundsString, ClosedBeginClosedEnd) { check(closed, closed); }
TEST_F(ParallelBoundsString, ClosedBeginOpenEnd) { check(closed, open); }
TEST_F(ParallelBoundsString, OpenBeginClosedEnd) { check(open, closed); }
TEST_F(ParallelBoundsString, OpenBeginOpenEnd) { check(open, open); }

/** Bounds that give the first part of a key, and so cover all keys that begin
    with it, and bounds that give both parts. */
class ParallelBoundsComposite : public Bounds {
 protected:
  ParallelBoundsComposite() {
    sql.exec(
        "CREATE TABLE t (a INT, b VARCHAR(600) CHARACTER SET latin1,"
        " v INT, PRIMARY KEY (a, b))");
    fill("t", 300,
         "i DIV 30 * 2, CONCAT(LPAD(i, 4, '0'), REPEAT('b', 596)), i");
    sql.exec("DELETE FROM t WHERE a = 8");
    wait_for_purge();
    select_ = "SELECT a, b";
    rows_of_a_page_ = 25;
    for (const int a : {-1, 4, 8, 9, 20})
      values_.push_back({Keys().number(a), std::to_string(a)});
    const std::string present = "0155" + std::string(596, 'b');
    values_.push_back(
        {Keys().number(10).text(present), "(10, '" + present + "')"});
    values_.push_back({Keys().number(10).text("0155c"), "(10, '0155c')"});
  }
  std::string left(const std::string &value) const override {
    return value[0] == '(' ? "(a, b)" : "a";
  }
};

TEST_F(ParallelBoundsComposite, NoBounds) { check(none, none); }
TEST_F(ParallelBoundsComposite, ClosedBegin) { check(closed, none); }
TEST_F(ParallelBoundsComposite, OpenBegin) { check(open, none); }
TEST_F(ParallelBoundsComposite, ClosedEnd) { check(none, closed); }
TEST_F(ParallelBoundsComposite, OpenEnd) { check(none, open); }
TEST_F(ParallelBoundsComposite, ClosedBeginClosedEnd) { check(closed, closed); }
TEST_F(ParallelBoundsComposite, ClosedBeginOpenEnd) { check(closed, open); }
TEST_F(ParallelBoundsComposite, OpenBeginClosedEnd) { check(open, closed); }
TEST_F(ParallelBoundsComposite, OpenBeginOpenEnd) { check(open, open); }

/** The index is in descending order, so a range begins at its greatest
    value. */
class ParallelBoundsDescending : public Bounds {
 protected:
  ParallelBoundsDescending() {
    sql.exec(
        "CREATE TABLE t (id INT, v INT, w VARCHAR(8000),"
        " PRIMARY KEY (id DESC)) CHARACTER SET latin1");
    fill("t", 100, "i * 2, i, REPEAT('w', 7000)");
    key_ = "id";
    select_ = "SELECT id, v";
    falling_ = true;
    for (const int value : {-5, 2, 101, 150, 200, 999})
      values_.push_back({Keys().number(value), std::to_string(value)});
  }
};

TEST_F(ParallelBoundsDescending, NoBounds) { check(none, none); }
TEST_F(ParallelBoundsDescending, ClosedBegin) { check(closed, none); }
TEST_F(ParallelBoundsDescending, OpenBegin) { check(open, none); }
TEST_F(ParallelBoundsDescending, ClosedEnd) { check(none, closed); }
TEST_F(ParallelBoundsDescending, OpenEnd) { check(none, open); }
TEST_F(ParallelBoundsDescending, ClosedBeginClosedEnd) {
  check(closed, closed);
}
TEST_F(ParallelBoundsDescending, ClosedBeginOpenEnd) { check(closed, open); }
TEST_F(ParallelBoundsDescending, OpenBeginClosedEnd) { check(open, closed); }
TEST_F(ParallelBoundsDescending, OpenBeginOpenEnd) { check(open, open); }

/** An index-only read of a secondary index with NULLs, which sort first. */
class ParallelBoundsNullable : public Bounds {
 protected:
  ParallelBoundsNullable() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(600)"
        " CHARACTER SET latin1, KEY k (a, b))");
    fill("t", 300,
         "i, NULLIF(i DIV 50, 3),"
         " IF(i % 3, CONCAT(LPAD(i, 4, '0'), REPEAT('b', 596)), NULL)");
    open_ = {.index = "k", .index_only = true};
    select_ = "SELECT id, a";
    rows_of_a_page_ = 37;  // a third of them have no b
    for (const char *a : {"-1000", "-1", "2", "3", "5"})
      values_.push_back(
          {std::string(a) == "-1000" ? Keys().null() : Keys().number(atoi(a)),
           a});
    const std::string b = "0205" + std::string(596, 'b');
    values_.push_back({Keys().number(4).text(b), "(4, '" + b + "')"});
    values_.push_back({Keys().number(4).null(), "(4, '')"});
    values_.push_back({Keys().null().text("0160"), "(-1000, '0160')"});
    values_.push_back({Keys().null().null(), "(-1000, '')"});
  }
  std::string left(const std::string &value) const override {
    return value[0] == '(' ? "(IFNULL(a, -1000), IFNULL(b, ''))"
                           : "IFNULL(a, -1000)";
  }
};

TEST_F(ParallelBoundsNullable, NoBounds) { check(none, none); }
TEST_F(ParallelBoundsNullable, ClosedBegin) { check(closed, none); }
TEST_F(ParallelBoundsNullable, OpenBegin) { check(open, none); }
TEST_F(ParallelBoundsNullable, ClosedEnd) { check(none, closed); }
TEST_F(ParallelBoundsNullable, OpenEnd) { check(none, open); }
TEST_F(ParallelBoundsNullable, ClosedBeginClosedEnd) { check(closed, closed); }
TEST_F(ParallelBoundsNullable, ClosedBeginOpenEnd) { check(closed, open); }
TEST_F(ParallelBoundsNullable, OpenBeginClosedEnd) { check(open, closed); }
TEST_F(ParallelBoundsNullable, OpenBeginOpenEnd) { check(open, open); }

}  // namespace
