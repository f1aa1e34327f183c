// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "value_test.h"

#include <cmath>
#include <cstdlib>

namespace harness {

Expected datetimes() {
  Expected expected;
  expected.date = "TO_DAYS(c) - TO_DAYS('2000-01-01')";
  expected.time = "TIMESTAMPDIFF(MICROSECOND, DATE(c), CAST(c AS DATETIME(6)))";
  expected.datetime = "TIMESTAMPDIFF(MICROSECOND, '2000-01-01', c)";
  return expected;
}

Expected dates() {
  Expected expected = datetimes();
  expected.time = "0";
  return expected;
}

Expected times() {
  Expected expected;
  expected.date = "TO_DAYS(CAST(c AS DATETIME(6))) - TO_DAYS('2000-01-01')";
  expected.time =
      "TIMESTAMPDIFF(MICROSECOND, '2000-01-01', ADDTIME('2000-01-01 0:0', c))";
  expected.datetime =
      "TIMESTAMPDIFF(MICROSECOND, '2000-01-01', CAST(c AS DATETIME(6)))";
  return expected;
}

namespace {

/** The decimal number without leading zeros and without trailing zeros of its
    fraction. */
std::string plain(std::string text) {
  const bool negative = text[0] == '-';
  if (negative) text.erase(0, 1);
  if (text.find('.') != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
  return negative && text != "0" ? "-" + text : text;
}

}  // namespace

void Value_test::store(const std::string &type,
                       const std::vector<std::string> &values) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, c " + type + ")");
  int id = 0;
  for (const std::string &value : values)
    sql.exec("INSERT INTO t VALUES (" + std::to_string(++id) + ", " + value +
             ")");
  if (type.find("NOT NULL") == std::string::npos)
    sql.exec("INSERT INTO t VALUES (" + std::to_string(++id) + ", NULL)");
}

void Value_test::compare(const Expected &expected) {
  // The server returns text in the column's own character set, without
  // conversion.
  sql.exec("SET character_set_results = NULL");
  const Rows rows = sql.query(
      "SELECT " + expected.integer + "," + expected.real + "," + expected.text +
      "," + expected.decimal + "," + expected.date + "," + expected.time + "," +
      expected.datetime + ", c IS NULL FROM t ORDER BY id");
  sql.exec("SET character_set_results = utf8mb4");
  Cursor cursor;
  ASSERT_TRUE(cursor.is_open()) << cursor.error << " " << cursor.message;
  ASSERT_TRUE(cursor.set_range());
  for (const Row &row : rows) {
    ASSERT_TRUE(cursor.next());
    SCOPED_TRACE("row " + std::to_string(cursor.read_int(0).value()) + ": " +
                 row[2].value_or("NULL").substr(0, 100));
    if (row[7] == "1") {
      EXPECT_FALSE(cursor.read_int(1));
      EXPECT_FALSE(cursor.read_real(1));
      EXPECT_FALSE(cursor.read_text(1));
      EXPECT_FALSE(cursor.read_decimal(1));
      EXPECT_FALSE(cursor.read_date(1));
      EXPECT_FALSE(cursor.read_time(1));
      EXPECT_FALSE(cursor.read_datetime(1));
      continue;
    }
    EXPECT_EQ(cursor.read_int(1), std::stoll(row[0].value()));
    const double real = strtod(row[1].value().c_str(), nullptr);
    EXPECT_EQ(cursor.read_real(1), real);
    EXPECT_EQ(std::signbit(cursor.read_real(1).value()), std::signbit(real));
    EXPECT_TRUE(cursor.read_text(1) == row[2])
        << cursor.read_text(1).value().substr(0, 100) << ", expected "
        << row[2].value().substr(0, 100);
    EXPECT_EQ(plain(cursor.read_decimal(1).value().text()),
              plain(row[3].value()));
    EXPECT_EQ(cursor.read_date(1), std::stol(row[4].value()));
    EXPECT_EQ(cursor.read_time(1), std::stoll(row[5].value()));
    EXPECT_EQ(cursor.read_datetime(1), std::stoll(row[6].value()));
  }
  EXPECT_FALSE(cursor.next());
}

}  // namespace harness
