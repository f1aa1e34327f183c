// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only
// Each of our allocations fails in turn, and so does each start of a thread.
// The call that is under way returns its failure result or manages without,
// nothing is left open, and the next call works. Allocations of the server (its
// heaps, the memory roots of its sessions) do not fail here: for most of them
// the server would abort.

#include "fault.h"

#include <atomic>
#include <cstdio>
#include <future>
#include <thread>
#include <vector>

#include "common.h"
#include "common/pool.h"
#include "cursor_test.h"
#include "lifecycle.h"

namespace {

using namespace harness;

constexpr uint64_t n_rows = 6000;

/** One use of the plug-in, from its start to its end. The case itself allocates
    nothing in it. @return whether all of it went well */
using Use = bool (*)();

struct Sum {
  std::atomic<uint64_t> rows{0};
  std::atomic<uint64_t> ids{0};
  bool is_all() const {
    return rows == n_rows && ids == n_rows * (n_rows + 1) / 2;
  }
};

bool add_batch(uint64_t batch, uint64_t, void *argument) {
  auto *sum = static_cast<Sum *>(argument);
  const uint64_t rows = pread_n_tuples(batch);
  uint64_t ids = 0;
  for (unsigned int nr = 0; nr < rows; ++nr) {
    long long id;
    char *text;
    size_t size;
    if (pread_field_int(batch, 0, nr, &id)) return true;
    if (pread_field_str(batch, 2, nr, &text, &size)) return true;
    ids += static_cast<uint64_t>(id);
  }
  sum->rows += rows;
  sum->ids += ids;
  return false;
}

bool read_rows() {
  unsigned int error;
  char message[512];
  const uintptr_t cursor =
      open_index_cursor("db", "t", "by_v", false, 0, 5, &error, message);
  if (cursor == 0) return false;
  uint32_t columns[] = {0, 1};
  const char *names[8];
  cursor_set_readset(cursor, 2, columns);
  bool well =
      cursor_output_col_num(cursor) == 3 && cursor_idx_col_num(cursor) == 2;
  if (well) cursor_output_col_names(cursor, names);
  int64_t low = 1, high = 50;
  int32_t bytes = sizeof low;
  void *low_value = &low, *high_value = &high;
  char type = 1;
  field_arg begin{1, &bytes, &low_value, &type};
  field_arg end{1, &bytes, &high_value, &type};
  well = cursor_set_read_range(cursor, &begin, &end, true, true, false) && well;
  uint64_t rows = 0;
  long long value;
  while (!cursor_advance(cursor))
    if (!cursor_read_field_int(cursor, 0, &value)) ++rows;
  close_index_cursor(cursor);
  return well && rows == n_rows / 2;
}

bool scan(size_t threads) {
  unsigned int error;
  char message[512];
  const uintptr_t cursor =
      open_seqscan_cursor("db", "t", 0, 5, &error, message);
  if (cursor == 0) return false;
  const bool counted = seqscan_cursor_output_col_num(cursor) == 3;
  Sum sum;
  const bool complete =
      seqscan_cursor_advance_parallel(cursor, threads, add_batch, &sum);
  close_seqscan_cursor(cursor);
  EXPECT_TRUE(!complete || sum.is_all()) << sum.rows;
  return complete && counted;
}

bool scan_alone() { return scan(0); }
bool scan_with_threads() { return scan(4); }

bool read_an_index_with_threads() {
  unsigned int error;
  char message[512];
  const uintptr_t cursor =
      open_index_cursor("db", "t", "PRIMARY", true, 0, 5, &error, message);
  if (cursor == 0) return false;
  int64_t low = 0;
  int32_t bytes = sizeof low;
  void *value = &low;
  char type = 1;
  field_arg begin{1, &bytes, &value, &type};
  cursor_set_read_range(cursor, &begin, nullptr, false, true, false);
  Sum sum;
  const bool complete = cursor_advance_parallel(cursor, 3, add_batch, &sum);
  close_index_cursor(cursor);
  EXPECT_TRUE(!complete || sum.is_all()) << sum.rows;
  return complete;
}

bool start_and_scan() {
  deinit_common();
  init_common();
  return scan(4);
}

void nothing() {}

bool register_functions() {
  register_shutdown_observer(plugin_handle(), nothing);
  return true;
}

/** Keeps every thread of the pool busy. */
class Busy_pool {
 public:
  Busy_pool() {
    ThreadPool *pool = ThreadPool::get_instance();
    for (size_t i = 0; i < ThreadPool::n_workers; ++i)
      tasks_.push_back(pool->submit([done = done_] { done.wait(); }));
    while (pool->n_idle() != 0) std::this_thread::yield();
  }
  ~Busy_pool() {
    release_.set_value();
    for (const std::future<void> &task : tasks_) task.wait();
  }

