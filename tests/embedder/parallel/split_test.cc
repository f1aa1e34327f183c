// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// A read that has few units splits them into more, so that all of its workers
// have work.

#include <algorithm>
#include <atomic>

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelSplit : public Parallel_test {
 protected:
  /** Keys so long that a page holds about twenty. The root has fewer node
      pointers than the read has workers; the level below it has more. */
  ParallelSplit() {
    sql.exec(
        "CREATE TABLE t (k VARCHAR(700) CHARACTER SET latin1 PRIMARY KEY,"
        " v INT)");
    fill("t", n_rows, "CONCAT(LPAD(i, 8, '0'), REPEAT('k', 692)), i");
  }

  static constexpr size_t n_rows = 40000, n_workers = 8;
};

// Each worker keeps its first full batch until all workers have one. Each
// worker therefore needs its own unit with enough rows, because no worker can
// read the unit of another.
TEST_F(ParallelSplit, MoreWorkersThanUnitsAllGetRows) {
  ASSERT_EQ(tree_levels(), 4);
  const Scan scan;
  std::atomic<bool> has_rows[n_workers] = {};
  const auto all_have_rows = [&] {
    return std::all_of(std::begin(has_rows), std::end(has_rows),
                       [](const std::atomic<bool> &has) { return has.load(); });
  };
  EXPECT_TRUE(read_parallel(scan, n_workers, [&](const Batch &batch) {
    has_rows[batch.thread] = true;
    return !wait_until(all_have_rows);
  }));
}

}  // namespace
