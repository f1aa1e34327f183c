// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Read sets, NULLs, and columns whose values lie in an unusual place of the
// record.

#include <algorithm>

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelReadSet : public Parallel_test {
 protected:
  ParallelReadSet() {
    std::string columns = "id INT PRIMARY KEY", values = "i";
    for (unsigned int i = 1; i < n_columns; ++i) {
      const std::string name = "c" + std::to_string(i), n = std::to_string(i);
      const char *types[] = {" INT", " VARCHAR(40)", " BIGINT NOT NULL",
                             " TEXT", " CHAR(7)"};
      columns += ", " + name + types[i % 5];
      values += i % 5 == 2   ? ", i * " + n
                : i % 5 == 0 ? ", NULLIF((i * " + n + ") % 7, 0)"
                             : ", IF((i + " + n + ") % 3, CONCAT(i), NULL)";
    }
    sql.exec("CREATE TABLE t (" + columns + ")");
    fill("t", n_rows, values);
  }

  /** Expect the columns of the read set to be those of SQL, and the others to
      have no value. */
  void expect_columns(const std::vector<uint32_t> &positions) {
    std::string select;
    for (unsigned int i = 0; i < n_columns; ++i) {
      const bool read =
          std::find(positions.begin(), positions.end(), i) != positions.end();
      const std::string name = i == 0 ? "id" : "c" + std::to_string(i);
      select += (i ? "," : "SELECT ") + (read ? name : std::string("NULL"));
    }
    const Rows expected = donor_rows(select + " FROM t");
    Scan scan;
    scan.set_columns(positions);
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      expect_rows(collect(scan, threads, first_columns(n_columns)).rows,
                  expected);
    }
  }

  static constexpr unsigned int n_columns = 20;
  static constexpr size_t n_rows = 4000;
};

TEST_F(ParallelReadSet, EachColumnAlone) {
  for (unsigned int i = 0; i < n_columns; ++i) {
    SCOPED_TRACE(i);
    expect_columns({i});
  }
}

TEST_F(ParallelReadSet, FromOneToAll) {
  std::vector<uint32_t> positions;
  for (unsigned int i = 0; i < n_columns; ++i) {
    positions.push_back(i);
    SCOPED_TRACE(i);
    expect_columns(positions);
  }
}

TEST_F(ParallelReadSet, FromTheLastToAll) {
  std::vector<uint32_t> positions;
  for (unsigned int i = n_columns; i-- > 0;) positions.push_back(i);
  expect_columns({positions.begin(), positions.begin() + 5});
  expect_columns(positions);
}

TEST_F(ParallelReadSet, None) {
  Scan scan;
  scan.set_columns({});
  for (const size_t threads : thread_counts) {
    const Delivered delivered =
        collect(scan, threads, first_columns(n_columns));
    EXPECT_TRUE(delivered.complete);
    expect_rows(delivered.rows, Rows(n_rows, Row(n_columns)));
  }
}

TEST_F(ParallelReadSet, PositionsBeyondTheTableAreSkipped) {
  expect_columns({1, 20, 21, 64, 4096, 4294967295});
}

TEST_F(ParallelReadSet, ChangesFromReadToRead) {
  Scan scan;
  scan.set_columns({0});
  EXPECT_FALSE(collect(scan, 3, {1, 2}).rows[0][1]);
  scan.set_columns({2});
  expect_rows(collect(scan, 3, {0, 2}).rows,
              donor_rows("SELECT NULL, c2 FROM t"));
  scan.set_columns({0, 1, 2});
  expect_rows(collect(scan, 3, {0, 1, 2}).rows,
              donor_rows("SELECT id, c1, c2 FROM t"));
}

// The read may fetch the key's columns as well as the read set. Column 1 is in
// neither, so it has no value.
TEST_F(ParallelReadSet, OfAnIndexCursor) {
  Cursor cursor;
  cursor.set_columns({3, 7});
  cursor.set_range({Keys().number(100), Keys().number(3900)});
  for (const size_t threads : thread_counts)
    expect_rows(collect(cursor, threads, {1, 3, 7}).rows,
                donor_rows("SELECT NULL, c3, c7 FROM t WHERE id BETWEEN 100 AND"
                           " 3900"));
}

TEST_F(ParallelReadSet, OfARowThatIsFetched) {
  sql.exec("CREATE TABLE u (id INT PRIMARY KEY, a INT, b INT, c INT, " +
           filler(2000) + ", KEY by_a (a, pad))");
  fill("u", 200, "i, i, i + 1000, i + 2000");
  Cursor cursor({.table = "u", .index = "by_a"});
  cursor.set_columns({3});
  for (const size_t threads : thread_counts)
    expect_rows(collect(cursor, threads, {2, 3}).rows,
                donor_rows("SELECT NULL, c FROM u"));
}

class ParallelNull : public Parallel_test {};

TEST_F(ParallelNull, EveryColumnOfManyNullBits) {
  std::string columns = "id INT PRIMARY KEY", values = "i";
  for (int i = 1; i <= 70; ++i) {
    columns += ", c" + std::to_string(i) + (i % 2 ? " INT" : " VARCHAR(9)");
    values += ", IF(i % 70 = " + std::to_string(i % 70) + ", NULL, i)";
  }
  sql.exec("CREATE TABLE t (" + columns + ")");
  fill("t", 2000, values);
  expect_whole_table();
}

TEST_F(ParallelNull, RowsOfNothingElse) {
  sql.exec("CREATE TABLE t (a INT, b TEXT, c DATE, d JSON, e BIT(3))");
  fill("t", 20000, "NULL, NULL, NULL, NULL, NULL");
  expect_whole_table();
}

TEST_F(ParallelNull, BitsAmongTheNullBits) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a BIT(13), b BIT(1), c INT,"
      " d BIT(7) NOT NULL)");
  fill("t", 12000,
       "i, IF(i % 3, i % 8192, NULL), IF(i % 5, i % 2, NULL),"
       " NULLIF(i % 4, 0), i % 128");
  expect_whole_table();
}

}  // namespace
