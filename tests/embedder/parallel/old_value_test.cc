// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Large values that were changed in place after the snapshot. Their pages hold
// the latest content, and the undo log holds the bytes that the changes
// replaced.

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelOldValue : public Parallel_test {
 protected:
  ParallelOldValue() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, j JSON, " + filler(7000) +
             ")");
    fill("t", 48,
         "i, JSON_OBJECT('n', 1000 + i, 'text', 'xxxxxxxxxx',"
         " 'rest', REPEAT('y', 20000 + 1000 * i))");
    take_snapshot();
  }
};

TEST_F(ParallelOldValue, JsonChangedInPlaceOnce) {
  sql.exec("UPDATE t SET j = JSON_SET(j, '$.text', 'zzz') WHERE id % 2");
  expect_whole_table();
}

TEST_F(ParallelOldValue, JsonChangedInPlaceAgainAndAgain) {
  for (int i = 0; i < 5; ++i) {
    sql.exec("UPDATE t SET j = JSON_SET(j, '$.text', 'z" + std::to_string(i) +
             "', '$.n', " + std::to_string(i) + ") WHERE id % 3");
  }
  expect_whole_table();
}

TEST_F(ParallelOldValue, JsonChangedInPlaceThenReplaced) {
  sql.exec("UPDATE t SET j = JSON_SET(j, '$.text', 'zzz')");
  sql.exec("UPDATE t SET j = JSON_ARRAY(REPEAT('w', 30000)) WHERE id % 2");
  expect_whole_table();
}

}  // namespace
