// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file reader.cc
  A complete embedding plug-in: the page to copy from.

    INSTALL PLUGIN morvena_example SONAME 'morvena_example.so';

  It starts the reading functions with itself, reads ranges, and is out of the
  way when the server stops. functions.cc makes SQL functions of it, which read
  on threads of their own and on clients' threads.
*/

#include "reader.h"

#include "cursor.hpp"
#include "cursor_plugin.hpp"
#include "cursor_session.hpp"
#include "mysqld_error.h"

namespace example {

void read_range(const Range_read &read, const Row_function &on_row) {
  // The server's shutdown waits for this object, so no cursor outlives InnoDB.
  const morvena_sn::Reading reading;
  morvena_sn::Cursor cursor(read.db, read.table, read.index,
                            {read.donor, read.index_only});
  const std::vector<uint32_t> fields = cursor.select(read.columns);
  // A kill of the client ends the loop by an exception, as any failure does.
  for (const auto row : cursor.range(read.range)) {
    if (reading.must_stop())
      throw morvena_sn::Error(ER_SERVER_SHUTDOWN, "the server shuts down");
    on_row(row, fields);
  }
}

morvena_sn::Range range_of(const std::optional<std::string> &low,
                           const std::optional<std::string> &high,
                           bool low_included, bool high_included) {
  using morvena_sn::Bound;
  morvena_sn::Range range;
  if (low) range.set_low(Bound(*low), low_included);
  if (high) range.set_high(Bound(*high), high_included);
  return range;
}

}  // namespace example

MORVENA_SN_PLUGIN(morvena_example, "the morvena_sn authors",
                  "Reads InnoDB tables through morvena_sn");
