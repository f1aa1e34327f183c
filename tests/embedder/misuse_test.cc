// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Misuse that can be recognised gives the failure result and has no other
// effect. CALLS and SEED in the server's environment set how many random calls
// are made, and which.

#include "misuse.h"

#include <cstdio>
#include <thread>

#include "common.h"
#include "common/pool.h"
#include "parallel_test.h"

namespace {

using namespace harness;

class Misuse : public Parallel_test {
 protected:
  Misuse() {
    for (const std::string &statement : misuse_tables()) sql.exec(statement);
    take_snapshot();
    donors_ = {0, donor.id(), sql.id(), id_of_nobody(), UINT32_MAX};
  }

  uint32_t id_of_nobody() {
    Client gone;
    gone.disconnect();
    EXPECT_TRUE(wait_until([&] {
      return sql.number(
                 "SELECT COUNT(*) FROM performance_schema.processlist"
                 " WHERE id = " +
                 std::to_string(gone.id())) == 0;
    }));
    return gone.id();
  }

  /** Check that the calls left nothing in use and that reads still work. */
  void expect_all_is_well() {
    EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
    EXPECT_EQ(ThreadBudget::s_active_threads.load(), 0u);
    donor.exec("COMMIT");
    sql.exec("SET lock_wait_timeout = 1");
    for (const char *table : {"t", "keyless", "parted"})
      EXPECT_EQ(
          sql.attempt(std::string("ALTER TABLE ") + table + " COMMENT 'x'")
              .error,
          0u);
    EXPECT_EQ(Cursor().ints(0), as_ints(sql.query("SELECT id FROM t")));
  }

  uint64_t call_alone(uint32_t seed, size_t calls) {
    Shared_handles handles;
    Misuser misuser(seed, true, handles, donors_);
    for (size_t i = 0; i < calls && !HasFailure(); ++i) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", call " +
                   std::to_string(i));
      misuser.call();
    }
    handles.close_all();
    EXPECT_GT(misuser.valid_calls(), calls / 10);
    fprintf(stderr, "misuse: %zu calls, %zu of open handles, seed %u, %llx\n",
            calls, misuser.valid_calls(), seed,
            static_cast<unsigned long long>(misuser.digest()));
    return misuser.digest();
  }

  std::vector<uint32_t> donors_;
};

TEST_F(Misuse, RandomCallsOfOneThread) {
  const size_t calls = setting("CALLS", 6000);
  const auto seed = static_cast<uint32_t>(setting("SEED", 1));
  for (size_t part = 0; part < 4; ++part)
    call_alone(seed + static_cast<uint32_t>(part), calls / 4);
  expect_all_is_well();
}

TEST_F(Misuse, ASeedRepeatsTheCallsAndTheirResults) {
  EXPECT_EQ(call_alone(7, 1000), call_alone(7, 1000));
  EXPECT_NE(call_alone(7, 1000), call_alone(8, 1000));
  expect_all_is_well();
}

TEST_F(Misuse, RandomCallsOfThreadsOnTheSameHandles) {
  constexpr size_t n_threads = 4;
  const size_t calls = setting("CALLS", 6000) / n_threads;
  const auto seed = static_cast<uint32_t>(setting("SEED", 1));
  Shared_handles handles;
  std::vector<std::future<void>> threads;
  for (uint32_t i = 0; i < n_threads; ++i)
    threads.push_back(on_own_thread([&, i] {
      Misuser misuser(seed + 100 + i, false, handles, donors_);
      for (size_t n = 0; n < calls; ++n) misuser.call();
    }));
  for (auto &thread : threads) thread.get();
  handles.close_all();
  fprintf(stderr, "misuse: %zu calls of %zu threads, seed %u\n",
          calls * n_threads, n_threads, seed);
  expect_all_is_well();
}

/** Check that all functions that use the cursor, and do more than describe it,
    return their failure results. */
void expect_in_use(uintptr_t index, uintptr_t scan) {
  uint32_t column = 0;
  long long value = 77;
  char *text = nullptr;
  size_t size;
  const auto take = [](uint64_t, uint64_t, void *) {
    ADD_FAILURE() << "called";
    return false;
  };
  EXPECT_FALSE(
      cursor_set_read_range(index, nullptr, nullptr, true, true, false));
  EXPECT_TRUE(cursor_advance(index));
  EXPECT_FALSE(cursor_advance_parallel(index, 2, take, nullptr));
  EXPECT_FALSE(seqscan_cursor_advance_parallel(scan, 2, take, nullptr));
  EXPECT_TRUE(cursor_read_field_int(index, 0, &value));
  EXPECT_TRUE(cursor_read_field_str(index, 0, &text, &size));
  EXPECT_EQ(value, 77);
  EXPECT_EQ(text, nullptr);
  cursor_set_readset(index, 0, &column);
  seqscan_cursor_set_readset(scan, 0, &column);
  close_index_cursor(index);
  close_seqscan_cursor(scan);
}

void expect_still_open(uintptr_t index, uintptr_t scan) {
  EXPECT_GT(cursor_output_col_num(index), 0u);
  EXPECT_EQ(cursor_idx_user_col_num(index), 1u);
  EXPECT_EQ(cursor_col_fieldnr(index, "id"), 1u);
  EXPECT_GT(seqscan_cursor_output_col_num(scan), 0u);
}

