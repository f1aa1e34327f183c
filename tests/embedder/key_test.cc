// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Bounds on columns of every type that an index can have, with values given in
// every form.

#include <limits>
#include <utility>

#include "key_test.h"

namespace {

using namespace harness;

MYSQL_TIME moment(enum_mysql_timestamp_type kind, unsigned int year,
                  unsigned int month, unsigned int day, unsigned int hour = 0,
                  unsigned int minute = 0, unsigned int second = 0,
                  unsigned long usec = 0, bool negative = false) {
  MYSQL_TIME value = {};
  value.year = year;
  value.month = month;
  value.day = day;
  value.hour = hour;
  value.minute = minute;
  value.second = second;
  value.second_part = usec;
  value.neg = negative;
  value.time_type = kind;
  return value;
}

class Key : public Key_of {};

TEST_F(Key, Integers) {
  for (const char *type :
       {"TINYINT", "SMALLINT", "MEDIUMINT", "INT", "BIGINT"}) {
    SCOPED_TRACE(type);
    store(type, {"-128", "-1", "0", "0", "1", "127"});
    for (const int value : {-128, -100, -1, 0, 1, 2, 127})
      expect_same(Keys().number(value), std::to_string(value));
    expect_same(Keys().text("-1"), "-1");
    expect_same(Keys().real(127.0), "127");
    if (HasFailure()) return;
    sql.exec("DROP TABLE t");
  }
}

TEST_F(Key, UnsignedIntegers) {
  store("BIGINT UNSIGNED", {"0", "1", "9223372036854775808",
                            "18446744073709551614", "18446744073709551615"});
  expect_same(Keys().number(0), "0");
  // Numbers given as text are exact.
  expect_same(Keys().text("9223372036854775808"), "9223372036854775808");
  expect_same(Keys().text("18446744073709551614"), "18446744073709551614");
  expect_same(Keys().text("18446744073709551615"), "18446744073709551615");
}

TEST_F(Key, IntegersBeyond53BitsGoThroughDouble) {
  store("BIGINT", {"9007199254740992", "9007199254740993", "9007199254740994"});
  expect_same(Keys().number(9007199254740993), "9007199254740992");
  expect_same(Keys().number(9007199254740992), "9007199254740992");
  expect_same(Keys().text("9007199254740993"), "9007199254740993");
}

TEST_F(Key, NumbersOutOfRangeAreClamped) {
  store("INT", {"-2147483648", "0", "2147483647"});
  expect_same(Keys().number(1000000000000), "2147483647");
  expect_same(Keys().number(-1000000000000), "-2147483648");
  expect_same(Keys().real(1e300), "2147483647");
  expect_same(Keys().text("99999999999999999999"), "2147483647");
}

class KeyOfNan : public Cursor_test {
 protected:
  const Keys nan = Keys().real(std::numeric_limits<double>::quiet_NaN());
  const Keys zero = Keys().real(0), null = Keys().null();

  void make(const std::string &type) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, c " + type +
             ", d INT, KEY k (c), KEY l (d, c))");
    sql.exec("INSERT INTO t VALUES (1, -1, 1), (2, 0, 1), (3, 2.5, 1)");
  }

  // No value in SQL is NaN, so no row is equal to it, less or greater.
  void expect_no_row() {
    Cursor cursor({.index = "k"}), of_two({.index = "l"});
    const std::vector<std::pair<std::optional<Keys>, std::optional<Keys>>>
        bounds = {{nan, nan},  {nan, {}},   {{}, nan},  {nan, zero},
                  {zero, nan}, {null, nan}, {nan, null}};
    const Keys second =
        Keys().number(1).real(std::numeric_limits<double>::quiet_NaN());
    for (const bool closed : {false, true})
      for (const bool reverse : {false, true}) {
        for (const auto &[begin, end] : bounds)
          EXPECT_EQ(cursor.ints(0, {begin, end, closed, closed, reverse}),
                    Ints{})
              << closed << reverse;
        EXPECT_EQ(of_two.ints(0, {second, second, closed, closed, reverse}),
                  Ints{});
      }
    EXPECT_EQ(cursor.ints(0, {zero, {}}), (Ints{2, 3}));
  }
};

