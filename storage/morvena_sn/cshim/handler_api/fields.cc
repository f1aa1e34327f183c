/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// Index cursor: typed reads of the current row.

#include "handler_api.h"

// A column outside the read set holds what an earlier row left there, a pointer
// to memory that is gone perhaps.
Field *IndexCursor::field_with_value(unsigned int field_idx) {
  if (field_idx >= table()->s->fields) return nullptr;
  if (!bitmap_is_set(table()->read_set, field_idx)) return nullptr;
  Field *field = table()->field[field_idx];
  return field->is_null() ? nullptr : field;
}

bool IndexCursor::read_field_int(unsigned int field_idx, longlong *val) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  *val = field->val_int();
  return false;
}

bool IndexCursor::read_field_real(unsigned int field_idx, double *val) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  *val = field->val_real();
  return false;
}

bool IndexCursor::read_field_str(unsigned int field_idx, char **str,
                                 size_t *size) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  field_value::to_str(field, &buffer_, str, size);
  return false;
}

bool IndexCursor::read_field_decimal(unsigned int field_idx, bool *neg,
                                     int32_t *intg, int32_t *frac,
                                     int32_t **data) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  field_value::to_decimal(field, &buffer_, neg, intg, frac, data);
  return false;
}

bool IndexCursor::read_field_date(unsigned int field_idx, int32_t *time) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  *time = field_value::to_date(field);
  return false;
}

bool IndexCursor::read_field_time(unsigned int field_idx, int64_t *time) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  *time = field_value::to_time(field);
  return false;
}

bool IndexCursor::read_field_datetime(unsigned int field_idx, int64_t *time) {
  Field *field = field_with_value(field_idx);
  if (field == nullptr) return true;
  *time = field_value::to_datetime(field);
  return false;
}
