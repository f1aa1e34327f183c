// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file reader.h
  What reader.cc offers to other sources of the same shared object.
*/

#ifndef MORVENA_EXAMPLE_READER_H
#define MORVENA_EXAMPLE_READER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cursor.hpp"

namespace example {

/** What to read. */
struct Range_read {
  std::string db, table, index;
  std::vector<std::string> columns;  ///< names, in the order of `fields`
  morvena_sn::Range range;
  bool index_only = false;
  uint32_t donor = 0;  ///< connection id; 0: a snapshot of the read's own
};

/** Ends of a range, as text of the first key part: that fits a column of any
    type. An end that is missing bounds nothing. */
morvena_sn::Range range_of(const std::optional<std::string> &low,
                           const std::optional<std::string> &high,
                           bool low_included = true, bool high_included = true);

/** Called for each row; `fields` are the positions of Range_read::columns. */
using Row_function = std::function<void(const morvena_sn::Row &row,
                                        const std::vector<uint32_t> &fields)>;

/**
  Read the rows of a range in its order. Throws morvena_sn::Error, and what
  on_row throws.

  Threads: those that the server made or that a morvena_sn::Server_thread made
  known. Leaves the thread with a session that is not its own; on_row runs so,
  too.
*/
void read_range(const Range_read &read, const Row_function &on_row);

}  // namespace example

#endif  // MORVENA_EXAMPLE_READER_H
