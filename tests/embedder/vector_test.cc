// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Columns of type VECTOR, on servers that have the type.

#include "parallel_test.h"

namespace {

using namespace harness;

class VectorColumn : public Parallel_test {
 protected:
  bool host_has_it() {
    return sql.attempt("SELECT STRING_TO_VECTOR('[1]')").error == 0;
  }
};

// The largest vectors are stored off the page.
TEST_F(VectorColumn, ReadsAsTheBytesThatSqlGives) {
  if (!host_has_it()) return;
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a VECTOR(4), b VECTOR(16383),"
      " c VECTOR(2) NOT NULL)");
  fill("t", 600,
       "i, IF(i % 5 = 0, NULL, STRING_TO_VECTOR(CONCAT('[', i, ',-', i,"
       " ',1e30,0.1]'))), STRING_TO_VECTOR(CONCAT('[1', REPEAT(',0.5',"
       " i * 41 % 6000), ']')), STRING_TO_VECTOR('[3,4]')");
  take_snapshot();
  sql.exec("UPDATE t SET b = STRING_TO_VECTOR('[9]') WHERE id % 3 = 0");
  sql.exec("UPDATE t SET c = STRING_TO_VECTOR('[5,6]') WHERE id % 4 = 0");
  sql.exec("DELETE FROM t WHERE id % 7 = 0");
  expect_whole_table();
  Cursor cursor({.donor = donor.id()});
  expect_rows(cursor.texts({0, 1, 2, 3}),
              donor.query("SELECT * FROM t ORDER BY id"));
}

TEST_F(VectorColumn, HasNeitherDateNorTimeAndIsNoNumber) {
  if (!host_has_it()) return;
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a VECTOR(4))");
  sql.exec("INSERT INTO t VALUES (1, STRING_TO_VECTOR('[1,2]'))");
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_int(1), 0);
  EXPECT_EQ(cursor.read_real(1), 0.0);
  EXPECT_EQ(cursor.read_decimal(1).value().text(), "0");
  EXPECT_EQ(cursor.read_date(1), -730517);
  EXPECT_EQ(cursor.read_time(1), 0);
  EXPECT_EQ(cursor.read_datetime(1), -730517 * 86400000000);
}

}  // namespace
