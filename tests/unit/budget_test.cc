// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "common/pool.h"
#include "gtest/gtest.h"
#include "host_stand_in.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

using Reader = ThreadBudget;

size_t reserved() { return Reader::s_active_threads.load(); }

/** Each case begins and ends without reserved threads. */
class Budget : public testing::Test {
 protected:
  Budget() { EXPECT_EQ(reserved(), 0u); }
  ~Budget() override { Reader::s_active_threads = 0; }
};

TEST_F(Budget, GrantsWhatIsFree) {
  EXPECT_EQ(Reader::available_threads(4), 4u);
  EXPECT_EQ(reserved(), 4u);
}

TEST_F(Budget, GrantsTheRestWhenLessIsFree) {
  ASSERT_EQ(Reader::available_threads(254), 254u);
  EXPECT_EQ(Reader::available_threads(4), 2u);
  EXPECT_EQ(reserved(), 256u);
}

TEST_F(Budget, GrantsNothingWhenNothingIsFree) {
  ASSERT_EQ(Reader::available_threads(256), 256u);
  EXPECT_EQ(Reader::available_threads(1), 0u);
  EXPECT_EQ(reserved(), 256u);
}

TEST_F(Budget, AskingForNoneChangesNothing) {
  ASSERT_EQ(Reader::available_threads(3), 3u);
  EXPECT_EQ(Reader::available_threads(0), 0u);
  EXPECT_EQ(reserved(), 3u);
}

TEST_F(Budget, AskingForNoneOfAFullBudgetChangesNothing) {
  ASSERT_EQ(Reader::available_threads(256), 256u);
  EXPECT_EQ(Reader::available_threads(0), 0u);
  EXPECT_EQ(reserved(), 256u);
}

TEST_F(Budget, AskingForMoreThanThereIsGrantsAll) {
  EXPECT_EQ(Reader::available_threads(1000), 256u);
  EXPECT_EQ(reserved(), 256u);
}

TEST_F(Budget, AskingForTheLargestNumberGrantsAll) {
  ASSERT_EQ(Reader::available_threads(1), 1u);
  EXPECT_EQ(Reader::available_threads(SIZE_MAX), 255u);
  EXPECT_EQ(reserved(), 256u);
}

TEST_F(Budget, ReleasedThreadsCanBeReservedAgain) {
  ASSERT_EQ(Reader::available_threads(256), 256u);
  Reader::release_threads(10);
  EXPECT_EQ(Reader::available_threads(20), 10u);
}

TEST_F(Budget, ReleasingMoreThanReservedIsAnAssertion) {
  ASSERT_EQ(Reader::available_threads(1), 1u);
  try {
    Reader::release_threads(2);
    FAIL() << "no assertion";
  } catch (const Assertion &assertion) {
    EXPECT_STREQ(assertion.what(), "active >= n_threads");
  }
}

// All threads together never hold more than the budget, and give all of it
// back.
TEST_F(Budget, ConcurrentReadersShareIt) {
  constexpr int n_threads = 8;
  std::atomic<size_t> held{0};
  std::atomic<bool> exceeded{false};
  std::atomic<int> started{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < n_threads; ++i) {
    threads.emplace_back([&] {
      ++started;
      while (started < n_threads) std::this_thread::yield();
      for (int round = 0; round < 20000; ++round) {
        const size_t got = Reader::available_threads(50);
        if (held.fetch_add(got) + got > 256) exceeded = true;
        held -= got;
        Reader::release_threads(got);
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_FALSE(exceeded);
  EXPECT_EQ(reserved(), 0u);
}

}  // namespace
