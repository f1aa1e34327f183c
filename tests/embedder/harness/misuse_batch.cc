// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The random calls that callbacks make: reads inside and outside their batch,
// and calls on the handle that is being read.

#include <stdexcept>

#include "gtest/gtest.h"
#include "misuse.h"

namespace harness {

namespace {

/** What a callback needs: the handle of its own read, and how it is to
    behave. */
struct Batch_misuse {
  uintptr_t handle;
  uint32_t seed;
  bool ends_early;
  bool throws;
};

bool stops_nowhere(uint64_t, uint64_t, void *) { return false; }

void misuse_own_handle(uintptr_t handle) {
  EXPECT_TRUE(cursor_advance(handle));
  EXPECT_FALSE(
      cursor_set_read_range(handle, nullptr, nullptr, true, true, false));
  EXPECT_FALSE(cursor_advance_parallel(handle, 2, stops_nowhere, nullptr));
  EXPECT_FALSE(
      seqscan_cursor_advance_parallel(handle, 2, stops_nowhere, nullptr));
  cursor_set_readset(handle, 0, nullptr);
  close_index_cursor(handle);
  close_seqscan_cursor(handle);
  long long value;
  EXPECT_TRUE(cursor_read_field_int(handle, 0, &value));
}

}  // namespace

bool Misuser::misuse_batch(uint64_t batch, uint64_t thread, void *argument) {
  const auto *misuse = static_cast<const Batch_misuse *>(argument);
  std::mt19937 engine(misuse->seed + static_cast<uint32_t>(thread));
  const uint64_t rows = pread_n_tuples(batch);
  EXPECT_GT(rows, 0u);
  EXPECT_LE(rows, 4096u);
  char *text;
  size_t size;
  bool negative;
  int32_t words, fraction, *data, date;
  int64_t time;
  long long integer;
  double real;
  volatile uint64_t sum = 0;
  for (int i = 0; i < 100; ++i) {
    const uint32_t column = engine() % 22;
    const uint32_t nr = engine() % 8 == 0
                            ? static_cast<uint32_t>(engine())
                            : static_cast<uint32_t>(engine() % rows);
    const uintptr_t ctx = engine() % 20 == 0 ? 0 : batch;
    const bool bad = ctx == 0 || nr >= rows;
    bool none = pread_field_int(ctx, column, nr, &integer);
    EXPECT_TRUE(none || !bad);
    EXPECT_EQ(none, pread_field_real(ctx, column, nr, &real));
    EXPECT_EQ(none, pread_field_str(ctx, column, nr, &text, &size));
    if (!none) sum = sum + sum_of(text, size);
    EXPECT_EQ(none, pread_field_decimal(ctx, column, nr, &negative, &words,
                                        &fraction, &data));
    if (!none)
      for (int j = 0; j < words + fraction; ++j)
        sum = sum + static_cast<uint64_t>(data[j]);
    EXPECT_EQ(none, pread_field_date(ctx, column, nr, &date));
    EXPECT_EQ(none, pread_field_time(ctx, column, nr, &time));
    EXPECT_EQ(none, pread_field_datetime(ctx, column, nr, &time));
    EXPECT_TRUE(pread_field_int(batch, column, nr, nullptr));
    EXPECT_TRUE(pread_field_str(batch, column, nr, nullptr, &size));
  }
  misuse_own_handle(misuse->handle);
  if (misuse->throws) throw std::runtime_error("torn");
  return misuse->ends_early;
}

void Misuser::read_in_parallel() {
  static const size_t counts[] = {0, 1, 2, 4, 300, SIZE_MAX};
  const Handle handle = random_handle();
  const size_t threads = counts[below(6)];
  Batch_misuse misuse{handle.value, static_cast<uint32_t>(engine_()),
                      once_in(4), once_in(8)};
  const Parallel_load_func f = once_in(10) ? nullptr : misuse_batch;
  const bool as_scan = once_in(2);
  const bool complete =
      as_scan
          ? seqscan_cursor_advance_parallel(handle.value, threads, f, &misuse)
          : cursor_advance_parallel(handle.value, threads, f, &misuse);
  EXPECT_TRUE((is_usable(handle, as_scan) && f != nullptr) || !complete);
  note(complete);
}

}  // namespace harness
