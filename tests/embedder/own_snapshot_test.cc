// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Snapshots without a client, and what cursor_snapshot() says of a cursor's
// snapshot.

#include <chrono>
#include <thread>
#include <vector>

#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;
using std::chrono::milliseconds;

class OwnSnapshot : public Parallel_test {
 protected:
  OwnSnapshot() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
    sql.exec("CREATE TABLE u (id INT PRIMARY KEY, v INT)");
    sql.exec("INSERT INTO t VALUES (1, 10)");
    sql.exec("INSERT INTO u VALUES (1, 10)");
  }
};

TEST_F(OwnSnapshot, IsOneMomentForSeveralTables) {
  unsigned int error = 5;
  char message[512] = "";
  const uint32_t moment = open_snapshot(&error, message);
  ASSERT_NE(moment, 0u) << message;
  EXPECT_EQ(error, 0u);
  sql.exec("UPDATE t SET v = 11");
  sql.exec("UPDATE u SET v = 11");
  Cursor of_t({.donor = moment});
  sql.exec("UPDATE u SET v = 12");
  Cursor of_u({.table = "u", .donor = moment});
  const Scan scan_u({.table = "u", .donor = moment});
  EXPECT_EQ(cursor_snapshot(of_t.handle), 1);
  EXPECT_EQ(of_t.ints(1), (std::vector<long long>{10}));
  EXPECT_EQ(of_u.ints(1), (std::vector<long long>{10}));
  close_snapshot(moment);
  // The cursors have copied the snapshot, so its end does not affect them.
  EXPECT_EQ(of_u.ints(1), (std::vector<long long>{10}));
  EXPECT_EQ(collect_ints(scan_u, 2, 1, Workers::any),
            (std::vector<long long>{10}));
}

TEST_F(OwnSnapshot, IsUnknownAfterItsEnd) {
  const uint32_t moment = open_snapshot(nullptr, nullptr);
  close_snapshot(moment);
  close_snapshot(moment);
  close_snapshot(0);
  close_snapshot(sql.id());
  const Cursor cursor({.donor = moment});
  EXPECT_TRUE(cursor.is_open());
  EXPECT_EQ(session_error(current_session()).number, 1094u);
  EXPECT_EQ(cursor_snapshot(cursor.handle), 0);
  EXPECT_EQ(sql.number("SELECT 1"), 1);
}

TEST_F(OwnSnapshot, IdIsNotGivenOutAgain) {
  const uint32_t first = open_snapshot(nullptr, nullptr);
  close_snapshot(first);
  const uint32_t second = open_snapshot(nullptr, nullptr);
  EXPECT_NE(second, first);
  close_snapshot(first);
  const Cursor cursor({.donor = second});
  EXPECT_EQ(cursor_snapshot(cursor.handle), 1);
  close_snapshot(second);
}

TEST_F(OwnSnapshot, EndsWithoutAWordInTheLog) {
  const Server_log log(sql);
  close_snapshot(open_snapshot(nullptr, nullptr));
  EXPECT_EQ(log.count("[ERROR]"), 0u) << log.text();
  EXPECT_EQ(log.count("[Warning]"), 0u) << log.text();
}

TEST_F(OwnSnapshot, HoldsBackPurgeUntilItsEnd) {
  const uint32_t moment = open_snapshot(nullptr, nullptr);
  sql.exec("DELETE FROM t");
  for (int i = 0; i < 200; ++i) sql.exec("UPDATE u SET v = v + 1");
  std::this_thread::sleep_for(milliseconds(300));
  Cursor cursor({.donor = moment});
  EXPECT_EQ(cursor.ints(1), (std::vector<long long>{10}));
  close_snapshot(moment);
}

TEST_F(OwnSnapshot, CursorsTellWhoseTheyHave) {
  const Cursor own;
  EXPECT_EQ(cursor_snapshot(own.handle), 2);
  take_snapshot();
  const Cursor donors({.donor = donor.id()});
  EXPECT_EQ(cursor_snapshot(donors.handle), 1);
  Client idle;
  Cursor fresh({.donor = idle.id()});
  EXPECT_EQ(cursor_snapshot(fresh.handle), 0);
  EXPECT_EQ(fresh.ints(1), (std::vector<long long>{10}));
  EXPECT_EQ(cursor_snapshot(fresh.handle), 2);
  EXPECT_EQ(cursor_snapshot(0), 0);
}

}  // namespace
