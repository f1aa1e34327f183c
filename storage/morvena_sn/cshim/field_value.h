// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file field_value.h
  One column's value in the forms that callers get. The column's Field already
  points at the row; NULL and positions are the caller's affair.
*/

#ifndef MORVENA_SN_FIELD_VALUE_H
#define MORVENA_SN_FIELD_VALUE_H

#include "host.h"
#include "temporal.h"

/** Where a reader keeps converted strings and decimals: until the next read of
    the same kind. */
struct field_read_buffer {
  String str;
  my_decimal decimal;
};

namespace field_value {

inline void to_str(Field *field, field_read_buffer *buffer, char **str,
                   size_t *size) {
  String *value = field->val_str(&buffer->str, &buffer->str);
  *str = value->ptr();
  *size = value->length();
}

inline void to_decimal(Field *field, field_read_buffer *buffer, bool *neg,
                       int32_t *intg, int32_t *frac, int32_t **data) {
  my_decimal *value = field->val_decimal(&buffer->decimal);
  *neg = value->sign();
  *intg = ROUND_UP(value->intg);
  *frac = ROUND_UP(value->frac);
  *data = value->buf;
}

inline bool has_date_or_time(const Field *field) {
  if (field->is_array()) return false;
  switch (field->type()) {
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_NEWDATE:
    case MYSQL_TYPE_TIME:
    case MYSQL_TYPE_DATETIME:
    case MYSQL_TYPE_TIMESTAMP:
      return true;
    default:
      return false;
  }
}

// All zero for a column of another type: the function that those inherit is a
// fault in debug builds.
inline MYSQL_TIME unpack_datetime(const Field *field) {
  const longlong packed =
      has_date_or_time(field) ? field->val_date_temporal() : 0;
  MYSQL_TIME value;
  TIME_from_longlong_datetime_packed(&value, packed);
  return value;
}

inline int32_t to_date(const Field *field) {
  const MYSQL_TIME value = unpack_datetime(field);
  return days_since_epoch(static_cast<int32_t>(value.year),
                          static_cast<int32_t>(value.month),
                          static_cast<int32_t>(value.day));
}

// The time of a datetime is taken from its parts: the server's conversion to a
// time refuses a datetime with month or day 0, or takes its days for hours.
inline int64_t to_time(const Field *field) {
  if (field->type() == MYSQL_TYPE_TIME && !field->is_array()) {
    return host::val_time_usecs(field);
  }
  const MYSQL_TIME value = unpack_datetime(field);
  return mysql_time2time(value.hour, value.minute, value.second,
                         static_cast<int64_t>(value.second_part), false);
}

inline int64_t to_datetime(const Field *field) {
  const MYSQL_TIME value = unpack_datetime(field);
  const int64_t days = days_since_epoch(static_cast<int32_t>(value.year),
                                        static_cast<int32_t>(value.month),
                                        static_cast<int32_t>(value.day));
  return days * USECS_PER_DAY +
         mysql_time2time(value.hour, value.minute, value.second,
                         static_cast<int64_t>(value.second_part), false);
}

}  // namespace field_value

#endif  // MORVENA_SN_FIELD_VALUE_H
