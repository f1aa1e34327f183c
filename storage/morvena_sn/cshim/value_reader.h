// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file value_reader.h
  Converts a column's value from a row of the server's format to the form that
  callers get, for both kinds of cursor. Common types are decoded in
  row_column.h, all others by the server's Field.
*/

#ifndef MORVENA_SN_VALUE_READER_H
#define MORVENA_SN_VALUE_READER_H

#include <type_traits>

#include "common.h"
#include "field_value.h"
#include "host.h"
#include "local_time.h"
#include "row_column.h"
#include "temporal.h"

/** A value that is not NULL. */
struct Value_in_row {
  const Row_column &column;
  const uchar *row;
  THD *session;  // its time zone applies, and warnings go to it
};

/** Reads the values of one session's rows, and holds the buffers for them. Used
    by one thread at a time. A string or decimal is valid until the next read of
    its kind. */
class Value_reader {
 public:
  Value_reader() { buffer_.str.set_charset(&my_charset_bin); }

  longlong integer(const Value_in_row &value) {
    if (value.column.is_integer()) return value.column.integer(value.row);
    return by_host(value, [](Field *field) { return field->val_int(); });
  }

  double real(const Value_in_row &value) {
    if (value.column.is_real()) return value.column.real(value.row);
    return by_host(value, [](Field *field) { return field->val_real(); });
  }

  void text(const Value_in_row &value, char **str, size_t *size) {
    if (value.column.form_ == Column_form::VARCHAR) {
      value.column.text(value.row, str, size);
      return;
    }
    by_host(value, [&](Field *field) {
      field_value::to_str(field, &buffer_, str, size);
    });
  }

  void decimal(const Value_in_row &value, bool *neg, int32_t *intg,
               int32_t *frac, int32_t **data) {
    *data = buffer_.decimal.buf;
    if (value.column.form_ == Column_form::DECIMAL &&
        value.column.decimal(value.row, *data, neg, intg, frac)) {
      return;
    }
    by_host(value, [&](Field *field) {
      field_value::to_decimal(field, &buffer_, neg, intg, frac, data);
    });
  }

  int32_t date(const Value_in_row &value) {
    switch (value.column.form_) {
      case Column_form::DATE:
        return value.column.date(value.row);
      case Column_form::TIMESTAMP:
        return days_of_datetime(timestamp(value));
      default:
        return by_host(value, field_value::to_date);
    }
  }

  int64_t time(const Value_in_row &value) {
    if (value.column.form_ == Column_form::TIMESTAMP) {
      return time_of_datetime(timestamp(value));
    }
    return by_host(value, field_value::to_time);
  }

  int64_t datetime(const Value_in_row &value) {
    switch (value.column.form_) {
      case Column_form::DATETIME:
        return value.column.datetime(value.row);
      case Column_form::TIMESTAMP:
        return timestamp(value);
      default:
        return by_host(value, field_value::to_datetime);
    }
  }

 private:
  int64_t timestamp(const Value_in_row &value) {
    local_time_.use_zone_of(value.session);
    return value.column.timestamp(value.row, &local_time_);
  }

  /** Let the server's Field convert the value. It uses the session that is
      attached to the thread, and puts warnings there. That may be a client's
      session, or one that a callback has left attached, so attach ours first.
   */
  template <class Convert>
  static std::invoke_result_t<Convert, Field *> by_host(
      const Value_in_row &value, Convert convert) {
    const Own_session session(value.session);
    return convert(value.column.field_at(value.row));
  }

  field_read_buffer buffer_;
  Local_time local_time_;
};

#endif  // MORVENA_SN_VALUE_READER_H