TEST_F(KeyOfNan, HasNoRowOfANullableColumn) {
  for (const char *type : {"FLOAT", "DOUBLE"}) {
    SCOPED_TRACE(type);
    make(type);
    sql.exec("INSERT INTO t VALUES (4, NULL, 1)");
    expect_no_row();
    EXPECT_EQ(Cursor({.index = "k"}).ints(0, {null, null}), Ints{4});
    sql.exec("DROP TABLE t");
  }
}

TEST_F(KeyOfNan, HasNoRowOfAColumnWithoutNulls) {
  for (const char *type : {"FLOAT NOT NULL", "DOUBLE NOT NULL"}) {
    SCOPED_TRACE(type);
    make(type);
    expect_no_row();
    sql.exec("DROP TABLE t");
  }
}

TEST_F(KeyOfNan, HasNoRowInParallel) {
  make("DOUBLE");
  sql.exec("INSERT INTO t VALUES (4, NULL, 1)");
  Cursor cursor({.index = "k", .index_only = true});
  const auto count = [](uint64_t batch, uint64_t, void *rows) {
    *static_cast<unsigned int *>(rows) += pread_n_tuples(batch);
    return false;
  };
  unsigned int rows = 0;
  EXPECT_FALSE(cursor.set_range({nan, nan}));
  EXPECT_TRUE(cursor_advance_parallel(cursor.handle, 1, count, &rows));
  EXPECT_EQ(rows, 0u);
  EXPECT_TRUE(cursor.set_range({zero, {}}));
  EXPECT_TRUE(cursor_advance_parallel(cursor.handle, 1, count, &rows));
  EXPECT_EQ(rows, 2u);
}

TEST_F(Key, FractionsRoundToTheColumn) {
  store("INT", {"1", "2", "3"});
  expect_same(Keys().real(1.6), "2");
  expect_same(Keys().text("2.5"), "3");
}

TEST_F(Key, Decimals) {
  store("DECIMAL(30,10)", {"-12345678901234567890.0123456789", "-0.5", "0",
                           "0.0000000001", "12345678901234567890.0123456789"});
  expect_same(Keys().text("-12345678901234567890.0123456789"),
              "-12345678901234567890.0123456789");
  expect_same(Keys().text("12345678901234567890.0123456789"),
              "12345678901234567890.0123456789");
  expect_same(Keys().text("0.0000000001"), "0.0000000001");
  expect_same(Keys().real(-0.5), "-0.5");
  expect_same(Keys().number(0), "0");
}

TEST_F(Key, Floats) {
  store("FLOAT", {"-1.5", "0", "0.25", "1000000"});
  expect_same(Keys().real(-1.5), "-1.5e0");
  expect_same(Keys().real(0.25), "0.25e0");
  expect_same(Keys().number(1000000), "1000000");
  expect_same(Keys().text("0.25"), "0.25e0");
}

TEST_F(Key, Doubles) {
  store("DOUBLE", {"-1.7e308", "-1e-300", "0", "1e-300", "1.7e308"});
  for (const double value : {-1.7e308, -1e-300, 0.0, 1e-300, 1.7e308}) {
    char text[40];
    snprintf(text, sizeof text, "%.17e", value);
    expect_same(Keys().real(value), text);
    expect_same(Keys().text(text), text);
  }
  expect_same(Keys().number(0), "0e0");
}

TEST_F(Key, Bits) {
  store("BIT(12)", {"b'0'", "b'1'", "b'100000000000'", "b'111111111111'"});
  expect_same(Keys().number(0), "0");
  expect_same(Keys().number(1), "1");
  expect_same(Keys().number(2048), "2048");
  expect_same(Keys().text(std::string("\x0f\xff", 2)), "4095");
}

