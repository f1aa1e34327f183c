// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host.h
  Every difference between the hosts, behind one form each: that of MySQL 8.0.
  One entry a difference. The compiler tells which form a host has, from the
  host's own declarations: a header exists, a name is a macro, or a function
  takes the arguments of one overload here and not of the others. So a change
  that reaches several series in different releases needs no list of versions;
  the comments name those where it was seen. What a stock host lacks is supplied
  in host/.
*/

#ifndef MORVENA_SN_HOST_H
#define MORVENA_SN_HOST_H

#include <cstdint>
#include <type_traits>

#include "host/version.h"

#include "my_config.h"

#include "my_base.h"
#include "my_byteorder.h"
#include "my_sys.h"
#include "my_thread.h"
#include "my_time.h"
#include "myisampack.h"
#include "mysql/plugin.h"
#include "mysql_com.h"
#include "mysqld_error.h"
#include "sql/current_thd.h"
#include "sql/field.h"
#include "sql/field_common_properties.h"
#include "sql/handler.h"
#include "sql/key.h"
#include "sql/lock.h"
#include "sql/mdl.h"
#include "sql/mysqld.h"
#include "sql/mysqld_thd_manager.h"
#include "sql/protocol_classic.h"
#include "sql/replication.h"
#include "sql/sql_base.h"
#include "sql/sql_class.h"
#include "sql/sql_error.h"
#include "sql/sql_executor.h"
#include "sql/sql_lex.h"
#include "sql/sql_plugin.h"
#include "sql/table.h"
#include "sql/transaction.h"

// 8.4 moved these.
#if __has_include("sql-common/my_decimal.h")
#include "sql-common/my_decimal.h"
#else
#include "sql/my_decimal.h"
#endif
#if __has_include("mysql/strings/m_ctype.h")
#include "mysql/strings/m_ctype.h"
#else
#include "m_ctype.h"
#endif
#if __has_include("sql/mysqld_cs.h")
#include "sql/mysqld_cs.h"
#endif
// 9.7 has types of its own for times and dates, Time_val and Date_val, and
// Field has no val_time_temporal() there.
#if __has_include("my_temporal.h")
#include "my_temporal.h"
#define HOST_HAS_TIME_VAL 1
#else
#define HOST_HAS_TIME_VAL 0
#endif

#include "temporal.h"

namespace host {

// The reference to an opened table: TABLE_LIST in 8.0.27, Table_ref later.
template <class Ref>
Ref second_argument(bool (*)(THD *, Ref *, Open_table_context *));
using Table_ref = decltype(second_argument(&::open_table));

// 8.0.27 and 8.0.30 never find daemon sessions and take no word for it; 8.0.32
// and later do.
template <class Finder = Find_thd_with_id>
inline Finder find_by_id(my_thread_id id) {
  if constexpr (std::is_constructible_v<Finder, my_thread_id, bool>) {
    return Finder(id, true);
  } else {
    return Finder(id);
  }
}

// Before 8.0.42 and 8.4.5: three arguments. The fourth one is about reading a
// multi-valued index backward.
inline int key_cmp(int (*compare)(KEY_PART_INFO *, const uchar *, uint),
                   KEY_PART_INFO *part, const uchar *key, uint key_bytes) {
  return compare(part, key, key_bytes);
}
inline int key_cmp(int (*compare)(KEY_PART_INFO *, const uchar *, uint, bool),
                   KEY_PART_INFO *part, const uchar *key, uint key_bytes) {
  return compare(part, key, key_bytes, false);
}
inline int key_cmp(KEY_PART_INFO *part, const uchar *key, uint key_bytes) {
  return key_cmp(::key_cmp, part, key, key_bytes);
}

// Host_value: timeval in 8.0.27, my_timeval later.
template <class Host_value>
inline void store_timestamp(Field *field,
                            void (Field::*store)(const Host_value *),
                            const timeval &value) {
  const Host_value host_value{value.tv_sec, value.tv_usec};
  (field->*store)(&host_value);
}

/** For columns with a date and a time only: the function that others inherit is
    a fault in debug builds. */
inline void store_timestamp(Field *field, const timeval &value) {
  store_timestamp(field, &Field::store_timestamp, value);
}

/** Store a date, a time or a datetime. 8.0 and 8.4 store each of them; 9.7
   takes datetimes only and turns a date into the zero date. */
inline void store_time(Field *field, const MYSQL_TIME &value) {
  MYSQL_TIME copy = value;
#if HOST_HAS_TIME_VAL
  if (value.time_type == MYSQL_TIMESTAMP_TIME) {
    // Text gets as many decimals as this says; a column of times rounds what
    // has more than it.
    const bool rounds = field->type() == MYSQL_TYPE_TIME;
    field->store_time(Time_val(copy), rounds ? DATETIME_MAX_DECIMALS : 0);
    return;
  }
  if (value.time_type == MYSQL_TIMESTAMP_DATE) {
    copy.hour = copy.minute = copy.second = 0;
    copy.second_part = 0;
    if (!is_temporal_type_with_date(field->type())) {
      field->store_date(Date_val(copy));
      return;
    }
    copy.time_type = MYSQL_TIMESTAMP_DATETIME;
  }
#endif
  field->store_time(&copy, 0);
}

// The value of a column of times as signed microseconds. 8.0 and 8.4 pack a
// time into an integer; 9.7 has Time_val.
inline int64_t val_time_usecs(const Field *field) {
#if HOST_HAS_TIME_VAL
  Time_val value;
  return field->val_time(&value) ? 0 : value.to_microseconds();
#else
  MYSQL_TIME value;
  TIME_from_longlong_time_packed(&value, field->val_time_temporal());
  return mysql_time2time(value.hour, value.minute, value.second,
                         value.second_part, value.neg);
#endif
}

}  // namespace host

#endif  // MORVENA_SN_HOST_H
