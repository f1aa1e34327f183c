// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Uses every class of cursor.hpp from a file that includes nothing else.

#include "cursor.hpp"

using namespace morvena_sn;

int64_t sum_rows(uint32_t donor);
int64_t sum_in_parallel(Sequential_scan &scan);
Range every_range(const Decimal &decimal);
bool read_values(const Cursor &cursor);
bool open_without_exceptions();

int64_t sum_rows(uint32_t donor) {
  Cursor orders("shop", "orders", "PRIMARY", {donor});
  const auto [amount, day] = orders.select("amount", "day");
  int64_t sum = 0;
  for (const auto row : orders.range(between(100, 199)))
    if (row.get<Date>(day)) sum += row.get<int64_t>(amount).value_or(0);
  while (orders.next()) sum += orders.get<int64_t>("amount").value_or(0);
  Cursor moved = std::move(orders);
  moved.cancel();
  moved.close();
  return sum;
}

int64_t sum_in_parallel(Sequential_scan &scan) {
  const uint32_t amount = scan.column("amount");
  Per_worker<int64_t> sums(4);
  scan.read_in_parallel(4, [&](const Batch &batch) {
    for (const auto row : batch)
      sums[batch] += row.get<int64_t>(amount).value_or(0);
    return batch.get<int64_t>(amount, 0) ? Then::go_on : Then::stop;
  });
  int64_t sum = 0;
  sums.for_each([&](int64_t of_worker) { sum += of_worker; });
  return sum + static_cast<int64_t>(scan.progress().value_or(Progress()).rows);
}

Range every_range(const Decimal &decimal) {
  (void)all();
  (void)equal(1, "a", 1.5, decimal, nullptr, std::optional<int>());
  (void)at_least(uint64_t{1}).less_than(Date());
  (void)greater_than(Datetime()).at_most(Duration()).reversed();
  return between(Bound(1, "a"), Bound(1).add(std::string("b")));
}

bool read_values(const Cursor &cursor) {
  const Row row = cursor.row();
  const auto decimal = row.get<Decimal>(0);
  return row.get<uint64_t>(0) && row.get<double>(0) &&
         row.get<std::string>(0) && row.get<std::string_view>(0) && decimal &&
         decimal->scaled(decimal->scale()) && row.get<Date>(0) &&
         row.get<Duration>(0) && row.get<Datetime>(0) &&
         to_text(*decimal->scaled(9), 9) == decimal->text(9);
}

bool open_without_exceptions() {
  auto moment = Snapshot::take();
  if (!moment.has_value()) return moment.error().code() != 0;
  Options options;
  options.donor = moment.value().donor();
  auto cursor = Cursor::open("shop", "orders", "by_day", options);
  auto scan = Sequential_scan::open("shop", "orders", options);
  if (!cursor.has_value() || !scan.has_value()) return false;
  const auto read = scan.value().try_read_in_parallel(2, [](const Batch &) {});
  return cursor.value().try_range(all()).has_value() &&
         cursor.value().try_next().has_value() && read.has_value() &&
         read.value() && sum_in_parallel(scan.value()) != 0;
}
