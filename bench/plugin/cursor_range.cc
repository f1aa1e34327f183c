// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// This system's index cursor over a long range.

#include "contender.h"
#include "cursors.h"
#include "totals.h"

namespace bench {

Answer cursor_range(const Request &request) {
  const Watch watch;
  Answer answer;
  Totals totals(request.columns);
  {
    const Cursor cursor(request);
    const uintptr_t handle = cursor.handle();
    const std::vector<uint32_t> fields = cursor.fields_of(request.columns);
    cursor.set_readset(fields);
    Bound low(request.low), high(request.high);
    const Cursor_row row{handle};
    if (cursor_set_read_range(handle, low.get(), high.get(), true, true,
                              false)) {
      while (!cursor_advance(handle)) {
        totals.add_row(row, fields);
        ++answer.rows;
      }
    }
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
