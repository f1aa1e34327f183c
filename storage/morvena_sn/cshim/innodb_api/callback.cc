// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// callback: a batch in the caller's hands.
// In: the worker's waiting rows. Out: the caller's answer: go on, or stop.
// Holds: whatever the worker holds, its leaf page among it. Threads: any
// worker, at the same time. Fails: the callback refuses, or throws.

#include "common.h"
#include "common/counters.h"
#include "innodb_api.h"
#include "innodb_api/in_callback.h"

namespace {

// A callback may read in parallel itself, through a handle that is open.
thread_local size_t callbacks_entered = 0;

struct Callback_mark {
  Callback_mark() { ++callbacks_entered; }
  ~Callback_mark() { --callbacks_entered; }
  Callback_mark(const Callback_mark &) = delete;
  Callback_mark &operator=(const Callback_mark &) = delete;
};

// The row; null for a position or row that the batch does not have, a column
// that was not read, and NULL.
inline const byte *row_with_value(const ThreadCtx *tctx, uint field_idx,
                                  uint nr) {
  if (field_idx >= tctx->ncols_ || nr >= tctx->n_rows_) return nullptr;
  const Row_column &column = tctx->row_columns_[field_idx];
  const byte *row = tctx->buffer_.get() + nr * tctx->row_len_;
  return column.field_ == nullptr || column.is_null(row) ? nullptr : row;
}

// The worker's own Field of a column, pointing at a row.
Field *field_at(const Row_column &column, const byte *row) {
  Field *field = column.field_;
  auto *to = const_cast<byte *>(row);
  field->set_field_ptr(to + column.offset_);
  if (field->is_nullable()) {
    field->set_null_ptr(to + column.null_byte_, column.null_bit_);
  }
  return field;
}

// Have the host convert a value. Its conversions look at the thread's session,
// and warn there: not in one that the callback left with the thread.
template <class Convert>
auto by_host(const ThreadCtx *tctx, const Row_column &column, const byte *row,
             Convert convert) {
  const Own_session session(tctx->thd_);
  return convert(field_at(column, row));
}

int64_t timestamp(ThreadCtx *tctx, const Row_column &column, const byte *row) {
  tctx->local_time_.use_zone_of(tctx->thd_);
  return column.timestamp(row, &tctx->local_time_);
}

}  // namespace

bool in_callback() { return callbacks_entered > 0; }

void ParallelIndexReader::set_load_cb(Parallel_load_fn load_cb,
                                      void *argument) {
  loader_ = load_cb;
  argument_ = argument;
}

dberr_t ParallelIndexReader::send_batch(ThreadCtx *tctx) {
  if (tctx->n_read_ == tctx->n_sent_) return DB_SUCCESS;
  tctx->n_rows_ = tctx->n_read_ - tctx->n_sent_;
  counters::count(Tally::BATCHES);
  bool stop = true;
  try {
    const Callback_mark mark;
    stop =
        tctx->fn_(reinterpret_cast<uint64_t>(tctx), tctx->id_, tctx->argument_);
  } catch (...) {
    // Also where the answer is not looked at: the rows were not taken.
    state_->failure.set(er_callback_stopped, "The callback threw an exception");
    set_error(DB_ERROR);
  }
  CommonApi::attach_over_own(tctx->thd_);
  if (stop) return DB_ERROR;
  tctx->n_sent_ = tctx->n_read_;
  return DB_SUCCESS;
}

bool ParallelIndexReader::read_field_int(ThreadCtx *tctx, uint field_idx,
                                         uint nr, longlong *val) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  *val = column.is_integer() ? column.integer(row)
                             : by_host(tctx, column, row, [](Field *field) {
                                 return field->val_int();
                               });
  return false;
}

bool ParallelIndexReader::read_field_real(ThreadCtx *tctx, uint field_idx,
                                          uint nr, double *val) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  *val = column.is_real() ? column.real(row)
                          : by_host(tctx, column, row, [](Field *field) {
                              return field->val_real();
                            });
  return false;
}

bool ParallelIndexReader::read_field_str(ThreadCtx *tctx, uint field_idx,
                                         uint nr, char **str, size_t *size) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  if (column.form_ == Column_form::VARCHAR) {
    column.text(row, str, size);
  } else {
    by_host(tctx, column, row, [&](Field *field) {
      field_value::to_str(field, &tctx->field_buffer_, str, size);
    });
  }
  return false;
}

bool ParallelIndexReader::read_field_decimal(ThreadCtx *tctx, uint field_idx,
                                             uint nr, bool *neg, int32_t *intg,
                                             int32_t *frac, int32_t **data) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  *data = tctx->field_buffer_.decimal.buf;
  if (column.form_ != Column_form::DECIMAL ||
      !column.decimal(row, *data, neg, intg, frac)) {
    by_host(tctx, column, row, [&](Field *field) {
      field_value::to_decimal(field, &tctx->field_buffer_, neg, intg, frac,
                              data);
    });
  }
  return false;
}

bool ParallelIndexReader::read_field_date(ThreadCtx *tctx, uint field_idx,
                                          uint nr, int32_t *date) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  switch (column.form_) {
    case Column_form::DATE:
      *date = column.date(row);
      break;
    case Column_form::TIMESTAMP:
      *date = days_of_datetime(timestamp(tctx, column, row));
      break;
    default:
      *date = by_host(tctx, column, row, field_value::to_date);
  }
  return false;
}

bool ParallelIndexReader::read_field_time(ThreadCtx *tctx, uint field_idx,
                                          uint nr, int64_t *time) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  *time = column.form_ == Column_form::TIMESTAMP
              ? time_of_datetime(timestamp(tctx, column, row))
              : by_host(tctx, column, row, field_value::to_time);
  return false;
}

bool ParallelIndexReader::read_field_datetime(ThreadCtx *tctx, uint field_idx,
                                              uint nr, int64_t *datetime) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  const Row_column &column = tctx->row_columns_[field_idx];
  switch (column.form_) {
    case Column_form::DATETIME:
      *datetime = column.datetime(row);
      break;
    case Column_form::TIMESTAMP:
      *datetime = timestamp(tctx, column, row);
      break;
    default:
      *datetime = by_host(tctx, column, row, field_value::to_datetime);
  }
  return false;
}
