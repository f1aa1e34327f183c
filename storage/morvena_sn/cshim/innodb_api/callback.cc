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

// @return whether there is no value
template <class Read>
bool read_value(ThreadCtx *tctx, uint field_idx, uint nr, Read read) {
  const byte *row = row_with_value(tctx, field_idx, nr);
  if (row == nullptr) return true;
  read(Value_in_row{tctx->row_columns_[field_idx], row, tctx->thd_});
  return false;
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
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    *val = tctx->value_reader_.integer(value);
  });
}

bool ParallelIndexReader::read_field_real(ThreadCtx *tctx, uint field_idx,
                                          uint nr, double *val) {
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    *val = tctx->value_reader_.real(value);
  });
}

bool ParallelIndexReader::read_field_str(ThreadCtx *tctx, uint field_idx,
                                         uint nr, char **str, size_t *size) {
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    tctx->value_reader_.text(value, str, size);
  });
}

bool ParallelIndexReader::read_field_decimal(ThreadCtx *tctx, uint field_idx,
                                             uint nr, bool *neg, int32_t *intg,
                                             int32_t *frac, int32_t **data) {
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    tctx->value_reader_.decimal(value, neg, intg, frac, data);
  });
}

bool ParallelIndexReader::read_field_date(ThreadCtx *tctx, uint field_idx,
                                          uint nr, int32_t *date) {
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    *date = tctx->value_reader_.date(value);
  });
}

bool ParallelIndexReader::read_field_time(ThreadCtx *tctx, uint field_idx,
                                          uint nr, int64_t *time) {
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    *time = tctx->value_reader_.time(value);
  });
}

bool ParallelIndexReader::read_field_datetime(ThreadCtx *tctx, uint field_idx,
                                              uint nr, int64_t *datetime) {
  return read_value(tctx, field_idx, nr, [&](const Value_in_row &value) {
    *datetime = tctx->value_reader_.datetime(value);
  });
}