TEST_F(Key, Years) {
  store("YEAR", {"1901", "2000", "2026", "2155"});
  expect_same(Keys().number(2026), "2026");
  expect_same(Keys().text("1901"), "1901");
}

TEST_F(Key, Enums) {
  store("ENUM('z','m','a')", {"'z'", "'m'", "'a'"});
  expect_same(Keys().text("m"), "2");
  expect_same(Keys().number(3), "3");
}

TEST_F(Key, Sets) {
  store("SET('x','y','z')", {"''", "'x'", "'y,x'", "'z'"});
  expect_same(Keys().text("x,y"), "3");
  expect_same(Keys().number(4), "4");
}

TEST_F(Key, Dates) {
  store("DATE",
        {"'1999-12-31'", "'2000-01-01'", "'2024-02-29'", "'9999-12-31'"});
  expect_same(Keys().text("2024-02-29"), "'2024-02-29'");
  expect_same(Keys().text("2010-06-15"), "'2010-06-15'");
  expect_same(Keys().number(20000101), "'2000-01-01'");
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_DATE, 2000, 1, 1)),
              "'2000-01-01'");
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_DATE, 9999, 12, 31)),
              "'9999-12-31'");
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_DATETIME, 2024, 2, 29)),
              "'2024-02-29'");
}

TEST_F(Key, ZeroDates) {
  sql.exec("SET sql_mode = ''");
  store("DATE",
        {"'0000-00-00'", "'2020-00-00'", "'2020-05-00'", "'2020-05-05'"});
  expect_same(Keys().text("0000-00-00"), "'0000-00-00'");
  expect_same(Keys().text("2020-05-00"), "'2020-05-00'");
}

TEST_F(Key, Datetimes) {
  store("DATETIME(6)",
        {"'1970-01-01 00:00:00'", "'2026-11-21 12:34:56.123456'",
         "'2026-11-21 12:34:57'", "'9999-12-31 23:59:59.999999'"});
  expect_same(Keys().text("2026-11-21 12:34:56.123456"),
              "'2026-11-21 12:34:56.123456'");
  expect_same(Keys().text("2026-11-21"), "'2026-11-21 00:00:00'");
  expect_same(
      Keys().time(moment(MYSQL_TIMESTAMP_DATETIME, 2026, 11, 21, 12, 34, 57)),
      "'2026-11-21 12:34:57'");
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_DATE, 1970, 1, 1)),
              "'1970-01-01 00:00:00'");
  // The server's time zone is UTC here.
  expect_same(Keys().stamp(0, 0), "'1970-01-01 00:00:00'");
  expect_same(Keys().stamp(1795264497, 0), "FROM_UNIXTIME(1795264497)");
}

TEST_F(Key, Timestamps) {
  store("TIMESTAMP(6) NULL",
        {"'1970-01-02 00:00:00'", "'2026-11-21 12:34:56.123456'",
         "'2026-11-21 12:34:57'", "'2038-01-19 00:00:00'"});
  expect_same(Keys().text("2026-11-21 12:34:57"), "'2026-11-21 12:34:57'");
  expect_same(
      Keys().time(moment(MYSQL_TIMESTAMP_DATETIME, 2026, 11, 21, 12, 34, 57)),
      "'2026-11-21 12:34:57'");
  expect_same(Keys().stamp(86400, 0), "'1970-01-02 00:00:00'");
  const int64_t seconds =
      sql.number("SELECT UNIX_TIMESTAMP('2026-11-21 12:34:56')");
  expect_same(Keys().stamp(seconds, 123456), "'2026-11-21 12:34:56.123456'");
}

