// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// What a failing read prints to standard error.

#include "parallel_test.h"
#include "session.h"

#include "my_base.h"

namespace {

using namespace harness;

const std::string words = "got error while scan index :";

class FailingRead : public Parallel_test {
 protected:
  // More rows than the table handler fetches ahead.
  FailingRead() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
    fill("t", 20000, "i");
  }
};

TEST_F(FailingRead, SaysItsCodeOnce) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  kill_session(current_session());
  const Server_log log(sql);
  int rows = 0;
  while (cursor.next()) ++rows;
  ASSERT_LT(rows, 20000);
  EXPECT_EQ(log.count(words + std::to_string(HA_ERR_GENERIC) + "\n"), 1u);
  EXPECT_FALSE(cursor.next());
  EXPECT_EQ(log.count(words), 1u);
}

TEST_F(FailingRead, SaysItsCodeWhereARangeDoesNotBegin) {
  Cursor cursor;
  kill_session(current_session());
  const Server_log log(sql);
  EXPECT_FALSE(cursor.set_range());
  EXPECT_EQ(log.count(words + std::to_string(HA_ERR_GENERIC) + "\n"), 1u);
}

TEST_F(FailingRead, EndOfARangeSaysNothing) {
  const Server_log log(sql);
  Cursor cursor;
  EXPECT_EQ(cursor.ints(0).size(), 20000u);
  EXPECT_EQ(cursor.ints(0, {.reverse = true}).size(), 20000u);
  const Keys beyond = Keys().number(30000);
  EXPECT_FALSE(cursor.set_range({beyond, {}}));
  EXPECT_FALSE(cursor.set_range({beyond, beyond}));
  EXPECT_EQ(log.count(words), 0u);
}

}  // namespace
