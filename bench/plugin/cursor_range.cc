// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The plug-in's index cursor reads a long range.

#include "contender.h"
#include "cursors.h"
#include "totals.h"

namespace bench {

Answer cursor_range(const Request &request) {
  const Watch watch;
  Answer answer;
  Totals totals(request.columns);
  {
    auto cursor = cursor_on(request);
    const auto fields = cursor.select(names_of(request.columns));
    for (const auto row :
         cursor.range(morvena_sn::between(request.low, request.high))) {
      totals.add_row(row, fields);
      ++answer.rows;
    }
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
