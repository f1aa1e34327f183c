// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The exported index-cursor functions: each recognises its handle, attaches the
// session where the server is touched, and calls the cursor. No exception
// leaves them.

#include "cursor.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "common.h"
#include "common/thread_row.h"
#include "cursor/open.h"
#include "handler_api.h"

namespace {

struct IndexCursorWrapper final : CursorWrapper {
  static constexpr Handle_kind handle_kind = Handle_kind::INDEX_CURSOR;

  IndexCursorWrapper(const Opened &opened,
                     std::unique_ptr<IndexCursor> index_cursor)
      : CursorWrapper(handle_kind, opened), cursor(std::move(index_cursor)) {
    cursor->report_to(&state);
  }
  void drop_cursor() override { cursor.reset(); }

  // The row that cursor_set_read_range() found is still to be reported.
  bool first_read = false;
  bool failed = false;  // the range ended by a failure
  std::unique_ptr<IndexCursor> cursor;
};

std::unique_ptr<CursorWrapper> make_wrapper(const Open_request &request,
                                            const Opened &opened) {
  std::unique_ptr<IndexCursor> cursor =
      IndexCursor::open(opened.table, request.index_name, request.index_only);
  if (cursor == nullptr) return nullptr;
  return std::make_unique<IndexCursorWrapper>(opened, std::move(cursor));
}

using Index_look = Handle_use<IndexCursorWrapper, Use::LOOK>;
using Index_use = Handle_use<IndexCursorWrapper, Use::ALONE>;
using Index_parallel_use = Handle_use<IndexCursorWrapper, Use::PARALLEL>;
using Names = std::vector<const char *>;

// Fills names through the cursor; none for a handle that is not open.
template <class List>
Names names_of(uintptr_t handle, List list) {
  Names names;
  const Index_look use(handle);
  if (use) list(use->cursor.get(), names);
  return names;
}

void list_output(IndexCursor *cursor, Names &names) {
  cursor->cursor_output_col_names_names(names);
}

void list_key(IndexCursor *cursor, Names &names) {
  cursor->get_key_col_names(names);
}

// A typed read of the current row.
template <class Read, class... Outputs>
bool read_field(uintptr_t handle, Read read, Outputs *...outputs) {
  if (((outputs == nullptr) || ...)) return true;
  const Value_use<IndexCursorWrapper> use(handle);
  if (!use) return true;
  return guarded(true, [&] { return read(use->cursor.get()); });
}

}  // namespace

uintptr_t open_index_cursor(const char *db_name, const char *table_name,
                            const char *index_name, bool index_only,
                            uint32_t snapshot_donor, int timeout_sec,
                            unsigned int *error, char *message) {
  const char *index = index_name != nullptr ? index_name : "";
  return open_handle(
      {db_name, table_name, index, index_only, snapshot_donor, timeout_sec},
      make_wrapper, {error, message});
}

void close_index_cursor(uintptr_t cursor) {
  const Index_use use(cursor);
  if (use) close_handle(use.get());
}

uint64_t cursor_output_col_num(uintptr_t cursor) {
  return guarded(size_t{0},
                 [&] { return names_of(cursor, list_output).size(); });
}

uint64_t cursor_idx_col_num(uintptr_t cursor) {
  return guarded(size_t{0}, [&] { return names_of(cursor, list_key).size(); });
}

uint64_t cursor_idx_user_col_num(uintptr_t cursor) {
  const Index_look use(cursor);
  if (!use) return 0;
  return static_cast<uint64_t>(use->cursor->get_key_user_cols());
}

void cursor_output_col_names(uintptr_t cursor, const char **names) {
  if (names == nullptr) return;
  guarded(false, [&] {
    const Names found = names_of(cursor, list_output);
    std::copy(found.begin(), found.end(), names);
    return true;
  });
}

void cursor_idx_col_names(uintptr_t cursor, const char **names) {
  if (names == nullptr) return;
  guarded(false, [&] {
    const Names found = names_of(cursor, list_key);
    std::copy(found.begin(), found.end(), names);
    return true;
  });
}

uint32_t cursor_col_fieldnr(uintptr_t cursor, const char *name) {
  const Index_look use(cursor);
  if (!use || name == nullptr) return 0;
  return use->cursor->get_col_fieldnr(name);
}

bool cursor_set_read_range(uintptr_t cursor, field_arg *begin, field_arg *end,
                           bool closed_begin, bool closed_end, bool reverse) {
  const Index_use use(cursor);
  if (!use) return false;
  Call call(use.get());
  use->failed = false;
  if (!call) {
    use->first_read = false;
    use->cursor->forget_range();
    return false;
  }
  use->first_read = call.run(false, [&] {
    return !use->cursor->set_read_range(begin, end, closed_begin, closed_end,
                                        reverse);
  });
  use->failed = use->state.failure.is_set();
  return use->first_read;
}

void cursor_set_readset(uintptr_t cursor, size_t ncols, uint32_t *fields) {
  if (ncols > 0 && fields == nullptr) return;
  const Index_use use(cursor);
  if (use) use->cursor->set_readset(ncols, fields);
}

bool cursor_advance(uintptr_t cursor) {
  const Index_use use(cursor);
  if (!use) return true;
  // A range that has failed stays ended.
  if (use->failed && use->state.failure.is_set()) return true;
  Call call(use.get());
  if (!call) return true;
  if (use->first_read) {
    use->first_read = false;
    return false;
  }
  const bool ended = call.run(true, [&] { return use->cursor->advance(); });
  use->failed = use->state.failure.is_set();
  return ended;
}

bool cursor_advance_parallel(uintptr_t cursor, size_t nthreads,
                             Parallel_load_func fn, void *argument) {
  const Index_parallel_use use(cursor);
  return use &&
         read_in_parallel(use.get(), use->cursor.get(), nthreads, fn, argument);
}

bool cursor_read_field_int(uintptr_t cursor, unsigned int field_idx,
                           long long *val) {
  return read_field(
      cursor, [&](IndexCursor *c) { return c->read_field_int(field_idx, val); },
      val);
}

bool cursor_read_field_real(uintptr_t cursor, unsigned int field_idx,
                            double *val) {
  return read_field(
      cursor,
      [&](IndexCursor *c) { return c->read_field_real(field_idx, val); }, val);
}

bool cursor_read_field_str(uintptr_t cursor, unsigned int field_idx, char **str,
                           size_t *size) {
  return read_field(
      cursor,
      [&](IndexCursor *c) { return c->read_field_str(field_idx, str, size); },
      str, size);
}

bool cursor_read_field_decimal(uintptr_t cursor, unsigned int field_idx,
                               bool *neg, int32_t *intg, int32_t *frac,
                               int32_t **data) {
  return read_field(
      cursor,
      [&](IndexCursor *c) {
        return c->read_field_decimal(field_idx, neg, intg, frac, data);
      },
      neg, intg, frac, data);
}

bool cursor_read_field_date(uintptr_t cursor, unsigned int field_idx,
                            int32_t *time) {
  return read_field(
      cursor,
      [&](IndexCursor *c) { return c->read_field_date(field_idx, time); },
      time);
}

bool cursor_read_field_time(uintptr_t cursor, unsigned int field_idx,
                            int64_t *time) {
  return read_field(
      cursor,
      [&](IndexCursor *c) { return c->read_field_time(field_idx, time); },
      time);
}

bool cursor_read_field_datetime(uintptr_t cursor, unsigned int field_idx,
                                int64_t *time) {
  return read_field(
      cursor,
      [&](IndexCursor *c) { return c->read_field_datetime(field_idx, time); },
      time);
}
