// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Reads free what they allocate: range boundaries, keys and large values.

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelMemory : public Parallel_test {
 protected:
  ParallelMemory() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(8000),"
        " KEY by_v (v, w(1500))) CHARACTER SET latin1");
    fill("t", 200, "i, i * 7 % 200, REPEAT('w', 7000)");
    // While the performance schema counts memory for each thread, it counts
    // nothing for threads that are not registered with it. Workers and the
    // thread of the case are such threads.
    account_to_threads("NO");
  }
  ~ParallelMemory() override { account_to_threads("YES"); }

  void account_to_threads(const std::string &enabled) {
    sql.exec("UPDATE performance_schema.setup_consumers SET enabled = '" +
             enabled + "' WHERE name = 'thread_instrumentation'");
  }

  /** How many pieces of memory InnoDB and the server's SQL layer have in
      use. */
  int64_t pieces_in_use() {
    return sql.number(
        "SELECT SUM(current_count_used)"
        " FROM performance_schema.memory_summary_global_by_event_name"
        " WHERE event_name LIKE 'memory/innodb/%'"
        " OR event_name LIKE 'memory/sql/%'");
  }

  /** Repeats a read. If each read leaked one piece of memory, the count would
      grow by more than the server's own threads allocate meanwhile. */
  template <class Reader>
  void expect_that_reads_free(const Reader &reader, size_t threads) {
    constexpr int n_reads = 100;
    const auto read = [&] {
      EXPECT_EQ(collect_ints(reader, threads, 0).size(), 200u);
    };
    for (int i = 0; i < 10; ++i) read();
    const int64_t before = pieces_in_use();
    for (int i = 0; i < n_reads; ++i) read();
    const int64_t kept = pieces_in_use() - before;
    EXPECT_LT(kept, n_reads / 2) << threads << " threads";
  }
};

TEST_F(ParallelMemory, ReadsOfATableFreeIt) {
  const Scan scan;
  for (const size_t threads : {0, 4}) expect_that_reads_free(scan, threads);
}

TEST_F(ParallelMemory, ReadsOfAnIndexFreeIt) {
  const Cursor cursor({.index = "by_v"});
  for (const size_t threads : {0, 4}) expect_that_reads_free(cursor, threads);
}

TEST_F(ParallelMemory, RangesFreeIt) {
  Cursor cursor;
  cursor.set_range({Keys().number(1), Keys().number(200)});
  for (const size_t threads : {0, 4}) expect_that_reads_free(cursor, threads);
}

}  // namespace
