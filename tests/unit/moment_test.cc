// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "handler_api/moment.h"

#include "gtest/gtest.h"

namespace {

constexpr time_t day = 86400;
// Days from 1970 to the first day of year 1 and to that of year 10000.
constexpr time_t year_1 = -719162 * day;
constexpr time_t year_10000 = 2932897 * day;

bool timestamp(time_t seconds, suseconds_t microseconds = 0) {
  return moment::is_possible(timeval{seconds, microseconds},
                             MYSQL_TYPE_TIMESTAMP);
}

bool datetime(time_t seconds, suseconds_t microseconds = 0) {
  return moment::is_possible(timeval{seconds, microseconds},
                             MYSQL_TYPE_DATETIME);
}

MYSQL_TIME value(enum_mysql_timestamp_type type) {
  MYSQL_TIME value{};
  value.time_type = type;
  value.year = 2024;
  value.month = 2;
  value.day = 29;
  value.hour = 23;
  value.minute = 59;
  value.second = 59;
  value.second_part = 999999;
  return value;
}

MYSQL_TIME time_of(unsigned days, unsigned hours, unsigned minutes,
                   unsigned seconds, unsigned long microseconds,
                   bool negative) {
  MYSQL_TIME value{};
  value.time_type = MYSQL_TIMESTAMP_TIME;
  value.day = days;
  value.hour = hours;
  value.minute = minutes;
  value.second = seconds;
  value.second_part = microseconds;
  value.neg = negative;
  return value;
}

TEST(PossibleTimestamp, LastsFrom1970To2038) {
  EXPECT_TRUE(timestamp(0));
  EXPECT_FALSE(timestamp(-1));
  EXPECT_TRUE(timestamp(2147483647));
  EXPECT_FALSE(timestamp(2147483648));
}

TEST(PossibleDatetime, KeepsADaysDistanceFromTheEndsOfTime) {
  EXPECT_FALSE(datetime(year_1 + day - 1));
  EXPECT_TRUE(datetime(year_1 + day));
  EXPECT_TRUE(datetime(year_10000 - day - 1));
  EXPECT_FALSE(datetime(year_10000 - day));
}

TEST(PossibleMoment, HasLessThanAMillionMicroseconds) {
  EXPECT_TRUE(timestamp(1, 999999));
  EXPECT_FALSE(timestamp(1, 1000000));
  EXPECT_FALSE(datetime(1, -1));
}

TEST(PossibleValue, IsADateATimeOrADatetime) {
  for (const auto type :
       {MYSQL_TIMESTAMP_DATE, MYSQL_TIMESTAMP_TIME, MYSQL_TIMESTAMP_DATETIME,
        MYSQL_TIMESTAMP_DATETIME_TZ})
    EXPECT_TRUE(moment::is_possible(value(type))) << type;
  for (const auto type : {MYSQL_TIMESTAMP_NONE, MYSQL_TIMESTAMP_ERROR})
    EXPECT_FALSE(moment::is_possible(value(type))) << type;
}

TEST(PossibleValue, HasEachPartInItsRange) {
  const MYSQL_TIME good = value(MYSQL_TIMESTAMP_DATETIME);
  MYSQL_TIME bad[7];
  for (MYSQL_TIME &each : bad) each = good;
  bad[0].year = 10000;
  bad[1].month = 13;
  bad[2].day = 32;
  bad[3].hour = 24;
  bad[4].minute = 60;
  bad[5].second = 60;
  bad[6].second_part = 1000000;
  for (const MYSQL_TIME &each : bad) EXPECT_FALSE(moment::is_possible(each));
}

TEST(PossibleValue, OfATimeHas838HoursAtMost) {
  EXPECT_TRUE(moment::is_possible(time_of(0, 838, 59, 59, 0, false)));
  EXPECT_FALSE(moment::is_possible(time_of(0, 839, 0, 0, 0, false)));
}

TEST(CommonForm, TurnsTheDaysOfATimeIntoHours) {
  const MYSQL_TIME time = moment::in_common_form(time_of(2, 3, 4, 5, 6, true));
  EXPECT_EQ(time.hour, 51u);
  EXPECT_EQ(time.day, 0u);
  EXPECT_EQ(time.minute, 4u);
  EXPECT_EQ(time.second, 5u);
  EXPECT_EQ(time.second_part, 6u);
  EXPECT_TRUE(time.neg);
}

// Four thousand million days are too many hours for the field.
TEST(CommonForm, OfTooManyDaysStaysImpossible) {
  const MYSQL_TIME time =
      moment::in_common_form(time_of(4000000000, 0, 0, 0, 0, false));
  EXPECT_FALSE(moment::is_possible(time));
}

TEST(CommonForm, EndsTheLongestTimeWithoutAFraction) {
  EXPECT_EQ(
      moment::in_common_form(time_of(0, 838, 59, 59, 7, true)).second_part, 0u);
  EXPECT_EQ(
      moment::in_common_form(time_of(0, 838, 59, 58, 7, true)).second_part, 7u);
}

TEST(CommonForm, HasASignForATimeThatIsNotZero) {
  EXPECT_FALSE(moment::in_common_form(time_of(0, 0, 0, 0, 0, true)).neg);
  EXPECT_TRUE(moment::in_common_form(time_of(0, 0, 0, 0, 1, true)).neg);
  MYSQL_TIME date = value(MYSQL_TIMESTAMP_DATE);
  date.neg = true;
  EXPECT_FALSE(moment::in_common_form(date).neg);
}

}  // namespace
