// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// typed reads: values of the rows of a batch.
// In: a batch, a column's position, a row's number. Out: the value in the form
// that is asked for. Holds: nothing. Threads: the one that has the batch.
// Fails: there is no value.

#include "innodb_api/batch.h"

template <class Read>
inline bool ThreadCtx::read_value(uint field_idx, uint nr, Read read) {
  if (field_idx >= row_columns_.size() || nr >= n_rows_) return true;
  const Row_column &column = row_columns_[field_idx];
  const byte *row = buffer_.get() + nr * row_bytes_;
  if (column.field_ == nullptr || column.is_null(row)) return true;
  read(Value_in_row{column, row, session_}, &value_reader_);
  return false;
}

bool Typed_reads::read_field_int(ThreadCtx *tctx, uint field_idx, uint nr,
                                 longlong *val) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            *val = reader->integer(value);
                          });
}

bool Typed_reads::read_field_real(ThreadCtx *tctx, uint field_idx, uint nr,
                                  double *val) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            *val = reader->real(value);
                          });
}

bool Typed_reads::read_field_str(ThreadCtx *tctx, uint field_idx, uint nr,
                                 char **str, size_t *size) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            reader->text(value, str, size);
                          });
}

bool Typed_reads::read_field_decimal(ThreadCtx *tctx, uint field_idx, uint nr,
                                     bool *neg, int32_t *intg, int32_t *frac,
                                     int32_t **data) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            reader->decimal(value, neg, intg, frac, data);
                          });
}

bool Typed_reads::read_field_date(ThreadCtx *tctx, uint field_idx, uint nr,
                                  int32_t *date) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            *date = reader->date(value);
                          });
}

bool Typed_reads::read_field_time(ThreadCtx *tctx, uint field_idx, uint nr,
                                  int64_t *time) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            *time = reader->time(value);
                          });
}

bool Typed_reads::read_field_datetime(ThreadCtx *tctx, uint field_idx, uint nr,
                                      int64_t *datetime) {
  return tctx->read_value(field_idx, nr,
                          [&](const Value_in_row &value, Value_reader *reader) {
                            *datetime = reader->datetime(value);
                          });
}
