// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/call_state.h
  What a call reports: how far it has come, and why it failed.
*/

#ifndef MORVENA_SN_COMMON_CALL_STATE_H
#define MORVENA_SN_COMMON_CALL_STATE_H

#include <atomic>
#include <cstdint>

#include "common/failure.h"

/** How far a read has come. Workers add at the ends of pages. */
struct Progress {
  std::atomic<uint64_t> rows{0};
  std::atomic<uint64_t> pages{0};
  std::atomic<uint64_t> pages_estimated{0};

  void restart(uint64_t estimate) {
    rows = 0;
    pages = 0;
    pages_estimated = estimate;
  }
};

struct Call_state {
  Failure failure;
  Progress progress;
};

#endif  // MORVENA_SN_COMMON_CALL_STATE_H
