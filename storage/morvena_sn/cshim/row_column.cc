// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// row_column: which columns are decoded without their Field.
// In: a Field. Out: the form of its values, and what decoding them needs.

#include "row_column.h"

#include <algorithm>

namespace {

Column_form form_of_integer(const Field *field) {
  return field->is_unsigned() ? Column_form::UNSIGNED : Column_form::SIGNED;
}

Column_form form_of(const Field *field) {
  // An array's Field tells the type of the elements; a row has them as JSON.
  if (field->is_array()) return Column_form::SERVERS;
  switch (field->real_type()) {
    case MYSQL_TYPE_TINY:
    case MYSQL_TYPE_SHORT:
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_LONGLONG:
      return form_of_integer(field);
    case MYSQL_TYPE_FLOAT:
      return Column_form::FLOAT;
    case MYSQL_TYPE_DOUBLE:
      return Column_form::DOUBLE;
    case MYSQL_TYPE_NEWDECIMAL:
      return Column_form::DECIMAL;
    case MYSQL_TYPE_VARCHAR:
      return Column_form::VARCHAR;
    case MYSQL_TYPE_NEWDATE:
      return Column_form::DATE;
    case MYSQL_TYPE_DATETIME2:
      return Column_form::DATETIME;
    case MYSQL_TYPE_TIMESTAMP2:
      return Column_form::TIMESTAMP;
    default:
      return Column_form::SERVERS;
  }
}

constexpr uint32_t power_of_10[] = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

// The bytes that a group of digits of a decimal takes, by the number of digits.
constexpr uint8_t bytes_of_digits[] = {0, 1, 1, 2, 2, 3, 3, 4, 4, 4};

// Groups of digits of a stored decimal, most significant byte first. A number
// that is not negative has its very first bit set. A negative number has all
// bits inverted.
class Digit_groups {
 public:
  explicit Digit_groups(const uchar *value)
      : at_(value),
        first_(0x80),
        mask_((*value & 0x80) != 0 ? 0 : UINT32_MAX) {}

  bool is_negative() const { return mask_ != 0; }
  uint32_t next(uint8_t bytes) {
    uint32_t group = *at_ ^ first_;
    first_ = 0;
    for (uint8_t i = 1; i < bytes; ++i) group = group << 8 | at_[i];
    at_ += bytes;
    return group ^ mask_ >> (32 - 8 * bytes);
  }

 private:
  const uchar *at_;
  uint32_t first_;
  uint32_t mask_;
};

}  // namespace

// Leading words that are zero are left out, as the server does.
bool Row_column::decimal(const uchar *row, int32_t *words, bool *neg,
                         int32_t *intg, int32_t *frac) const {
  Digit_groups groups(row + offset_);
  int32_t *word = words;
  uint32_t largest = 0;
  const auto put = [&](uint32_t value) {
    largest = std::max(largest, value);
    *word++ = static_cast<int32_t>(value);
  };
  const int digits = precision_ - bytes_;
  if (const uint8_t bytes = bytes_of_digits[digits % DIG_PER_DEC1]) {
    const uint32_t value = groups.next(bytes);
    if (value != 0) put(value);
  }
  for (int n = digits / DIG_PER_DEC1; n > 0; --n) {
    const uint32_t value = groups.next(4);
    if (value != 0 || word != words) put(value);
  }
  *intg = static_cast<int32_t>(word - words);
  *frac = ROUND_UP(bytes_);
  *neg = groups.is_negative();
  for (int n = bytes_ / DIG_PER_DEC1; n > 0; --n) put(groups.next(4));
  const int rest = bytes_ % DIG_PER_DEC1;
  if (rest > 0) {
    put(groups.next(bytes_of_digits[rest]) * power_of_10[DIG_PER_DEC1 - rest]);
  }
  if (word == words) {
    *intg = 1;
    *neg = false;
    put(0);
  }
  return largest < power_of_10[DIG_PER_DEC1];
}

Row_column::Row_column(Field *column, uint32_t value_offset, uint32_t null_byte,
                       uint8_t null_bit)
    : field_(column),
      offset_(value_offset),
      null_byte_(null_byte),
      null_bit_(null_bit),
      form_(form_of(column)) {
  switch (form_) {
    case Column_form::SIGNED:
    case Column_form::UNSIGNED:
      bytes_ = static_cast<uint8_t>(column->pack_length());
      break;
    case Column_form::DECIMAL:
      precision_ = static_cast<uint8_t>(
          static_cast<const Field_new_decimal *>(column)->precision);
      bytes_ = static_cast<uint8_t>(column->decimals());
      break;
    case Column_form::VARCHAR:
      bytes_ = static_cast<uint8_t>(column->get_length_bytes());
      break;
    case Column_form::DATETIME:
    case Column_form::TIMESTAMP:
      bytes_ = static_cast<uint8_t>(column->decimals());
      break;
    default:
      break;
  }
}
