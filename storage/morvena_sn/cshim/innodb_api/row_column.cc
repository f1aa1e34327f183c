/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// row_column: which columns are decoded without their Field.
// In: a Field. Out: the form of its values, and what decoding them needs.

#include "innodb_api/row_column.h"

namespace {

Column_form form_of_integer(const Field *field) {
  return field->is_unsigned() ? Column_form::UNSIGNED : Column_form::SIGNED;
}

Column_form form_of(const Field *field) {
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
    default:
      return Column_form::SERVERS;
  }
}

}  // namespace

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
      bytes_ = static_cast<uint8_t>(column->decimals());
      break;
    default:
      break;
  }
}
