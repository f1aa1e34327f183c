// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Values of dates and times.

#include "global_setting.h"
#include "value_test.h"

namespace {

using namespace harness;

class TemporalValue : public Value_test {
 protected:
  // The results of the three reads of one value.
  struct Reads {
    int32_t date;
    int64_t time;
    int64_t datetime;
  };
  Reads read(const std::string &type, const std::string &literal) {
    sql.exec("DROP TABLE IF EXISTS t");
    store(type + " NOT NULL", {literal});
    Cursor cursor;
    EXPECT_TRUE(cursor.set_range());
    return {cursor.read_date(1).value(), cursor.read_time(1).value(),
            cursor.read_datetime(1).value()};
  }
};

TEST_F(TemporalValue, Date) {
  check("DATE",
        {"'2000-01-01'", "'1999-12-31'", "'1970-01-01'", "'2024-02-29'",
         "'9999-12-31'", "'1000-01-01'", "'0001-01-01'", "'1900-02-28'"},
        dates());
}

TEST_F(TemporalValue, DateDays) {
  EXPECT_EQ(read("DATE", "'2000-01-01'").date, 0);
  EXPECT_EQ(read("DATE", "'1999-12-31'").date, -1);
  EXPECT_EQ(read("DATE", "'1970-01-01'").date, -10957);
  EXPECT_EQ(read("DATE", "'2024-02-29'").date, 8825);
  EXPECT_EQ(read("DATE", "'9999-12-31'").date, 2921939);
  EXPECT_EQ(read("DATE", "'0001-01-01'").date, -730119);
}

TEST_F(TemporalValue, ZeroDate) {
  sql.exec("SET sql_mode = ''");
  const Reads zero = read("DATE", "'0000-00-00'");
  EXPECT_EQ(zero.date, no_date);
  EXPECT_EQ(zero.time, 0);
  EXPECT_EQ(zero.datetime, no_date * usecs_per_day);
}

// SQL counts month 0 as the December before, and day 0 as the day before the
// first.
TEST_F(TemporalValue, PartlyZeroDates) {
  sql.exec("SET sql_mode = ''");
  const auto days_to = [this](const char *date) {
    return sql.number("SELECT DATEDIFF('" + std::string(date) +
                      "', '2000-01-01')");
  };
  EXPECT_EQ(read("DATE", "'2020-00-00'").date, days_to("2019-11-30"));
  EXPECT_EQ(read("DATE", "'2020-05-00'").date, days_to("2020-04-30"));
  EXPECT_EQ(read("DATE", "'2020-00-15'").date, days_to("2019-12-15"));
}

TEST_F(TemporalValue, ImpossibleDatesThatTheServerTakes) {
  sql.exec("SET sql_mode = 'ALLOW_INVALID_DATES'");
  EXPECT_EQ(read("DATE", "'2023-02-31'").date,
            sql.number("SELECT DATEDIFF('2023-03-03', '2000-01-01')"));
}

TEST_F(TemporalValue, DatetimeOfEachPrecision) {
  for (int digits = 0; digits <= 6; ++digits) {
    SCOPED_TRACE(digits);
    check("DATETIME(" + std::to_string(digits) + ")",
          {"'2000-01-01 00:00:00'", "'1999-12-31 23:59:59.999999'",
           "'1970-01-01 00:00:00'", "'2026-11-21 12:34:56.123456'",
           "'0001-01-01 00:00:00'"},
          datetimes());
    if (HasFailure()) return;
    sql.exec("DROP TABLE t");
  }
}

TEST_F(TemporalValue, LastDatetime) {
  check("DATETIME(6)", {"'9999-12-31 23:59:59.999999'"}, datetimes());
}

TEST_F(TemporalValue, DatetimeMicroseconds) {
  EXPECT_EQ(read("DATETIME", "'1970-01-01 00:00:00'").datetime,
            -946684800000000);
  EXPECT_EQ(read("DATETIME(6)", "'1999-12-31 23:59:59.999999'").datetime, -1);
}

TEST_F(TemporalValue, ZeroDatetime) {
  sql.exec("SET sql_mode = ''");
  const Reads zero = read("DATETIME(6)", "'0000-00-00 00:00:00'");
  EXPECT_EQ(zero.date, no_date);
  EXPECT_EQ(zero.time, 0);
  EXPECT_EQ(zero.datetime, no_date * usecs_per_day);
}

TEST_F(TemporalValue, TimeOfPartlyZeroDatetimes) {
  sql.exec("SET sql_mode = ''");
  const int64_t time =
      sql.number("SELECT TIME_TO_SEC('10:11:12') * 1000000 + 500000");
  for (const char *date : {"2024-00-00", "2024-05-00", "2024-00-05"}) {
    const std::string datetime = "'" + std::string(date) + " 10:11:12.5'";
    EXPECT_EQ(read("DATETIME(6)", datetime).time, time) << date;
    EXPECT_EQ(read("DATE", "'" + std::string(date) + "'").time, 0) << date;
  }
}

TEST_F(TemporalValue, TimestampOfEachPrecision) {
  for (int digits = 0; digits <= 6; ++digits) {
    SCOPED_TRACE(digits);
    check("TIMESTAMP(" + std::to_string(digits) + ") NULL",
          {"'1970-01-02 00:00:01'", "'2038-01-18 03:14:07'",
           "'2026-11-21 12:34:56.654321'"},
          datetimes());
    if (HasFailure()) return;
    sql.exec("DROP TABLE t");
  }
}

TEST_F(TemporalValue, ZeroTimestamp) {
  sql.exec("SET sql_mode = ''");
  const Reads zero = read("TIMESTAMP", "'0000-00-00 00:00:00'");
  EXPECT_EQ(zero.date, no_date);
  EXPECT_EQ(zero.time, 0);
  EXPECT_EQ(zero.datetime, no_date * usecs_per_day);
}

// The limits of the type are known in UTC.
TEST_F(TemporalValue, TimestampLimits) {
  const Global_setting zone("time_zone", "'+00:00'");
  sql.exec("SET time_zone = '+00:00'");
  check("TIMESTAMP(6) NULL",
        {"'1970-01-01 00:00:01.000000'", "'2038-01-19 03:14:07.999999'"},
        datetimes());
}

TEST_F(TemporalValue, TimestampReadsInTheGlobalTimeZone) {
  sql.exec("SET time_zone = '+00:00'");
  store("TIMESTAMP NOT NULL", {"'2000-01-01 00:00:00'"});
  for (const int hours : {3, -5}) {
    const Global_setting zone(
        "time_zone", (hours > 0 ? "'+" : "'") + std::to_string(hours) + ":00'");
    Cursor cursor;
    EXPECT_TRUE(cursor.set_range());
    EXPECT_EQ(cursor.read_datetime(1), hours * 3600000000) << hours;
  }
}

TEST_F(TemporalValue, TimeOfEachPrecision) {
  for (int digits = 0; digits <= 6; ++digits) {
    SCOPED_TRACE(digits);
    check("TIME(" + std::to_string(digits) + ")",
          {"'00:00:00'", "'23:59:58.123456'", "'-00:00:01.5'", "'10:00:00.1'"},
          times());
    if (HasFailure()) return;
    sql.exec("DROP TABLE t");
  }
}

TEST_F(TemporalValue, TimeBeyondADay) {
  check("TIME(6)",
        {"'838:59:59.000000'", "'-838:59:59.000000'", "'24:00:00'",
         "'-24:00:00.000001'", "'837:59:59.999999'", "'-837:59:59.999999'"},
        times());
}

TEST_F(TemporalValue, TimeMicroseconds) {
  EXPECT_EQ(read("TIME(1)", "'-00:00:01.5'").time, -1500000);
  EXPECT_EQ(read("TIME", "'838:59:59'").time, 3020399000000);
  EXPECT_EQ(read("TIME", "'-838:59:59'").time, -3020399000000);
  EXPECT_EQ(read("TIME(6)", "'00:00:00.000001'").time, 1);
}

TEST_F(TemporalValue, TimeOfDayOfADatetime) {
  EXPECT_EQ(read("DATETIME(6)", "'2020-02-02 01:02:03.000004'").time,
            3600000000 + 2 * 60000000 + 3 * 1000000 + 4);
}

TEST_F(TemporalValue, DateHasNoTime) {
  EXPECT_EQ(read("DATE", "'2020-02-02'").time, 0);
}

TEST_F(TemporalValue, OtherTypesHaveNeitherDateNorTime) {
  for (const char *type : {"INT", "DOUBLE", "DECIMAL(20,6)", "CHAR(20)", "TEXT",
                           "BIGINT UNSIGNED"}) {
    SCOPED_TRACE(type);
    const Reads none = read(type, "'20200202'");
    EXPECT_EQ(none.date, no_date);
    EXPECT_EQ(none.time, 0);
    EXPECT_EQ(none.datetime, no_date * usecs_per_day);
  }
}

TEST_F(TemporalValue, YearHasNeitherDateNorTime) {
  const Reads none = read("YEAR", "2020");
  EXPECT_EQ(none.date, no_date);
  EXPECT_EQ(none.time, 0);
  EXPECT_EQ(none.datetime, no_date * usecs_per_day);
}

}  // namespace
