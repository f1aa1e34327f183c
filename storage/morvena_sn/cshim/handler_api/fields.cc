// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Index cursor: typed reads of the current row.

#include <algorithm>

#include "common.h"
#include "handler_api.h"

namespace {

Row_column column_of(Field *field) {
  const TABLE *table = field->table;
  const bool nullable = field->is_nullable();
  return Row_column(field,
                    static_cast<uint32_t>(field->offset(table->record[0])),
                    nullable ? static_cast<uint32_t>(field->null_offset()) : 0,
                    static_cast<uint8_t>(nullable ? field->null_bit : 0));
}

// Have the host convert a value. Its conversions look at the thread's session,
// and warn there.
template <class Convert>
auto by_host(const Row_column *column, Convert convert) {
  Field *field = column->field_;
  const Own_session session(field->table->in_use);
  return convert(field);
}

// Also of a column of which the index has the beginning.
bool has_column(const KEY &index, unsigned int field_idx) {
  const KEY_PART_INFO *parts = index.key_part;
  return std::any_of(parts, parts + index.user_defined_key_parts,
                     [field_idx](const KEY_PART_INFO &part) {
                       return part.fieldnr == field_idx + 1;
                     });
}

}  // namespace

// What an index-only read fetches: an index of InnoDB has the columns of the
// primary key beside its own, and the primary key every stored one.
bool IndexCursor::index_has(unsigned int field_idx) const {
  const uint primary = table()->s->primary_key;
  // An entry of a multi-valued index has one value of the array.
  if (table()->field[field_idx]->is_array()) return false;
  if (has_column(*key(), field_idx)) return true;
  if (primary == MAX_KEY) return false;
  const KEY *primary_key = &table()->key_info[primary];
  return key() == primary_key ? !table()->field[field_idx]->is_virtual_gcol()
                              : has_column(*primary_key, field_idx);
}

// A column that was not read with the row holds what an earlier row left there,
// a pointer to memory that is gone perhaps.
bool IndexCursor::was_read(unsigned int field_idx) const {
  if (!bitmap_is_set(table()->read_set, field_idx)) return false;
  if (index_only_ && !index_has(field_idx)) return false;
  const auto *read = reinterpret_cast<const uchar *>(columns_read_.data());
  return (read[field_idx / 8] & (1 << field_idx % 8)) != 0;
}

const Row_column *IndexCursor::column_with_value(unsigned int field_idx) {
  if (!has_row_ || field_idx >= row_columns_.size()) return nullptr;
  Row_column &column = row_columns_[field_idx];
  if (column.field_ == nullptr) {
    if (!was_read(field_idx)) return nullptr;
    column = column_of(table()->field[field_idx]);
  }
  return column.is_null(row()) ? nullptr : &column;
}

int64_t IndexCursor::timestamp(const Row_column &column) {
  local_time_.use_zone_of(table()->in_use);
  return column.timestamp(row(), &local_time_);
}

bool IndexCursor::read_field_int(unsigned int field_idx, longlong *val) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  *val = column->is_integer()
             ? column->integer(row())
             : by_host(column, [](Field *field) { return field->val_int(); });
  return false;
}

bool IndexCursor::read_field_real(unsigned int field_idx, double *val) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  *val = column->is_real()
             ? column->real(row())
             : by_host(column, [](Field *field) { return field->val_real(); });
  return false;
}

bool IndexCursor::read_field_str(unsigned int field_idx, char **str,
                                 size_t *size) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  if (column->form_ == Column_form::VARCHAR) {
    column->text(row(), str, size);
  } else {
    by_host(column, [&](Field *field) {
      field_value::to_str(field, &buffer_, str, size);
    });
  }
  return false;
}

bool IndexCursor::read_field_decimal(unsigned int field_idx, bool *neg,
                                     int32_t *intg, int32_t *frac,
                                     int32_t **data) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  *data = buffer_.decimal.buf;
  if (column->form_ != Column_form::DECIMAL ||
      !column->decimal(row(), *data, neg, intg, frac)) {
    by_host(column, [&](Field *field) {
      field_value::to_decimal(field, &buffer_, neg, intg, frac, data);
    });
  }
  return false;
}

bool IndexCursor::read_field_date(unsigned int field_idx, int32_t *time) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  switch (column->form_) {
    case Column_form::DATE:
      *time = column->date(row());
      break;
    case Column_form::TIMESTAMP:
      *time = days_of_datetime(timestamp(*column));
      break;
    default:
      *time = by_host(column, field_value::to_date);
  }
  return false;
}

bool IndexCursor::read_field_time(unsigned int field_idx, int64_t *time) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  *time = column->form_ == Column_form::TIMESTAMP
              ? time_of_datetime(timestamp(*column))
              : by_host(column, field_value::to_time);
  return false;
}

bool IndexCursor::read_field_datetime(unsigned int field_idx, int64_t *time) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  switch (column->form_) {
    case Column_form::DATETIME:
      *time = column->datetime(row());
      break;
    case Column_form::TIMESTAMP:
      *time = timestamp(*column);
      break;
    default:
      *time = by_host(column, field_value::to_datetime);
  }
  return false;
}
