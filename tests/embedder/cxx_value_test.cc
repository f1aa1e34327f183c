// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// cursor.hpp: the C++ types of values, compared with the values that SQL gives.

#include <chrono>
#include <string>
#include <vector>

#include "cursor_test.h"

namespace {

using namespace harness;
using morvena_sn::Datetime;
using morvena_sn::Days;
using morvena_sn::Duration;
using morvena_sn::Int128;

class CxxValue : public Cursor_test {
 protected:
  CxxValue() { sql.exec("SET sql_mode = ''"); }

  void store(const std::string &type, const std::vector<std::string> &values) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, c " + type +
             ")");
    for (const std::string &value : values)
      sql.exec("INSERT INTO t (c) VALUES (" + value + ")");
  }

  /** Column c of each row. */
  template <class T>
  std::vector<std::optional<T>> values() {
    morvena_sn::Cursor cursor("db", "t");
    std::vector<std::optional<T>> values;
    for (const auto row : cursor) values.push_back(row.get<T>("c"));
    return values;
  }
};

TEST_F(CxxValue, IntegersHaveAllTheirBits) {
  store("BIGINT UNSIGNED", {"0", "9223372036854775813", "NULL"});
  EXPECT_EQ(values<uint64_t>(), (std::vector<std::optional<uint64_t>>{
                                    0, 9223372036854775813u, {}}));
  EXPECT_EQ(values<int64_t>()[1], INT64_MIN + 5);
}

TEST_F(CxxValue, RealsAndTextsAreRead) {
  store("VARCHAR(20)", {"'1.5'", "''", "NULL", "'a\\0b'"});
  EXPECT_EQ(values<double>()[0], 1.5);
  EXPECT_EQ(values<double>()[2], std::nullopt);
  const std::string with_zero("a\0b", 3);
  EXPECT_EQ(values<std::string>(), (std::vector<std::optional<std::string>>{
                                       "1.5", "", {}, with_zero}));
}

TEST_F(CxxValue, TextViewsShowTheRowsBytes) {
  store("VARCHAR(20)", {"'one'"});
  morvena_sn::Cursor cursor("db", "t");
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.get<std::string_view>("c"), "one");
}

// SQL prints all fraction digits of the column's type.
TEST_F(CxxValue, DecimalsOfAllDigitsAreTheTextOfSql) {
  const std::string all =
      std::string(35, '9') + "." + std::string(29, '8') + "7";
  store("DECIMAL(65,30)", {all, "-" + all, "0", "-0.5", "12345678901234567890",
                           "0.000000000000000000000000000001"});
  const Rows expected = sql.query("SELECT c FROM t ORDER BY id");
  const auto decimals = values<Decimal>();
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(decimals[i]->text(30), *expected[i][0]);
  EXPECT_EQ(decimals[0]->text(), all);
  EXPECT_EQ(decimals[2]->text(), "0");
  EXPECT_EQ(decimals[3]->text(), "-0.5");
  EXPECT_EQ(decimals[4]->text(), "12345678901234567890");
  EXPECT_EQ(decimals[5]->scale(), 30u);
}

TEST_F(CxxValue, DecimalsWithoutAFractionHaveNoPoint) {
  store("DECIMAL(65,0)", {std::string(65, '9'), "-" + std::string(65, '1')});
  const auto decimals = values<Decimal>();
  EXPECT_EQ(decimals[0]->text(), std::string(65, '9'));
  EXPECT_EQ(decimals[1]->text(), "-" + std::string(65, '1'));
  EXPECT_EQ(decimals[1]->text(2), "-" + std::string(65, '1') + ".00");
}

TEST_F(CxxValue, DecimalsScaleToIntegers) {
  store("DECIMAL(12,3)", {"12.5", "-12.5", "0.001", "0", "-1000"});
  const auto decimals = values<Decimal>();
  EXPECT_TRUE(decimals[0]->scaled(1) == Int128{125});
  EXPECT_TRUE(decimals[0]->scaled(9) == Int128{12500000000});
  EXPECT_TRUE(decimals[1]->scaled(3) == Int128{-12500});
  EXPECT_EQ(decimals[1]->scale(), 1u);
  EXPECT_TRUE(decimals[2]->scaled(3) == Int128{1});
  EXPECT_TRUE(decimals[3]->scaled(0) == Int128{0});
  EXPECT_TRUE(decimals[4]->scaled(0) == Int128{-1000});
  EXPECT_TRUE(decimals[4]->scaled(20) ==
              Int128{-1000} * 10000000000 * 10000000000);
}