TEST_F(Misuse, HandlesThatAnotherThreadReadsAreRefused) {
  const Cursor cursor;
  const Scan scan;
  std::atomic<int> reading{0};
  std::atomic<bool> go_on{false};
  const auto wait = [&](const Batch &batch) {
    if (batch.thread == 0) ++reading;
    return !wait_until([&] { return go_on.load(); });
  };
  auto first =
      on_own_thread([&] { EXPECT_TRUE(read_parallel(cursor, 0, wait)); });
  auto second =
      on_own_thread([&] { EXPECT_TRUE(read_parallel(scan, 0, wait)); });
  ASSERT_TRUE(wait_until([&] { return reading == 2; }));
  expect_in_use(cursor.handle, scan.handle);
  expect_still_open(cursor.handle, scan.handle);
  go_on = true;
  first.get();
  second.get();
  EXPECT_EQ(collect_ints(cursor, 0, 0).size(), 900u);
  EXPECT_EQ(collect_ints(scan, 0, 0).size(), 900u);
}

TEST_F(Misuse, ACallbackMayLookAtItsHandleAndNoMore) {
  const Cursor cursor;
  const Scan scan;
  const auto misuse = [&](const Batch &) {
    expect_in_use(cursor.handle, scan.handle);
    expect_still_open(cursor.handle, scan.handle);
    return false;
  };
  for (const size_t threads : {0, 3})
    EXPECT_TRUE(read_parallel(scan, 0, [&](const Batch &) {
      EXPECT_TRUE(read_parallel(cursor, threads, misuse, Workers::any));
      return false;
    }));
}

TEST_F(Misuse, OutputsThatLeadNowhereAreRefused) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  const uintptr_t handle = cursor.handle;
  char *text;
  size_t size;
  bool negative;
  int32_t words, *data;
  EXPECT_TRUE(cursor_read_field_int(handle, 0, nullptr));
  EXPECT_TRUE(cursor_read_field_real(handle, 0, nullptr));
  EXPECT_TRUE(cursor_read_field_str(handle, 0, nullptr, &size));
  EXPECT_TRUE(cursor_read_field_str(handle, 0, &text, nullptr));
  EXPECT_TRUE(
      cursor_read_field_decimal(handle, 0, nullptr, &words, &words, &data));
  EXPECT_TRUE(
      cursor_read_field_decimal(handle, 0, &negative, nullptr, &words, &data));
  EXPECT_TRUE(
      cursor_read_field_decimal(handle, 0, &negative, &words, nullptr, &data));
  EXPECT_TRUE(
      cursor_read_field_decimal(handle, 0, &negative, &words, &words, nullptr));
  EXPECT_TRUE(cursor_read_field_date(handle, 0, nullptr));
  EXPECT_TRUE(cursor_read_field_time(handle, 0, nullptr));
  EXPECT_TRUE(cursor_read_field_datetime(handle, 0, nullptr));
  cursor_output_col_names(handle, nullptr);
  cursor_idx_col_names(handle, nullptr);
  cursor_set_readset(handle, 3, nullptr);
  EXPECT_EQ(cursor.read_int(0), 1);
}

TEST_F(Misuse, BoundsWithoutArraysAreRefused) {
  Cursor cursor;
  const auto expect_refused = [&](field_arg bound) {
    ASSERT_TRUE(cursor.set_range());
    EXPECT_FALSE(cursor_set_read_range(cursor.handle, &bound, nullptr, true,
                                       true, false));
    EXPECT_TRUE(cursor_advance(cursor.handle));
    EXPECT_FALSE(cursor_set_read_range(cursor.handle, nullptr, &bound, true,
                                       true, true));
    EXPECT_TRUE(cursor_advance(cursor.handle));
    EXPECT_FALSE(cursor.read_int(0));
  };
  int64_t key = 5;
  int32_t bytes = 8;
  char type = 1;
  void *value = &key, *nowhere = nullptr;
  expect_refused({1, nullptr, &value, &type});
  expect_refused({1, &bytes, nullptr, &type});
  expect_refused({1, &bytes, &value, nullptr});
  for (type = 1; type <= 5; ++type)
    expect_refused({1, &bytes, &nowhere, &type});
  EXPECT_EQ(cursor.ints(0).size(), 900u);
}

TEST_F(Misuse, ValuesOutsideARowAreNone) {
  Cursor cursor;
  const auto expect_none = [&] {
    for (unsigned int column = 0; column < 20; ++column) {
      EXPECT_FALSE(cursor.read_int(column)) << column;
      EXPECT_FALSE(cursor.read_text(column)) << column;
    }
  };
  expect_none();
  ASSERT_FALSE(cursor.set_range({Keys().number(5000)}));
  expect_none();
  EXPECT_EQ(cursor.ints(0).size(), 900u);
  expect_none();
}

TEST_F(Misuse, ColumnsThatWereNotReadWithTheRowHaveNoValue) {
  Cursor cursor;
  const unsigned int blob = cursor_col_fieldnr(cursor.handle, "bl") - 1;
  cursor.set_columns({0});
  ASSERT_TRUE(cursor.set_range());
  cursor.set_columns({0, blob});
  EXPECT_EQ(cursor.read_int(0), 1);
  EXPECT_FALSE(cursor.read_text(blob));
  ASSERT_TRUE(cursor.next() && cursor.next());
  EXPECT_FALSE(cursor.read_text(blob));
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_text(blob), "b");
}

}  // namespace
