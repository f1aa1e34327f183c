// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// This system's index cursor, one row by its key at a time: through one cursor,
// and with a cursor for each row.

#include "../keys.h"
#include "contender.h"
#include "cursors.h"
#include "totals.h"

namespace bench {

namespace {

void read_row(const Cursor &cursor, int64_t key,
              const std::vector<uint32_t> &fields, Totals *totals,
              uint64_t *rows) {
  const uintptr_t handle = cursor.handle();
  Bound low(key), high(key);
  if (!cursor_set_read_range(handle, low.get(), high.get(), true, true, false))
    return;
  if (cursor_advance(handle)) return;
  totals->add_row(Cursor_row{handle}, fields);
  ++*rows;
}

}  // namespace

Answer cursor_points(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  const Cursor cursor(request);
  const std::vector<uint32_t> fields = cursor.fields_of(request.columns);
  cursor.set_readset(fields);
  const Watch watch;
  for (uint64_t i = 0; i < request.count; ++i)
    read_row(cursor, nth_key(i, request.keys), fields, &totals, &answer.rows);
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

Answer cursor_openings(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  const std::vector<uint32_t> fields =
      Cursor(request).fields_of(request.columns);
  const Watch watch;
  for (uint64_t i = 0; i < request.count; ++i) {
    const Cursor cursor(request);
    cursor.set_readset(fields);
    read_row(cursor, nth_key(i, request.keys), fields, &totals, &answer.rows);
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
