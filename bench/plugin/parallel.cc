// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The plug-in's parallel read: the callback reads and uses every value.

#include "contender.h"
#include "cursors.h"
#include "totals.h"

namespace bench {

namespace {

/** What one worker reads. */
struct Slot {
  uint64_t rows = 0;
  Totals totals;
};

using Slots = morvena_sn::Per_worker<Slot>;

Slots slots_of(const Request &request) {
  return Slots(request.threads, {0, Totals(request.columns)});
}

template <class Reader>
void read_all(Reader &reader, const std::vector<uint32_t> &fields,
              const Request &request, Slots *slots) {
  reader.read_in_parallel(request.threads, [&](const morvena_sn::Batch &batch) {
    Slot &slot = (*slots)[batch];
    for (size_t i = 0; i < fields.size(); ++i)
      slot.totals.add_column_of(i, fields[i], batch.size(),
                                [&](uint32_t nr) { return batch[nr]; });
    slot.rows += batch.size();
  });
}

void join(const Slots &slots, uint64_t *rows, Totals *totals) {
  slots.for_each([&](const Slot &slot) {
    *rows += slot.rows;
    totals->join(slot.totals);
  });
}

uint64_t times(const Request &request) {
  return std::max<uint64_t>(request.count, 1);
}

}  // namespace

Answer parallel_read(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  const Watch watch;
  for (uint64_t i = 0; i < times(request); ++i) {
    Slots slots = slots_of(request);
    with_reader(request, [&](auto &reader, const auto &fields) {
      read_all(reader, fields, request, &slots);
    });
    join(slots, &answer.rows, &totals);
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

Answer parallel_read_alone(const Request &request) {
  Answer answer;
  Totals totals(request.columns);
  Slots slots = slots_of(request);
  with_reader(request, [&](auto &reader, const auto &fields) {
    const Watch watch;
    for (uint64_t i = 0; i < times(request); ++i)
      read_all(reader, fields, request, &slots);
    answer.ns = watch.ns();
  });
  join(slots, &answer.rows, &totals);
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