TEST_F(Key, Times) {
  store("TIME", {"'-838:59:59'", "'-00:00:01'", "'00:00:00'", "'23:59:59'",
                 "'838:59:59'"});
  expect_same(Keys().text("-00:00:01"), "'-00:00:01'");
  expect_same(Keys().text("838:59:59"), "'838:59:59'");
  expect_same(Keys().number(235959), "'23:59:59'");
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 0, 23, 59, 59)),
              "'23:59:59'");
  expect_same(
      Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 0, 838, 59, 59, 0, true)),
      "'-838:59:59'");
}

TEST_F(Key, TimesWithAFraction) {
  store("TIME(3)", {"'-00:00:01.5'", "'00:00:00.001'", "'10:00:00'"});
  expect_same(Keys().text("-00:00:01.5"), "'-00:00:01.5'");
  expect_same(Keys().text("00:00:00.001"), "'00:00:00.001'");
}

// SQL rounds a fraction that is too long for the column, and it has no negative
// zero.
TEST_F(Key, TimesThatAreRounded) {
  const auto key = [](bool negative, unsigned int seconds,
                      unsigned long microseconds) {
    return Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 0, 10, 0, seconds,
                              microseconds, negative));
  };
  store("TIME", {"'10:00:00'", "'10:00:01'", "'-10:00:01'", "'-10:00:02'"});
  expect_same(key(false, 0, 700000), "CAST('10:00:00.7' AS TIME)");
  expect_same(key(true, 1, 200000), "CAST('-10:00:01.2' AS TIME)");
  expect_same(key(true, 1, 800000), "CAST('-10:00:01.8' AS TIME)");
  sql.exec("DROP TABLE t");
  store("TIME(3)", {"'10:00:00.567'", "'10:00:00.568'", "'-10:00:00.568'"});
  expect_same(key(false, 0, 567800), "CAST('10:00:00.5678' AS TIME(3))");
  expect_same(key(true, 0, 567800), "CAST('-10:00:00.5678' AS TIME(3))");
}

TEST_F(Key, TimesAtTheEnds) {
  store("TIME(6)", {"'-838:59:59'", "'00:00:00'", "'26:00:00'", "'838:59:59'"});
  for (const bool negative : {false, true}) {
    expect_same(Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 0, 0, 0, 0, 0,
                                   negative)),
                "'00:00:00'");
    expect_same(Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 0, 838, 59, 59,
                                   500000, negative)),
                negative ? "'-838:59:59'" : "'838:59:59'");
  }
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 1, 2)),
              "'26:00:00'");
  // No such time exists, so the bound has the value zero.
  expect_same(Keys().time(moment(MYSQL_TIMESTAMP_TIME, 0, 0, 34, 30)),
              "'00:00:00'");
}

TEST_F(Key, NullOfEachKind) {
  store("VARCHAR(10)", {"''", "'a'"});
  Cursor cursor({.index = "k"});
  for (const char type : {1, 2, 3, 4, 5, 9}) {
    const Keys null = Keys().raw(type, -1, "");
    EXPECT_EQ(cursor.ints(0, {null, null}), (Ints{3}));
    EXPECT_EQ(cursor.ints(0, {null, {}, false}), (Ints{1, 2}));
  }
}

TEST_F(Key, NullOfAColumnThatHasNone) {
  sql.exec("CREATE TABLE n (id INT PRIMARY KEY)");
  sql.exec("INSERT INTO n VALUES (-1), (0), (1)");
  Cursor cursor({.table = "n"});
  // A NULL bound stands for the column's zero value, whichever row was current
  // before.
  EXPECT_EQ(cursor.ints(0), (Ints{-1, 0, 1}));
  EXPECT_EQ(cursor.ints(0, {Keys().null(), Keys().null()}), (Ints{0}));
  EXPECT_EQ(cursor.ints(0), (Ints{-1, 0, 1}));
  EXPECT_EQ(cursor.ints(0, {Keys().null(), {}}), (Ints{0, 1}));
}

