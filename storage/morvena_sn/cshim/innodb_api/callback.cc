/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// callback: a batch in the caller's hands.
// In: the worker's waiting rows. Out: the caller's answer: go on, or stop.
// Holds: whatever the worker holds, its leaf page among it. Threads: any
// worker, at the same time. Fails: the callback refuses, or throws.

#include "innodb_api.h"

namespace {

// The column's Field of this worker, pointing at the row; null for a position
// or row that the batch does not have, a column that was not read, and NULL.
Field *field_with_value(ThreadCtx *tctx, uint field_idx, uint nr) {
  if (field_idx >= tctx->ncols_ || nr >= tctx->n_rows_) return nullptr;
  Field *field = tctx->fields[field_idx];
  if (field == nullptr) return nullptr;
  byte *row = tctx->buffer_.get() + nr * tctx->row_len_;
  field->set_field_ptr(row + tctx->col_offsets_[field_idx]);
  if (field->is_nullable()) {
    field->set_null_ptr(row + tctx->null_byte_offsets_[field_idx],
                        static_cast<uint>(tctx->null_bitmasks_[field_idx]));
  }
  return field->is_null() ? nullptr : field;
}

}  // namespace

void ParallelIndexReader::set_load_cb(Parallel_load_fn load_cb,
                                      void *argument) {
  loader_ = load_cb;
  argument_ = argument;
}

dberr_t ParallelIndexReader::send_batch(ThreadCtx *tctx) {
  if (tctx->n_read_ == tctx->n_sent_) return DB_SUCCESS;
  tctx->n_rows_ = tctx->n_read_ - tctx->n_sent_;
  bool stop = true;
  try {
    stop =
        tctx->fn_(reinterpret_cast<uint64_t>(tctx), tctx->id_, tctx->argument_);
  } catch (...) {
    // An exception ends the read like a refusal.
  }
  if (stop) return DB_ERROR;
  tctx->n_sent_ = tctx->n_read_;
  return DB_SUCCESS;
}

bool ParallelIndexReader::read_field_int(ThreadCtx *tctx, uint field_idx,
                                         uint nr, longlong *val) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  *val = field->val_int();
  return false;
}

bool ParallelIndexReader::read_field_real(ThreadCtx *tctx, uint field_idx,
                                          uint nr, double *val) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  *val = field->val_real();
  return false;
}

bool ParallelIndexReader::read_field_str(ThreadCtx *tctx, uint field_idx,
                                         uint nr, char **str, size_t *size) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  field_value::to_str(field, &tctx->field_buffer_, str, size);
  return false;
}

bool ParallelIndexReader::read_field_decimal(ThreadCtx *tctx, uint field_idx,
                                             uint nr, bool *neg, int32_t *intg,
                                             int32_t *frac, int32_t **data) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  field_value::to_decimal(field, &tctx->field_buffer_, neg, intg, frac, data);
  return false;
}

bool ParallelIndexReader::read_field_date(ThreadCtx *tctx, uint field_idx,
                                          uint nr, int32_t *date) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  *date = field_value::to_date(field);
  return false;
}

bool ParallelIndexReader::read_field_time(ThreadCtx *tctx, uint field_idx,
                                          uint nr, int64_t *time) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  *time = field_value::to_time(field);
  return false;
}

bool ParallelIndexReader::read_field_datetime(ThreadCtx *tctx, uint field_idx,
                                              uint nr, int64_t *datetime) {
  Field *field = field_with_value(tctx, field_idx, nr);
  if (field == nullptr) return true;
  *datetime = field_value::to_datetime(field);
  return false;
}
