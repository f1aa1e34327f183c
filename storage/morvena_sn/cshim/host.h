// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host.h
  Every difference between the MySQL versions that the code is built for, behind
  one form each: that of MySQL 8.0. One entry a difference, chosen by a fact of
  host/version.h. What no server offers is supplied in host/.

  "Host" is the name of this layer, which hides the differences between servers;
  elsewhere the program that the code runs in is called the server.
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

#if HOST_HAS_MY_DECIMAL_IN_SQL_COMMON
#include "sql-common/my_decimal.h"
#else
#include "sql/my_decimal.h"
#endif
#if HOST_HAS_M_CTYPE_IN_MYSQL_STRINGS
#include "mysql/strings/m_ctype.h"
#else
#include "m_ctype.h"
#endif
#if HOST_HAS_MYSQLD_CS_H
#include "sql/mysqld_cs.h"
#endif
#if HOST_HAS_TIME_VAL
#include "my_temporal.h"
#endif

#include "temporal.h"

namespace host {

/** The reference to an opened table; servers call its type by different names.
 */
using Table_ref = std::remove_pointer_t<decltype(TABLE::pos_in_table_list)>;

/** Finds a session by its id, a daemon's too where the server can tell. */
inline Find_thd_with_id find_by_id(my_thread_id id) {
#if HOST_FINDER_TAKES_DAEMONS
  return Find_thd_with_id(id, true);
#else
  return Find_thd_with_id(id);
#endif
}

inline int key_cmp(KEY_PART_INFO *part, const uchar *key, uint key_bytes) {
#if HOST_KEY_CMP_TAKES_DIRECTION
  return ::key_cmp(part, key, key_bytes, false);
#else
  return ::key_cmp(part, key, key_bytes);
#endif
}

/** For columns with a date and a time only: the function that others inherit is
    a fault in debug builds. */
inline void store_timestamp(Field *field, const timeval &value) {
#if HOST_HAS_MY_TIMEVAL
  const my_timeval host_value{value.tv_sec, value.tv_usec};
#else
  const timeval &host_value = value;
#endif
  field->store_timestamp(&host_value);
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

/** The value of a column of times as signed microseconds. 8.0 and 8.4 pack a
    time into an integer. */
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
