// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Counters for SHOW GLOBAL STATUS.

#include "common/counters.h"

#include <atomic>

namespace {

constexpr size_t cache_line = 64;

struct alignas(cache_line) Slot {
  std::atomic<int64_t> n{0};
};

Slot slots[static_cast<size_t>(Tally::N)];

}  // namespace

// The numbers are read by people, and order nothing.
void counters::add(Tally counter, int64_t n) {
  slots[static_cast<size_t>(counter)].n.fetch_add(n, std::memory_order_relaxed);
}

int64_t counters::value(Tally counter) {
  return slots[static_cast<size_t>(counter)].n.load(std::memory_order_relaxed);
}
