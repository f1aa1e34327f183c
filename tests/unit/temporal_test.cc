// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "temporal.h"

#include "gtest/gtest.h"

namespace {

bool is_leap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in(int year, int month) {
  if (month == 2) return is_leap(year) ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

TEST(JulianDay, EpochIsDay2451545) {
  EXPECT_EQ(mysql_time2jd(2000, 1, 1), 2451545);
}

// 4713-11-24 BC of the Gregorian calendar is day 0; this is the first day of
// AD.
TEST(JulianDay, FirstDayOfOurEra) {
  EXPECT_EQ(mysql_time2jd(1, 1, 1), 1721426);
}

TEST(JulianDay, EachDayFollowsTheOneBefore) {
  int expected = 1721426;
  for (int year = 1; year <= 9999; ++year)
    for (int month = 1; month <= 12; ++month)
      for (int day = 1; day <= days_in(year, month); ++day, ++expected)
        ASSERT_EQ(mysql_time2jd(year, month, day), expected)
            << year << '-' << month << '-' << day;
}

TEST(DaysSinceEpoch, EpochIsZero) {
  EXPECT_EQ(days_since_epoch(2000, 1, 1), 0);
}

TEST(DaysSinceEpoch, DayBeforeTheEpochIsMinusOne) {
  EXPECT_EQ(days_since_epoch(1999, 12, 31), -1);
}

TEST(DaysSinceEpoch, UnixEpoch) {
  EXPECT_EQ(days_since_epoch(1970, 1, 1), -10957);
}

TEST(DaysSinceEpoch, LeapDay) {
  EXPECT_EQ(days_since_epoch(2024, 2, 29), 8825);
}

TEST(DaysSinceEpoch, LastDay) {
  EXPECT_EQ(days_since_epoch(9999, 12, 31), 2921939);
}

TEST(DaysSinceEpoch, FirstDay) {
  EXPECT_EQ(days_since_epoch(1, 1, 1), -730119);
}

TEST(DaysSinceEpoch, ZeroDate) {
  EXPECT_EQ(days_since_epoch(0, 0, 0), -730517);
}

TEST(TimeOfDay, UnitsAddUp) {
  EXPECT_EQ(mysql_time2time(1, 2, 3, 4, false),
            3600000000 + 2 * 60000000 + 3 * 1000000 + 4);
}

TEST(TimeOfDay, NegativeFractionKeepsItsSign) {
  EXPECT_EQ(mysql_time2time(0, 0, 1, 500000, true), -1500000);
}

TEST(TimeOfDay, HoursBeyondADayAreKept) {
  EXPECT_EQ(mysql_time2time(838, 59, 59, 0, false), 3020399000000);
}

TEST(TimeOfDay, LongestNegativeDuration) {
  EXPECT_EQ(mysql_time2time(838, 59, 59, 0, true), -3020399000000);
}

TEST(PackedDatetime, PartsAreWhereTheServerPutsThem) {
  const int64_t year_month = 1999 * 13 + 12, day = 31, hour = 23, minute = 58,
                second = 57;
  const int64_t packed =
      ((((year_month * 32 + day) * 32 + hour) * 64 + minute) * 64 + second) *
          (1 << 24) +
      654321;
  // The day before the epoch, 63 seconds before its end.
  EXPECT_EQ(datetime_of_packed(packed), -63 * USECS_PER_SEC + 654321);
}

TEST(PackedDatetime, ZeroIsTheZeroDate) {
  EXPECT_EQ(datetime_of_packed(0), -730517 * USECS_PER_DAY);
}

TEST(PartsOfADatetime, DaysBeginAtMidnightBeforeTheEpochToo) {
  EXPECT_EQ(days_of_datetime(0), 0);
  EXPECT_EQ(days_of_datetime(USECS_PER_DAY - 1), 0);
  EXPECT_EQ(days_of_datetime(USECS_PER_DAY), 1);
  EXPECT_EQ(days_of_datetime(-1), -1);
  EXPECT_EQ(days_of_datetime(-USECS_PER_DAY), -1);
  EXPECT_EQ(days_of_datetime(-USECS_PER_DAY - 1), -2);
}

TEST(PartsOfADatetime, TimesAreNeverNegative) {
  EXPECT_EQ(time_of_datetime(0), 0);
  EXPECT_EQ(time_of_datetime(USECS_PER_DAY + 5), 5);
  EXPECT_EQ(time_of_datetime(-1), USECS_PER_DAY - 1);
  EXPECT_EQ(time_of_datetime(-USECS_PER_DAY), 0);
}

TEST(DecimalWords, NineDigitsAWordRoundedUp) {
  EXPECT_EQ(ROUND_UP(0), 0);
  EXPECT_EQ(ROUND_UP(1), 1);
  EXPECT_EQ(ROUND_UP(9), 1);
  EXPECT_EQ(ROUND_UP(10), 2);
  EXPECT_EQ(ROUND_UP(65), 8);
}

}  // namespace
