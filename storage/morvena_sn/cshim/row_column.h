// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file row_column.h
  One column of rows in the server's format. Values of the common types are
  decoded here, when they are read as their own type. The server's Field decodes
  all others, at the cost of a few calls for each value.
*/

#ifndef MORVENA_SN_ROW_COLUMN_H
#define MORVENA_SN_ROW_COLUMN_H

#include <cstdint>
#include <cstring>

#include "host.h"
#include "local_time.h"
#include "temporal.h"

/** How a value lies in a row of the server's format. */
enum class Column_form : uint8_t {
  SERVERS,   // decoded by the Field
  SIGNED,    // bytes, least significant first
  UNSIGNED,  // likewise
  FLOAT,
  DOUBLE,
  DECIMAL,
  VARCHAR,    // length, then that many bytes
  DATE,       // three bytes: year, month, day
  DATETIME,   // seconds in five bytes, most significant first, and a fraction
  TIMESTAMP,  // UTC seconds in four bytes, likewise, and a fraction
};

/** A column as typed reads see it. */
struct Row_column {
  Row_column() = default;
  /** A column whose value lies at value_offset in the row. */
  Row_column(Field *column, uint32_t value_offset, uint32_t null_byte,
             uint8_t null_bit);

  bool is_null(const uchar *row) const {
    return (row[null_byte_] & null_bit_) != 0;
  }
  bool is_integer() const {
    return form_ == Column_form::SIGNED || form_ == Column_form::UNSIGNED;
  }
  bool is_real() const {
    return form_ == Column_form::FLOAT || form_ == Column_form::DOUBLE;
  }
  longlong integer(const uchar *row) const;
  double real(const uchar *row) const;
  /** Split a decimal into words of nine digits, as the server's decimals have
      them. @return false if the stored value is not a decimal */
  bool decimal(const uchar *row, int32_t *words, bool *neg, int32_t *intg,
               int32_t *frac) const;
  void text(const uchar *row, char **str, size_t *size) const;
  int32_t date(const uchar *row) const;
  int64_t datetime(const uchar *row) const;
  int64_t timestamp(const uchar *row, Local_time *local_time) const;
  /** The column's Field, pointing at a row. */
  Field *field_at(const uchar *row) const;

  Field *field_ = nullptr;  // null: the column is not read
  uint32_t offset_ = 0;
  uint32_t null_byte_ = 0;
  uint8_t null_bit_ = 0;  // 0: never null
  Column_form form_ = Column_form::SERVERS;
  uint8_t bytes_ = 0;      // of an integer or a VARCHAR's length; digits of a
                           // decimal's, datetime's or timestamp's fraction
  uint8_t precision_ = 0;  // digits of a decimal
};

inline Field *Row_column::field_at(const uchar *row) const {
  auto *to = const_cast<uchar *>(row);
  field_->set_field_ptr(to + offset_);
  if (field_->is_nullable()) field_->set_null_ptr(to + null_byte_, null_bit_);
  return field_;
}

inline longlong Row_column::integer(const uchar *row) const {
  const uchar *value = row + offset_;
  const bool is_signed = form_ == Column_form::SIGNED;
  switch (bytes_) {
    case 1:
      return is_signed ? static_cast<longlong>(static_cast<int8_t>(*value))
                       : *value;
    case 2:
      return is_signed ? static_cast<longlong>(sint2korr(value))
                       : uint2korr(value);
    case 3:
      return is_signed ? static_cast<longlong>(sint3korr(value))
                       : uint3korr(value);
    case 4:
      return is_signed ? static_cast<longlong>(sint4korr(value))
                       : uint4korr(value);
    default:
      return sint8korr(value);
  }
}

inline double Row_column::real(const uchar *row) const {
  if (form_ == Column_form::FLOAT) return double{float4get(row + offset_)};
  return float8get(row + offset_);
}

inline void Row_column::text(const uchar *row, char **str, size_t *size) const {
  const uchar *value = row + offset_;
  *size = bytes_ == 1 ? *value : uint2korr(value);
  *str = const_cast<char *>(pointer_cast<const char *>(value + bytes_));
}

inline int32_t Row_column::date(const uchar *row) const {
  const uint32_t value = uint3korr(row + offset_);
  return days_since_epoch(static_cast<int32_t>(value >> 9),
                          static_cast<int32_t>(value >> 5 & 15),
                          static_cast<int32_t>(value & 31));
}

/** The microseconds in a stored fraction of the given number of digits. */
inline int64_t stored_microseconds(const uchar *fraction, uint8_t digits) {
  switch ((digits + 1) / 2) {
    case 1:
      return *fraction * 10000;
    case 2:
      return mi_uint2korr(fraction) * 100;
    case 3:
      return mi_uint3korr(fraction);
    default:
      return 0;
  }
}

inline int64_t Row_column::datetime(const uchar *row) const {
  constexpr int64_t zero = 0x8000000000;
  const uchar *value = row + offset_;
  const auto seconds = static_cast<int64_t>(mi_uint5korr(value)) - zero;
  return datetime_of_packed(seconds * (1 << 24) +
                            stored_microseconds(value + 5, bytes_));
}

inline int64_t Row_column::timestamp(const uchar *row,
                                     Local_time *local_time) const {
  const uchar *value = row + offset_;
  const uint32_t utc = mi_uint4korr(value);
  if (utc == 0) return datetime_of_packed(0);
  return local_time->seconds(utc) * USECS_PER_SEC +
         stored_microseconds(value + 4, bytes_);
}

#endif  // MORVENA_SN_ROW_COLUMN_H
