// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Several embedders may call init_common() and deinit_common().

#include <atomic>
#include <chrono>
#include <future>

#include "common.h"
#include "common/pool.h"
#include "cursor_test.h"

namespace {

using namespace harness;

class Init : public Cursor_test {
 protected:
  Init() {
    CommonApi::destroy_idle_sessions();
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
    sql.exec("SET cte_max_recursion_depth = 100000");
    sql.exec(
        "INSERT INTO t WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL"
        " SELECT i + 1 FROM n WHERE i < 20000) SELECT i, i * 10 FROM n");
  }

  static size_t idle() {
    const std::lock_guard<std::mutex> lock(thd_pool_mutex);
    return thd_pool.size();
  }

  /** Whether a read with four threads delivers all rows. */
  static bool reads_in_parallel() {
    const Cursor cursor;
    std::atomic<uint64_t> rows{0};
    const auto add = [](uint64_t batch, uint64_t, void *sum) {
      *static_cast<std::atomic<uint64_t> *>(sum) += pread_n_tuples(batch);
      return false;
    };
    return cursor_advance_parallel(cursor.handle, 4, add, &rows) &&
           rows == 20000;
  }
};

// Two embedders in one server make these calls.
TEST_F(Init, EverythingServesUntilTheLastDeinit) {
  init_common();
  EXPECT_TRUE(reads_in_parallel());
  deinit_common();
  EXPECT_GT(idle(), 0u);
  EXPECT_TRUE(reads_in_parallel());
  deinit_common();
  EXPECT_EQ(idle(), 0u);
  EXPECT_FALSE(reads_in_parallel());
  init_common();
  EXPECT_TRUE(reads_in_parallel());
}

TEST_F(Init, DeinitWithoutInitDoesNothing) {
  deinit_common();
  Cursor().ints(0);
  ASSERT_EQ(idle(), 1u);
  deinit_common();
  EXPECT_EQ(idle(), 1u);
  // The surplus calls of deinit_common() do not cancel a later init_common().
  init_common();
  EXPECT_TRUE(reads_in_parallel());
}

TEST_F(Init, LastDeinitWaitsForTheReadThatRuns) {
  const Cursor cursor;
  struct Read {
    std::atomic<int> batches{0};
    std::atomic<uint64_t> rows{0};
    std::promise<void> goes_on;
    std::shared_future<void> may_go_on{goes_on.get_future()};
  } read;
  const auto take = [](uint64_t batch, uint64_t, void *of) {
    auto *r = static_cast<Read *>(of);
    r->rows += pread_n_tuples(batch);
    ++r->batches;
    r->may_go_on.wait();
    return false;
  };
  auto reader = on_own_thread([&] {
    EXPECT_TRUE(cursor_advance_parallel(cursor.handle, 4, take, &read));
  });
  EXPECT_TRUE(wait_until([&] { return read.batches > 0; }));
  auto ends = on_own_thread([] { deinit_common(); });
  EXPECT_TRUE(wait_until([] { return ThreadPool::get_instance() == nullptr; }));
  EXPECT_EQ(ends.wait_for(std::chrono::milliseconds(100)),
            std::future_status::timeout);
  read.goes_on.set_value();
  reader.get();
  ends.get();
  EXPECT_EQ(read.rows, 20000u);
  init_common();
}

}  // namespace
