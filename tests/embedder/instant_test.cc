// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Columns that are added and dropped without a rebuild of the table. The table
// then has rows of several row versions, and one row can have old versions from
// before such a change.

#include <algorithm>

#include "parallel_test.h"

namespace {

using namespace harness;

class InstantChange : public Parallel_test {
 protected:
  /** Whether the server has row versions. Without them, a column can only be
      added as the last one. */
  bool has_versions() {
    return sql.number(
               "SELECT COUNT(*) FROM information_schema.columns WHERE"
               " table_schema = 'information_schema' AND"
               " table_name = 'INNODB_TABLES' AND"
               " column_name = 'TOTAL_ROW_VERSIONS'") == 1;
  }

  void create(const std::string &format) {
    donor.exec("ROLLBACK");
    sql.exec("DROP TABLE IF EXISTS t");
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(300), n INT NOT"
        " NULL, KEY k (a)) ROW_FORMAT = " +
        format);
    fill("t", 2000, "i, i % 100, REPEAT('b', i % 300), i");
  }

  void change(const std::string &action) {
    sql.exec("ALTER TABLE t " + action + ", ALGORITHM = INSTANT");
  }

  /** Check that every kind of cursor reads what the donor's SQL reads. */
  void expect_donors_rows() {
    expect_whole_table();
    const Rows rows = donor.query("SELECT * FROM t ORDER BY a, id");
    ASSERT_FALSE(rows.empty());
    const Columns columns = first_columns(rows[0].size());
    Cursor cursor({.index = "k", .donor = donor.id()});
    ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
    expect_rows(cursor.texts(columns), rows);
    Rows backward = cursor.texts(columns, {.reverse = true});
    std::reverse(backward.begin(), backward.end());
    expect_rows(backward, rows);
  }
};

// The rows of the snapshot have no such columns. Opening fails, as SQL does.
TEST_F(InstantChange, OfColumnsAfterTheSnapshotIsRefused) {
  std::vector<std::string> actions{
      "ADD COLUMN c INT DEFAULT 7, ADD COLUMN d VARCHAR(10)"};
  if (has_versions()) {
    actions.push_back("ADD COLUMN z INT DEFAULT 9 FIRST");
    actions.push_back("DROP COLUMN b");
  }
  for (const char *format : {"REDUNDANT", "DYNAMIC"}) {
    for (const std::string &action : actions) {
      SCOPED_TRACE(std::string(format) + ", " + action);
      create(format);
      take_snapshot();
      sql.exec("UPDATE t SET n = -1 WHERE id % 3 = 0");
      change(action);
      ASSERT_EQ(donor.attempt("SELECT * FROM t").error, 1412u);
      for (const char *index : {"PRIMARY", "k"}) {
        for (const bool index_only : {false, true}) {
          const Cursor cursor(
              {.index = index, .index_only = index_only, .donor = donor.id()});
          EXPECT_FALSE(cursor.is_open()) << index;
          EXPECT_EQ(cursor.error, 1412u) << index;
        }
      }
      // A sequential scan checks the index when it reads, not when it is
      // opened.
      const Scan scan({.donor = donor.id()});
      const Delivered delivered = collect(scan, 2, {0});
      EXPECT_FALSE(delivered.complete);
      EXPECT_EQ(delivered.rows.size(), 0u);
    }
  }
}

TEST_F(InstantChange, OfNamesAndDefaultsAfterTheSnapshotLeavesItsRows) {
  create("DYNAMIC");
  take_snapshot();
  sql.exec("UPDATE t SET b = 'before the change' WHERE id % 3 = 0");
  change("RENAME COLUMN b TO other, ALTER COLUMN a SET DEFAULT 5");
  sql.exec("UPDATE t SET other = 'after it' WHERE id % 5 = 0");
  sql.exec("DELETE FROM t WHERE id % 7 = 0");
  EXPECT_EQ(donor.number("SELECT COUNT(*) FROM t"), 2000);
  expect_donors_rows();
  EXPECT_EQ(Cursor({.donor = donor.id()}).output_columns()[2], "other");
}

// Rows of every row version, and old versions of rows that were changed later.
TEST_F(InstantChange, OldVersionsAcrossChangesAreThoseOfSql) {
  for (const char *format : {"REDUNDANT", "COMPACT", "DYNAMIC"}) {
    SCOPED_TRACE(format);
    create(format);
    change("ADD COLUMN c INT DEFAULT 7");
    sql.exec("UPDATE t SET c = id WHERE id % 3 = 0");
    if (has_versions()) {
      change("ADD COLUMN z VARCHAR(20) DEFAULT 'first' FIRST");
      sql.exec("UPDATE t SET z = NULL WHERE id % 5 = 0");
      change("DROP COLUMN n");
      EXPECT_EQ(sql.number("SELECT total_row_versions FROM"
                           " information_schema.innodb_tables WHERE"
                           " name = 'db/t'"),
                3);
    }
    sql.exec("INSERT INTO t (id, a, b) SELECT id + 3000, a, b FROM t");
    take_snapshot();
    sql.exec("UPDATE t SET b = 'later', c = -1 WHERE id % 2 = 0");
    sql.exec("DELETE FROM t WHERE id % 11 = 0");
    expect_donors_rows();
  }
}

}  // namespace
