// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// With every page size, a read gives the rows, keys and large values of SQL.

#include <algorithm>

#include "parallel_test.h"

namespace {

using namespace harness;

class Page_size : public Parallel_test {
 protected:
  void check(int64_t size, const std::vector<std::string> &formats) {
    ASSERT_EQ(sql.number("SELECT @@innodb_page_size"), size);
    for (const std::string &format : formats) {
      SCOPED_TRACE(format);
      make_table(format);
      take_snapshot();
      change();
      EXPECT_GE(tree_levels(), 2u);
      compare();
      donor.exec("ROLLBACK");
    }
  }

 private:
  // Values on both sides of the size from which a page keeps a pointer.
  void make_table(const std::string &format) {
    sql.exec("DROP TABLE IF EXISTS t");
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(30), c LONGTEXT,"
        " KEY k (a, b)) ROW_FORMAT = " +
        format);
    fill("t", 1500,
         "i, (i * 7919) % 1009, CONCAT('row ', i),"
         " REPEAT(CHAR(65 + i % 26), i * 37 % 20000)");
    sql.exec(
        "INSERT INTO t VALUES (2001, NULL, NULL, NULL),"
        " (2002, NULL, '', REPEAT('large', 100000))");
  }

  void change() {
    sql.exec(
        "UPDATE t SET c = REPEAT('u', 30000 - LENGTH(c)) WHERE id % 9 = 0");
    sql.exec("UPDATE t SET a = a + 500 WHERE id % 10 = 0");
    sql.exec("DELETE FROM t WHERE id % 7 = 0");
    sql.exec("INSERT INTO t VALUES (3000, 1, 'later', REPEAT('l', 50000))");
  }

  void compare() {
    expect_whole_table();
    expect_range({.index = "k", .index_only = true},
                 {Keys().number(100), Keys().number(900)}, {1, 2, 0},
                 "SELECT a, b, id FROM t WHERE a BETWEEN 100 AND 900",
                 // With pages of 64 KB it is a single page.
                 Workers::any);
    for (const char *index : {"PRIMARY", "k"}) {
      SCOPED_TRACE(index);
      const bool primary = std::string(index) == "PRIMARY";
      const Rows rows = donor.query(std::string("SELECT * FROM t ORDER BY ") +
                                    (primary ? "id" : "a, b, id"));
      Cursor cursor({.index = index, .donor = donor.id()});
      expect_rows(cursor.texts({0, 1, 2, 3}), rows);
      Rows backward = cursor.texts({0, 1, 2, 3}, {.reverse = true});
      std::reverse(backward.begin(), backward.end());
      expect_rows(backward, rows);
    }
  }
};

class PageSize4k : public Page_size {};
class PageSize8k : public Page_size {};
class PageSize32k : public Page_size {};
class PageSize64k : public Page_size {};

TEST_F(PageSize4k, ReadsAreThoseOfSql) {
  check(4096, {"REDUNDANT", "DYNAMIC", "COMPRESSED KEY_BLOCK_SIZE = 2"});
}

TEST_F(PageSize8k, ReadsAreThoseOfSql) {
  check(8192, {"REDUNDANT", "DYNAMIC", "COMPRESSED KEY_BLOCK_SIZE = 4"});
}

// InnoDB does not compress larger pages.
TEST_F(PageSize32k, ReadsAreThoseOfSql) {
  check(32768, {"REDUNDANT", "DYNAMIC"});
}

TEST_F(PageSize64k, ReadsAreThoseOfSql) {
  check(65536, {"REDUNDANT", "DYNAMIC"});
}

}  // namespace
