// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file parallel.cc
  A parallel read: the page to copy from, once reader.cc is known.

  The workers share nothing while they read: each sums into a slot of its own,
  which its number picks, and the slots are joined after the read.
*/

#include "parallel.h"

#include <atomic>

#include "cursor_session.hpp"
#include "mysqld_error.h"
#include "reader.h"

namespace example {
namespace {

using morvena_sn::Batch;
using morvena_sn::Error;
using morvena_sn::Int128;

/** What one worker has read. */
struct Slot {
  uint64_t rows = 0;
  std::vector<Int128> totals;
};

Int128 amount_of(const morvena_sn::Decimal &decimal) {
  // The sum of longer decimals may not fit into 128 bits.
  if (decimal.integer_words() <= 3)
    if (const auto billionths = decimal.scaled(9)) return *billionths;
  throw Error(ER_DATA_OUT_OF_RANGE, "a decimal too long to sum up");
}

/** A batch's column, summed up; NULLs add nothing. */
Int128 sum_of(const Batch &batch, uint32_t field, Summed_column::Type type) {
  Int128 sum = 0;
  for (const auto row : batch) {
    if (type == Summed_column::Type::integer) {
      sum += row.get<int64_t>(field).value_or(0);
    } else if (type == Summed_column::Type::date) {
      if (const auto date = row.get<morvena_sn::Date>(field))
        sum += (*date - morvena_sn::epoch).count();
    } else if (const auto decimal = row.get<morvena_sn::Decimal>(field)) {
      sum += amount_of(*decimal);
    }
  }
  return sum;
}

/** @param reader  a cursor with its range, or a scan */
template <class Reader>
Sums sum_up(Reader &reader, const Parallel_read &read,
            const morvena_sn::Reading &reading) {
  std::vector<std::string> names;
  for (const Summed_column &column : read.columns) names.push_back(column.name);
  const std::vector<uint32_t> fields = reader.select(names);
  const std::vector<Int128> zeros(fields.size());
  morvena_sn::Per_worker<Slot> slots(read.threads, {0, zeros});
  std::atomic<uint64_t> taken{0};  // rows of all workers

  // Several workers run this at the same time. They must not wait: each keeps a
  // page of the index latched. An exception ends the read and reaches the
  // caller.
  const auto take = [&](const Batch &batch) {
    if (reading.must_stop())
      throw Error(ER_SERVER_SHUTDOWN, "the server shuts down");
    Slot &slot = slots[batch];
    for (size_t i = 0; i < fields.size(); ++i)
      slot.totals[i] += sum_of(batch, fields[i], read.columns[i].type);
    slot.rows += batch.size();
    const uint64_t rows = taken += batch.size();
    return read.enough_rows != 0 && rows >= read.enough_rows
               ? morvena_sn::Then::stop
               : morvena_sn::Then::go_on;
  };

  Sums sums{0, false, zeros};
  sums.stopped = !reader.read_in_parallel(read.threads, take);
  // The read has ended, so the workers' writes are visible here.
  slots.for_each([&](const Slot &slot) {
    sums.rows += slot.rows;
    for (size_t i = 0; i < zeros.size(); ++i) sums.totals[i] += slot.totals[i];
  });
  return sums;
}

}  // namespace

Sums sum_on_client_thread(const Parallel_read &read) {
  const morvena_sn::Session_keeper keeper;
  const morvena_sn::Reading reading;
  if (read.index.empty()) {
    morvena_sn::Sequential_scan scan(read.db, read.table, {read.donor});
    return sum_up(scan, read, reading);
  }
  morvena_sn::Cursor cursor(read.db, read.table, read.index,
                            {read.donor, read.index_only});
  cursor.range(range_of(read.low, read.high));
  return sum_up(cursor, read, reading);
}

}  // namespace example
