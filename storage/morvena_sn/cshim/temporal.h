// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file temporal.h
  Date, time and datetime arithmetic of the values that callers get: the integer
  forms of PostgreSQL, counted from 2000-01-01. Needs no server.
*/

#ifndef MORVENA_SN_TEMPORAL_H
#define MORVENA_SN_TEMPORAL_H

#include <cstdint>

/** Julian day number of 2000-01-01. */
constexpr int32_t POSTGRES_EPOCH_JDATE = 2451545;

constexpr int64_t USECS_PER_DAY = 86400000000;
constexpr int64_t USECS_PER_HOUR = 3600000000;
constexpr int64_t USECS_PER_MINUTE = 60000000;
constexpr int64_t USECS_PER_SEC = 1000000;

/** Decimal digits in one word of a decimal value. */
constexpr int32_t DIG_PER_DEC1 = 9;

/** Words that hold x decimal digits. */
constexpr int32_t ROUND_UP(int32_t x) {
  return (x + DIG_PER_DEC1 - 1) / DIG_PER_DEC1;
}

/**
  Julian day number of a date of the Gregorian calendar. The order of the terms
  matters: each division truncates.
*/
constexpr int32_t mysql_time2jd(int32_t year, int32_t month, int32_t day) {
  const bool after_february = month > 2;
  const int32_t m = after_february ? month + 1 : month + 13;
  const int32_t y = after_february ? year + 4800 : year + 4799;
  return y * 365 - 32167 + y / 4 - y / 100 + y / 400 + (7834 * m) / 256 + day;
}

/** Days from 2000-01-01 to a date. */
constexpr int32_t days_since_epoch(int32_t year, int32_t month, int32_t day) {
  return mysql_time2jd(year, month, day) - POSTGRES_EPOCH_JDATE;
}

/** Microseconds of a time of day or a duration; hours may exceed a day. */
constexpr int64_t mysql_time2time(int64_t hour, int64_t minute, int64_t second,
                                  int64_t microsecond, bool negative) {
  const int64_t magnitude = hour * USECS_PER_HOUR + minute * USECS_PER_MINUTE +
                            second * USECS_PER_SEC + microsecond;
  return negative ? -magnitude : magnitude;
}

/**
  Microseconds from 2000-01-01 00:00:00 to a datetime as the server packs it:
  from the least significant bit on 24 bits of microseconds, 6 of seconds, 6 of
  minutes, 5 of hours, 5 of days, then year * 13 + month.
*/
constexpr int64_t datetime_of_packed(int64_t packed) {
  const auto microsecond = packed & 0xffffff;
  const auto time = static_cast<int32_t>(packed >> 24 & 0x1ffff);
  const auto date = static_cast<int32_t>(packed >> 41);
  const int32_t year_month = date >> 5;
  const int64_t days =
      days_since_epoch(year_month / 13, year_month % 13, date & 31);
  return days * USECS_PER_DAY + mysql_time2time(time >> 12, time >> 6 & 63,
                                                time & 63, microsecond, false);
}

/** Days from 2000-01-01 to the day of a datetime in microseconds. */
constexpr int32_t days_of_datetime(int64_t datetime) {
  const int64_t days = datetime / USECS_PER_DAY;
  return static_cast<int32_t>(datetime % USECS_PER_DAY < 0 ? days - 1 : days);
}

/** Microseconds since the midnight before a datetime in microseconds. */
constexpr int64_t time_of_datetime(int64_t datetime) {
  return datetime - days_of_datetime(datetime) * USECS_PER_DAY;
}

static_assert(mysql_time2jd(2000, 1, 1) == POSTGRES_EPOCH_JDATE);

#endif  // MORVENA_SN_TEMPORAL_H