// The bound counts the key part as given, and the part has the value of the
// current row.
TEST_F(Key, UnknownTypeCodesStoreNothing) {
  store("INT", {"1", "2", "2", "3"});
  Cursor cursor({.index = "k"});
  const Keys two = Keys().number(2);
  for (const int type : {0, 6, 7, 100, 127, -1, -128}) {
    SCOPED_TRACE(type);
    const Keys odd = Keys().raw(static_cast<char>(type), 8, "12345678");
    ASSERT_TRUE(cursor.set_range({two, two}));
    EXPECT_EQ(cursor.ints(0, {odd, {}}), (Ints{2, 3, 4}));
    ASSERT_TRUE(cursor.set_range({two, two}));
    EXPECT_EQ(cursor.ints(0, {odd, odd}), (Ints{2, 3}));
    EXPECT_EQ(cursor.ints(0), (Ints{5, 1, 2, 3, 4}));
  }
}

// The row stores only a pointer to a large value, and the value may be gone.
// The bound therefore has the empty value.
TEST_F(Key, UnknownTypeCodesOnLargeObjects) {
  store("BLOB", {"REPEAT(X'01', 20000)", "X'02'", "''"}, "c(5)");
  Cursor cursor({.index = "k"});
  const Keys odd = Keys().raw(77, 8, "12345678");
  ASSERT_EQ(cursor.ints(0).size(), 4u);
  EXPECT_EQ(cursor.ints(0, {odd, {}}), (Ints{3, 1, 2}));
  EXPECT_EQ(cursor.ints(0, {odd, odd}), (Ints{3}));
  EXPECT_EQ(cursor.ints(0), (Ints{4, 3, 1, 2}));
}

// A timestamp is a value only for columns with a date and a time. For other
// columns, the key part has the value of the current row.
TEST_F(Key, TimestampForOtherColumnsStoresNothing) {
  for (const char *type :
       {"INT", "DATE", "TIME", "VARCHAR(10)", "DECIMAL(10,2)"}) {
    SCOPED_TRACE(type);
    const bool is_date = std::string(type) == "DATE";
    store(type, is_date
                    ? std::vector<std::string>{"'1960-01-01'", "'1970-01-02'",
                                               "'2000-01-01'"}
                    : std::vector<std::string>{"'1'", "'2'", "'3'"});
    Cursor cursor({.index = "k"});
    const Keys second = Keys().text(is_date ? "1970-01-02" : "2");
    const Keys stamp = Keys().stamp(86400 * 365, 5);
    ASSERT_TRUE(cursor.set_range({second, second}));
    EXPECT_EQ(cursor.ints(0, {stamp, {}}), (Ints{2, 3}));
    ASSERT_TRUE(cursor.set_range({second, second}));
    EXPECT_EQ(cursor.ints(0, {stamp, stamp}), (Ints{2}));
    cursor.close();
    sql.exec("DROP TABLE t");
  }
}

// The bound has the value that SQL stores in such a column for a date, a
// datetime or a time, and zero if the kind is none of these.
TEST_F(Key, MomentForOtherColumnsIsConverted) {
  sql.exec("SET sql_mode = ''");
  for (const char *type :
       {"INT", "BIGINT", "YEAR", "VARCHAR(30)", "DECIMAL(30,2)", "DOUBLE"}) {
    SCOPED_TRACE(type);
    store(type, {"DATE'2026-11-21'", "TIMESTAMP'2026-11-21 01:02:03'",
                 "TIME'01:02:03'"});
    sql.exec("INSERT INTO t VALUES (9, 0)");
    if (std::string(type).find("CHAR") != std::string::npos)
      sql.exec("UPDATE t SET c = '' WHERE id = 9");
    Cursor cursor({.index = "k"});
    const struct {
      enum_mysql_timestamp_type kind;
      const char *id;
    } moments[] = {{MYSQL_TIMESTAMP_DATE, "1"},
                   {MYSQL_TIMESTAMP_DATETIME, "2"},
                   {MYSQL_TIMESTAMP_TIME, "3"},
                   {MYSQL_TIMESTAMP_NONE, "9"},
                   {MYSQL_TIMESTAMP_ERROR, "9"}};
    for (const auto &[kind, id] : moments) {
      const bool is_time = kind == MYSQL_TIMESTAMP_TIME;
      const Keys key =
          Keys().time(is_time ? moment(kind, 0, 0, 0, 1, 2, 3)
                              : moment(kind, 2026, 11, 21, 1, 2, 3));
      const Ints equal =
          select("c = (SELECT c FROM t WHERE id = " + std::string(id) + ")");
      EXPECT_EQ(cursor.ints(0, {key, key}), equal) << kind;
    }
    cursor.close();
    sql.exec("DROP TABLE t");
  }
}