 private:
  std::promise<void> release_;
  std::shared_future<void> done_{release_.get_future()};
  std::vector<std::future<void>> tasks_;
};

class Fault : public Cursor_test {
 protected:
  Fault() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, pad VARCHAR(2000) NOT NULL,"
        " KEY by_v (v))");
    sql.exec("SET cte_max_recursion_depth = 100000");
    sql.exec(
        "INSERT INTO t WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1"
        " FROM n WHERE i < " +
        std::to_string(n_rows) +
        ") SELECT i, 1 + i % 100, REPEAT('p', 300) FROM n");
    sql.exec("SET lock_wait_timeout = 1");
  }
  ~Fault() override {
    deinit_common();
    init_common();
  }

  void expect_nothing_left(size_t n) {
    ASSERT_EQ(CommonApi::sessions_in_use(), 0u) << "allocation " << n;
    ASSERT_EQ(ThreadBudget::s_active_threads.load(), 0u) << "allocation " << n;
    ASSERT_EQ(metadata_locks(), 0) << "allocation " << n;
  }

  /** Let a later allocation fail each time, until a use makes fewer allocations
      than that. This must happen several times, because with threads the number
      of allocations varies. */
  void fail_each(const char *name, Use use) {
    size_t n = 0, failures = 0, without = 0;
    for (; without < 3 && !HasFatalFailure(); ++n) {
      // Each use makes a new session.
      CommonApi::destroy_idle_sessions();
      bool well;
      {
        const fault::Failing_allocation failing(n + 1);
        well = use();
      }
      if (!fault::has_failed()) {
        ++without;
        EXPECT_TRUE(well) << name;
      } else if (!well) {
        ++failures;
      }
      expect_nothing_left(n + 1);
    }
    EXPECT_TRUE(use()) << name;
    EXPECT_EQ(sql.attempt("ALTER TABLE t COMMENT 'free'").error, 0u);
    EXPECT_GT(failures, 0u);
    fprintf(stderr, "fault: %s: %zu allocations failed, %zu calls with them\n",
            name, n - without, failures);
  }
};

TEST_F(Fault, MemoryOfRowByRowReads) { fail_each("row by row", read_rows); }

TEST_F(Fault, MemoryOfReadsByTheCallingThread) {
  fail_each("calling thread", scan_alone);
}

TEST_F(Fault, MemoryOfReadsWithThreads) {
  fail_each("threads", scan_with_threads);
}

TEST_F(Fault, MemoryOfIndexReadsWithThreads) {
  fail_each("index, threads", read_an_index_with_threads);
}

TEST_F(Fault, OpeningWithoutMemorySaysSo) {
  using Open_call = uintptr_t (*)(unsigned int *, char *);
  const Open_call calls[] = {
      [](unsigned int *error, char *message) {
        return open_index_cursor("db", "t", "by_v", false, 0, 5, error,
                                 message);
      },
      [](unsigned int *error, char *message) {
        return open_seqscan_cursor("db", "t", 0, 5, error, message);
      }};
  for (const Open_call open : calls) {
    size_t refused = 0;
    for (size_t n = 1; n == 1 || fault::has_failed(); ++n) {
      CommonApi::destroy_idle_sessions();
      unsigned int error = 12345;
      char message[512] = "untouched";
      uintptr_t cursor;
      {
        const fault::Failing_allocation failing(n);
        cursor = open(&error, message);
      }
      if (cursor == 0) {
        ++refused;
        EXPECT_EQ(error, 10134u) << "allocation " << n;
        EXPECT_STREQ(message, "Out of memory") << "allocation " << n;
      } else {
        EXPECT_EQ(error, 0u) << "allocation " << n;
      }
      close_index_cursor(cursor);
      close_seqscan_cursor(cursor);
      expect_nothing_left(n);
    }
    EXPECT_GT(refused, 0u);
  }
}

TEST_F(Fault, MemoryOfTheStart) {
  size_t n = 0;
  for (size_t without = 0; without < 3 && !HasFatalFailure(); ++n) {
    {
      const fault::Failing_allocation failing(n + 1);
      start_and_scan();
    }
    if (!fault::has_failed()) ++without;
    expect_nothing_left(n + 1);
    // The next use works, whatever this one managed without.
    EXPECT_TRUE(start_and_scan());
  }
}

TEST_F(Fault, MemoryOfARegistration) {
  // Static for all runs in a server, because the function stays registered.
  static size_t failures = 0;
  for (size_t n = 1; n == 1 || fault::has_failed(); ++n) {
    const fault::Failing_allocation failing(n);
    register_functions();
    if (fault::has_failed()) ++failures;
  }
  EXPECT_GT(failures, 0u);
  fprintf(stderr, "fault: %zu places in all\n", fault::places());
}

TEST_F(Fault, ThePoolHasFewerThreads) {
  for (const size_t started : {0, 1, 5, 31}) {
    deinit_common();
    const fault::Failing_threads failing(started);
    init_common();
    EXPECT_EQ(fault::threads_refused(), 1u);
    EXPECT_EQ(ThreadPool::get_instance()->n_idle(), started);
    EXPECT_TRUE(scan(0));
    EXPECT_TRUE(scan(1));
    // The read completes or fails, depending on how soon a thread is free
    // again.
    const bool complete = scan(4);
    EXPECT_FALSE(complete && started == 0);
    expect_nothing_left(0);
  }
}

TEST_F(Fault, ThreadsBeyondThePoolDoNotStart) {
  deinit_common();
  init_common();
  Busy_pool busy;
  ASSERT_TRUE(scan(4));
  for (const size_t started : {0, 1, 3}) {
    const fault::Failing_threads failing(started);
    EXPECT_FALSE(scan(4)) << started;
    EXPECT_EQ(fault::threads_refused(), 1u);
    expect_nothing_left(0);
  }
  EXPECT_TRUE(scan(4));
}

}  // namespace
