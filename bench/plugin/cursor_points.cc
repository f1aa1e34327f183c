// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The plug-in's index cursor reads one row at a time by its key: through one
// cursor, or through a cursor for each row.

#include "../keys.h"
#include "contender.h"
#include "cursors.h"
#include "totals.h"

namespace bench {

namespace {

void read_row(morvena_sn::Cursor &cursor, int64_t key,
              const std::vector<uint32_t> &fields, Totals *totals,
              uint64_t *rows) {
  if (!cursor.range(morvena_sn::equal(key)).next()) return;
  totals->add_row(cursor.row(), fields);
  ++*rows;
}

}  // namespace

Answer cursor_points(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  auto cursor = cursor_on(request);
  const auto fields = cursor.select(names_of(request.columns));
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
  const auto fields = cursor_on(request).select(names_of(request.columns));
  const Watch watch;
  for (uint64_t i = 0; i < request.count; ++i) {
    auto cursor = cursor_on(request);
    cursor.set_columns(fields);
    read_row(cursor, nth_key(i, request.keys), fields, &totals, &answer.rows);
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
