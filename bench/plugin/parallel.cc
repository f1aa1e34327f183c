// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// This system's parallel read: every value is read and used in the callback.

#include "contender.h"
#include "cursors.h"
#include "totals.h"

namespace bench {

namespace {

/** What one worker reads; apart from its neighbours' in memory. */
struct alignas(128) Slot {
  explicit Slot(const std::vector<Column> &columns) : totals(columns) {}

  uint64_t rows = 0;
  Totals totals;
};

struct Reading {
  std::vector<uint32_t> fields;
  std::vector<Slot> slots;
};

bool take_batch(uint64_t batch, uint64_t worker, void *argument) {
  auto *reading = static_cast<Reading *>(argument);
  Slot *slot = &reading->slots[worker];
  const auto rows = static_cast<uint32_t>(pread_n_tuples(batch));
  for (size_t i = 0; i < reading->fields.size(); ++i)
    slot->totals.add_column_of(i, reading->fields[i], rows, [&](uint32_t nr) {
      return Batch_row{batch, nr};
    });
  slot->rows += rows;
  return false;
}

class Parallel_read {
 public:
  explicit Parallel_read(const Request &request)
      : request_(request), cursor_(request) {
    reading_.fields = cursor_.fields_of(request.columns);
    reading_.slots.assign(std::max<size_t>(request.threads, 1),
                          Slot(request.columns));
    cursor_.set_readset(reading_.fields);
  }

  void run() {
    if (!cursor_.read_in_parallel(request_.threads, take_batch, &reading_))
      throw std::runtime_error("the parallel read is not complete");
  }

  void add_to(uint64_t *rows, Totals *totals) const {
    for (const Slot &slot : reading_.slots) {
      *rows += slot.rows;
      totals->join(slot.totals);
    }
  }

 private:
  const Request &request_;
  Cursor cursor_;
  Reading reading_;
};

uint64_t times(const Request &request) {
  return std::max<uint64_t>(request.count, 1);
}

}  // namespace

Answer parallel_read(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  const Watch watch;
  for (uint64_t i = 0; i < times(request); ++i) {
    Parallel_read read(request);
    read.run();
    read.add_to(&answer.rows, &totals);
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

Answer parallel_read_alone(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  Parallel_read read(request);
  const Watch watch;
  for (uint64_t i = 0; i < times(request); ++i) read.run();
  answer.ns = watch.ns();
  read.add_to(&answer.rows, &totals);
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