TEST_F(Key, ImpossibleMomentsAreTheZeroOfTheColumn) {
  sql.exec("SET sql_mode = ''");
  for (const char *type :
       {"DATE", "DATETIME(6)", "TIMESTAMP NULL", "TIME(6)"}) {
    SCOPED_TRACE(type);
    const bool is_time = std::string(type) == "TIME(6)";
    store(type, is_time ? std::vector<std::string>{"'-10:00'", "0", "'10:00'"}
                        : std::vector<std::string>{"0", "'1970-01-02'",
                                                   "'2026-11-21'"});
    const Ints equal = is_time ? Ints{2} : Ints{1};
    const Ints from = is_time ? Ints{2, 3} : Ints{1, 2, 3};
    Cursor cursor({.index = "k"});
    for (const auto kind : {MYSQL_TIMESTAMP_DATE, MYSQL_TIMESTAMP_DATETIME,
                            MYSQL_TIMESTAMP_TIME}) {
      const Keys key =
          Keys().time(moment(kind, 99999, 77, 88, 99, 99, 99, 99999999, true));
      EXPECT_EQ(cursor.ints(0, {key, key}), equal) << kind;
      EXPECT_EQ(cursor.ints(0, {key, {}}), from) << kind;
    }
    cursor.close();
    sql.exec("DROP TABLE t");
  }
}

TEST_F(Key, ImpossibleTimestampsAreTheZeroOfTheColumn) {
  constexpr int64_t wraps_to_2001 = (int64_t{1} << 32) + 1000000000;
  constexpr auto most = std::numeric_limits<int64_t>::max();
  constexpr auto least = std::numeric_limits<int64_t>::min();
  for (const char *type :
       {"DATETIME", "DATETIME(6)", "TIMESTAMP NULL", "TIMESTAMP(6) NULL"}) {
    store(type, {"'1970-01-02'", "'2026-11-21'"});
    Cursor cursor({.index = "k"});
    for (const Keys &stamp :
         {Keys().stamp(most, 0), Keys().stamp(least, 0),
          Keys().stamp(wraps_to_2001 << 20, 0),
          Keys().stamp(1000000000, 1000000), Keys().stamp(1000000000, -1),
          Keys().stamp(1000000000, most), Keys().stamp(1000000000, least)})
      EXPECT_EQ(cursor.ints(0, {stamp, {}}), (Ints{1, 2})) << type;
    cursor.close();
    sql.exec("DROP TABLE t");
  }
  store("TIMESTAMP NULL", {"'1970-01-02'", "'2026-11-21'"});
  Cursor cursor({.index = "k"});
  for (const int64_t seconds : {int64_t{-1}, wraps_to_2001})
    EXPECT_EQ(cursor.ints(0, {Keys().stamp(seconds, 0), {}}), (Ints{1, 2}));
}

TEST_F(Key, TextThatIsNoNumberOrDate) {
  store("INT", {"0", "5"});
  Cursor cursor({.index = "k"});
  EXPECT_EQ(cursor.ints(0, {Keys().text("zero"), Keys().text("zero")}),
            (Ints{1}));
  EXPECT_EQ(cursor.ints(0, {Keys().text("5x"), Keys().text("5x")}), (Ints{2}));
}

}  // namespace
