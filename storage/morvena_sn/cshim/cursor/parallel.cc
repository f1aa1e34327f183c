// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The exported sequential-scan functions, and the reads of a batch.

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "common.h"
#include "common/thread_row.h"
#include "cursor.h"
#include "cursor/open.h"
#include "innodb_api.h"
#include "seqscan.h"

namespace {

struct SeqCursorWrapper final : CursorWrapper {
  static constexpr Handle_kind handle_kind = Handle_kind::SEQSCAN;

  SeqCursorWrapper(const Opened &opened, std::unique_ptr<SeqScanCursor> scan)
      : CursorWrapper(handle_kind, opened), cursor(std::move(scan)) {
    cursor->report_to(&state);
  }
  void drop_cursor() override { cursor.reset(); }

  std::unique_ptr<SeqScanCursor> cursor;
};

std::unique_ptr<CursorWrapper> make_wrapper(const Open_request &,
                                            const Opened &opened) {
  return std::make_unique<SeqCursorWrapper>(opened,
                                            SeqScanCursor::open(opened.table));
}

using Reader = ParallelIndexReader;
using Scan_look = Handle_use<SeqCursorWrapper, Use::LOOK>;
using Scan_use = Handle_use<SeqCursorWrapper, Use::ALONE>;
using Scan_parallel_use = Handle_use<SeqCursorWrapper, Use::PARALLEL>;

std::vector<const char *> names_of(uintptr_t handle) {
  std::vector<const char *> names;
  const Scan_look use(handle);
  if (use) use->cursor->get_col_names(names);
  return names;
}

ThreadCtx *batch(uintptr_t ctx) { return reinterpret_cast<ThreadCtx *>(ctx); }

// A typed read of a batch. What the server's conversions throw must not pass
// through the callback, which may be C.
template <class Read, class... Outputs>
bool read_field(uintptr_t ctx, Read read, Outputs *...outputs) {
  if (ctx == 0 || ((outputs == nullptr) || ...)) return true;
  return guarded(true, [&] { return read(batch(ctx)); });
}

}  // namespace

uintptr_t open_seqscan_cursor(const char *db_name, const char *table_name,
                              uint32_t snapshot_donor, int timeout_sec,
                              unsigned int *error, char *message) {
  return open_handle(
      {db_name, table_name, nullptr, false, snapshot_donor, timeout_sec},
      make_wrapper, {error, message});
}

void close_seqscan_cursor(uintptr_t cursor) {
  const Scan_use use(cursor);
  if (use) close_handle(use.get());
}

uint64_t seqscan_cursor_output_col_num(uintptr_t cursor) {
  return guarded(size_t{0}, [&] { return names_of(cursor).size(); });
}

void seqscan_cursor_output_col_names(uintptr_t cursor, const char **names) {
  if (names == nullptr) return;
  guarded(false, [&] {
    const std::vector<const char *> found = names_of(cursor);
    std::copy(found.begin(), found.end(), names);
    return true;
  });
}

void seqscan_cursor_set_readset(uintptr_t cursor, size_t ncols,
                                uint32_t *fields) {
  if (ncols > 0 && fields == nullptr) return;
  const Scan_use use(cursor);
  if (use) use->cursor->set_readset(ncols, fields);
}

bool seqscan_cursor_advance_parallel(uintptr_t cursor, size_t nthreads,
                                     Parallel_load_func fn, void *argument) {
  const Scan_parallel_use use(cursor);
  return use &&
         read_in_parallel(use.get(), use->cursor.get(), nthreads, fn, argument);
}

uint64_t pread_n_tuples(uintptr_t ctx) {
  return ctx != 0 ? batch(ctx)->n_rows() : 0;
}

bool pread_field_int(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                     long long *val) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_int(tctx, field_idx, nr, val);
      },
      val);
}

bool pread_field_real(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      double *val) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_real(tctx, field_idx, nr, val);
      },
      val);
}

bool pread_field_str(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                     char **str, size_t *size) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_str(tctx, field_idx, nr, str, size);
      },
      str, size);
}

bool pread_field_decimal(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                         bool *neg, int32_t *intg, int32_t *frac,
                         int32_t **data) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_decimal(tctx, field_idx, nr, neg, intg, frac,
                                          data);
      },
      neg, intg, frac, data);
}

bool pread_field_date(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      int32_t *date) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_date(tctx, field_idx, nr, date);
      },
      date);
}

bool pread_field_time(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      int64_t *time) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_time(tctx, field_idx, nr, time);
      },
      time);
}

bool pread_field_datetime(uintptr_t ctx, unsigned int field_idx,
                          unsigned int nr, int64_t *datetime) {
  return read_field(
      ctx,
      [=](ThreadCtx *tctx) {
        return Reader::read_field_datetime(tctx, field_idx, nr, datetime);
      },
      datetime);
}
