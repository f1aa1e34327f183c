// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Index cursor: typed reads of the current row.

#include <algorithm>

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

// Whether the index has the column or a prefix of it.
bool has_column(const KEY &index, unsigned int field_idx) {
  const KEY_PART_INFO *parts = index.key_part;
  return std::any_of(parts, parts + index.user_defined_key_parts,
                     [field_idx](const KEY_PART_INFO &part) {
                       return part.fieldnr == field_idx + 1;
                     });
}

}  // namespace

// Whether an index-only read fetches a column. An InnoDB index has its own
// columns and those of the primary key. The primary key has every stored
// column.
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

// A column that was not read with the row holds what an earlier row left there.
// That may be a pointer to freed memory.
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

// @return whether there is no value
template <class Read>
bool IndexCursor::read_value(unsigned int field_idx, Read read) {
  const Row_column *column = column_with_value(field_idx);
  if (column == nullptr) return true;
  read(Value_in_row{*column, row(), table()->in_use});
  return false;
}

bool IndexCursor::read_field_int(unsigned int field_idx, longlong *val) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    *val = value_reader_.integer(value);
  });
}

bool IndexCursor::read_field_real(unsigned int field_idx, double *val) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    *val = value_reader_.real(value);
  });
}

bool IndexCursor::read_field_str(unsigned int field_idx, char **str,
                                 size_t *size) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    value_reader_.text(value, str, size);
  });
}

bool IndexCursor::read_field_decimal(unsigned int field_idx, bool *neg,
                                     int32_t *intg, int32_t *frac,
                                     int32_t **data) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    value_reader_.decimal(value, neg, intg, frac, data);
  });
}

bool IndexCursor::read_field_date(unsigned int field_idx, int32_t *time) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    *time = value_reader_.date(value);
  });
}

bool IndexCursor::read_field_time(unsigned int field_idx, int64_t *time) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    *time = value_reader_.time(value);
  });
}

bool IndexCursor::read_field_datetime(unsigned int field_idx, int64_t *time) {
  return read_value(field_idx, [&](const Value_in_row &value) {
    *time = value_reader_.datetime(value);
  });
}
