// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file parallel.h
  Sums over a table or an index, read with several threads.
*/

#ifndef MORVENA_EXAMPLE_PARALLEL_H
#define MORVENA_EXAMPLE_PARALLEL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cursor.hpp"

namespace example {

/** A column to sum up. Dates count in days since 2000-01-01. */
struct Summed_column {
  enum class Type { integer, decimal, date };

  std::string name;
  Type type;
};

/** What to read. */
struct Parallel_read {
  std::string db, table;
  std::string index;  ///< empty: the whole table, by a sequential scan
  std::vector<Summed_column> columns;
  std::optional<std::string> low, high;  ///< of an index; included, if given
  bool index_only = false;               ///< what makes a secondary index exact
  size_t threads = 1;
  uint64_t enough_rows = 0;  ///< stop once so many are read; 0: read all
  /** Connection id, of a session whose transaction has a snapshot: without one
      the read may see rows that nobody has committed. 0: a snapshot of the
      read's own. */
  uint32_t donor = 0;
};

struct Sums {
  uint64_t rows = 0;
  bool stopped = false;  ///< there were enough rows; perhaps they were all
  /** By column, in 10^-9 units for decimals. */
  std::vector<morvena_sn::Int128> totals;
};

/** Reads on a client's thread, which waits and has its session back afterwards.
    Throws morvena_sn::Error, also when the client's statement is killed or the
    server stops. */
Sums sum_on_client_thread(const Parallel_read &read);

}  // namespace example

#endif  // MORVENA_EXAMPLE_PARALLEL_H