TEST_F(CxxValue, DecimalsDoNotLoseDigitsSilently) {
  store("DECIMAL(12,3)", {"12.505"});
  const auto decimals = values<Decimal>();
  EXPECT_FALSE(decimals[0]->scaled(2).has_value());
  EXPECT_FALSE(decimals[0]->scaled(0).has_value());
  EXPECT_TRUE(decimals[0]->scaled(3) == Int128{12505});
}

// 2^127 - 1 is the largest integer of 128 bits, and -2^127 the smallest.
TEST_F(CxxValue, DecimalsBeyond128BitsAreReported) {
  const std::string highest = "170141183460469231731687303715884105727";
  const std::string above = "170141183460469231731687303715884105728";
  store("DECIMAL(65,0)", {highest, above, "-" + above, "-" + above + "0",
                          std::string(65, '9'), "-" + std::string(65, '9')});
  const auto decimals = values<Decimal>();
  ASSERT_TRUE(decimals[0]->scaled(0).has_value());
  EXPECT_EQ(morvena_sn::to_text(*decimals[0]->scaled(0)), highest);
  EXPECT_FALSE(decimals[0]->scaled(1).has_value());
  EXPECT_FALSE(decimals[1]->scaled(0).has_value());
  ASSERT_TRUE(decimals[2]->scaled(0).has_value());
  EXPECT_EQ(morvena_sn::to_text(*decimals[2]->scaled(0)), "-" + above);
  EXPECT_FALSE(decimals[3]->scaled(0).has_value());
  EXPECT_FALSE(decimals[4]->scaled(0).has_value());
  EXPECT_FALSE(decimals[5]->scaled(0).has_value());
}

TEST_F(CxxValue, IntegersOf128BitsArePrintedWithAPoint) {
  EXPECT_EQ(morvena_sn::to_text(0), "0");
  EXPECT_EQ(morvena_sn::to_text(0, 2), "0.00");
  EXPECT_EQ(morvena_sn::to_text(-5, 3), "-0.005");
  EXPECT_EQ(morvena_sn::to_text(-1250, 2), "-12.50");
  EXPECT_EQ(morvena_sn::to_text(1250, 4), "0.1250");
}

TEST_F(CxxValue, DatesCountFrom1970InChrono) {
  store("DATE", {"'1970-01-01'", "'1969-12-31'", "'1999-12-31'", "'2000-01-01'",
                 "'2024-02-29'", "'9999-12-31'", "'1000-01-01'"});
  const auto dates = values<morvena_sn::Date>();
  const Rows days = sql.query("SELECT DATEDIFF(c, '1970-01-01') FROM t");
  for (size_t i = 0; i < days.size(); ++i)
    EXPECT_EQ(dates[i]->time_since_epoch(), Days(std::stoll(*days[i][0])));
  EXPECT_EQ(dates[3], morvena_sn::epoch);
}

TEST_F(CxxValue, ZeroDatesAreNoDate) {
  store("DATE", {"'0000-00-00'", "NULL"});
  EXPECT_EQ(values<morvena_sn::Date>(),
            (std::vector<std::optional<morvena_sn::Date>>{morvena_sn::no_date,
                                                          std::nullopt}));
}

TEST_F(CxxValue, DatetimesCountFrom1970InChrono) {
  store("DATETIME(6)",
        {"'1970-01-01 00:00:00.000001'", "'1969-12-31 23:59:59.999999'",
         "'1000-01-01'", "'1999-12-31 12:00'", "'9999-12-31 23:59:59.999999'"});
  const auto times = values<Datetime>();
  const Rows usecs =
      sql.query("SELECT TIMESTAMPDIFF(MICROSECOND, '1970-01-01', c) FROM t");
  for (size_t i = 0; i < usecs.size(); ++i)
    EXPECT_EQ(times[i]->time_since_epoch(), Duration(std::stoll(*usecs[i][0])));
}

TEST_F(CxxValue, TimesAreSignedDurations) {
  store("TIME(6)", {"'-01:30:00.5'", "'838:59:59'", "'00:00:00'"});
  using namespace std::chrono_literals;
  EXPECT_EQ(values<Duration>(),
            (std::vector<std::optional<Duration>>{
                -(1h + 30min + 500ms), 838h + 59min + 59s, Duration(0)}));
}

}  // namespace
