// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file handler_api/moment.h
  Which of a caller's dates and times a column can store. The server would wrap
  other values around, and a debug server would stop at them. Needs no server.
*/

#ifndef MORVENA_SN_HANDLER_API_MOMENT_H
#define MORVENA_SN_HANDLER_API_MOMENT_H

#include <sys/time.h>

#include <algorithm>
#include <climits>
#include <cstdint>

#include "my_inttypes.h"

#include "field_types.h"
#include "mysql_time.h"

namespace moment {

/** The longest time: 838:59:59. */
constexpr unsigned int max_hour_of_time = 838;

/** Whether a TIMESTAMP or DATETIME column can take a moment. A DATETIME keeps a
    day's distance from the ends of the years 1 to 9999, because its value is
    local time. */
inline bool is_possible(const timeval &value, enum_field_types type) {
  constexpr int64_t first_datetime = -62135510400;  // 0001-01-02
  constexpr int64_t last_datetime = 253402214399;   // 9999-12-30 23:59:59
  const bool is_timestamp = type == MYSQL_TYPE_TIMESTAMP;
  const int64_t first = is_timestamp ? 0 : first_datetime;
  const int64_t last = is_timestamp ? INT_MAX32 : last_datetime;
  return value.tv_sec >= first && value.tv_sec <= last && value.tv_usec >= 0 &&
         value.tv_usec <= 999999;
}

/** Whether a value is a date, a time or a datetime at all. */
inline bool is_possible(const MYSQL_TIME &value) {
  const bool has_kind = value.time_type == MYSQL_TIMESTAMP_DATE ||
                        value.time_type == MYSQL_TIMESTAMP_TIME ||
                        value.time_type == MYSQL_TIMESTAMP_DATETIME ||
                        value.time_type == MYSQL_TIMESTAMP_DATETIME_TZ;
  const unsigned int max_hour =
      value.time_type == MYSQL_TIMESTAMP_TIME ? max_hour_of_time : 23;
  return has_kind && value.year <= 9999 && value.month <= 12 &&
         value.day <= 31 && value.hour <= max_hour && value.minute <= 59 &&
         value.second <= 59 && value.second_part <= 999999;
}

/** The same value in the form that every server stores alike: the days of a
   time are hours, the longest time has no fraction, and only a time that is not
   0 has a sign. */
inline MYSQL_TIME in_common_form(MYSQL_TIME value) {
  if (value.time_type != MYSQL_TIMESTAMP_TIME) {
    value.neg = false;
    return value;
  }
  const uint64_t hours = value.hour + uint64_t{value.day} * 24;
  value.hour = static_cast<unsigned int>(std::min<uint64_t>(hours, UINT_MAX));
  value.day = 0;
  const bool is_longest = value.hour == max_hour_of_time &&
                          value.minute == 59 && value.second == 59;
  if (is_longest) value.second_part = 0;
  const bool is_zero = value.hour == 0 && value.minute == 0 &&
                       value.second == 0 && value.second_part == 0;
  if (is_zero) value.neg = false;
  return value;
}

}  // namespace moment

#endif  // MORVENA_SN_HANDLER_API_MOMENT_H
