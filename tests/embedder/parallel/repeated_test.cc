/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// Many reads in one server leave nothing behind. READS in the server's
// environment sets how many.

#include <atomic>

#include "common.h"
#include "innodb_api/pool.h"
#include "parallel_test.h"
#include "process.h"

namespace {

using namespace harness;

class Parallel_repeated : public Parallel_test {
 protected:
  Parallel_repeated() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(100), c TEXT,"
        " KEY by_v (v), x INT AS (v + 1) VIRTUAL, KEY by_x (x))");
    fill("t (id, v, w, c)", 9000,
         "i, i % 100, CONCAT('w', i), IF(i % 200, NULL, REPEAT('c', 20000))");
    sql.exec(
        "CREATE TABLE p (id INT PRIMARY KEY) PARTITION BY HASH (id)"
        " PARTITIONS 2");
  }

  /** Reads of every kind and outcome in turn. */
  void read(size_t i) {
    const auto stop = [](const Batch &) { return true; };
    const auto fail = [](const Batch &) -> bool { throw 5; };
    const size_t threads = thread_counts[i % thread_counts.size()];
    switch (i % 6) {
      case 0:
        EXPECT_EQ(collect(Scan(), threads, {0, 1, 2, 3}).rows.size(), 9000u);
        break;
      case 1:
        EXPECT_EQ(collect(Cursor({.index = "by_v", .index_only = true}),
                          threads, {0, 1})
                      .rows.size(),
                  9000u);
        break;
      case 2: {
        Cursor cursor({.index = "by_v"});
        cursor.set_range({Keys().number(20), Keys().number(40)});
        EXPECT_TRUE(collect(cursor, threads, {0, 2}).complete);
        break;
      }
      case 3:
        EXPECT_FALSE(read_parallel(Scan(), threads % 2, stop));
        break;
      case 4:
        EXPECT_FALSE(read_parallel(Cursor(), threads % 2, fail));
        break;
      default:
        EXPECT_FALSE(read_parallel(Cursor({.index = "by_x"}), threads, stop));
        EXPECT_FALSE(read_parallel(Scan({.table = "p"}), threads, stop));
    }
  }

  int64_t status(const std::string &name) {
    return std::stoll(
        *sql.query("SHOW GLOBAL STATUS LIKE '" + name + "'")[0][1]);
  }
};

TEST_F(Parallel_repeated, NothingIsLeftBehind) {
  const size_t reads = setting("READS", 300);
  // Until every kind of read and every pooled session has been there.
  for (size_t i = 0; i < 84; ++i) read(i);
  const auto threads_are = [](size_t n) {
    return wait_until([n] { return of_process("Threads") == n; });
  };
  EXPECT_TRUE(wait_until([] { return of_process("Threads") < 200; }));
  const size_t threads = of_process("Threads");
  const size_t memory = memory_in_use();
  const int64_t locks = metadata_locks(), tables = status("Open_tables");
  for (size_t i = 0; i < reads && !HasFailure(); ++i) {
    SCOPED_TRACE("read " + std::to_string(i));
    read(i);
  }
  EXPECT_TRUE(threads_are(threads)) << of_process("Threads");
  EXPECT_LE(memory_in_use(), memory + memory / 20);
  EXPECT_EQ(metadata_locks(), locks);
  EXPECT_EQ(status("Open_tables"), tables);
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
  EXPECT_EQ(ThreadBudget::s_active_threads.load(), 0u);
}

TEST_F(Parallel_repeated, OnOneCursor) {
  const Scan scan;
  const size_t reads = setting("READS", 300);
  for (size_t i = 0; i < 40; ++i) collect(scan, i % 5, {0, 3});
  const size_t memory = memory_in_use();
  for (size_t i = 0; i < reads && !HasFailure(); ++i)
    EXPECT_EQ(collect(scan, i % 5, {0, 3}).rows.size(), 9000u);
  EXPECT_LE(memory_in_use(), memory + memory / 20);
}

}  // namespace
