// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The moments at which a read holds no page: between the cut of the range and
// the start of a unit, and during a yield at the end of a page. Most records
// are uncommitted rows of another session, which disappear from their pages at
// such a moment.

#include "host.h"
#include "parallel_test.h"

#include <atomic>
#include <functional>
#include <mutex>

#include "innodb_api/leaves.h"

namespace {

using namespace harness;
using Ints = std::vector<long long>;

std::function<void()> at_yield;

void yield_to_the_case() { at_yield(); }

/** Sets the mark that a thread waits for the index latch, so that workers
    yield. */
class Pretended_waiter {
 public:
  Pretended_waiter()
      : table_(dd_table_open_on_name(current_thd, nullptr, "db/t", false, 0)) {
    wait();
    Leaf_walk::s_yield = yield_to_the_case;
  }
  ~Pretended_waiter() {
    Leaf_walk::s_yield = [] { sched_yield(); };
    table_->first_index()->lock.waiters = false;
    dd_table_close(table_, nullptr, nullptr, false);
  }
  Pretended_waiter(const Pretended_waiter &) = delete;
  Pretended_waiter &operator=(const Pretended_waiter &) = delete;

  /** InnoDB removes the mark now and then, so set it again. */
  void wait() { table_->first_index()->lock.waiters = true; }

 private:
  dict_table_t *table_;
};

class ParallelResume : public Parallel_test {
 protected:
  ParallelResume() { writer_.exec("USE db"); }

  /** Visible rows with the ids 100, 200, ... */
  void make(size_t n_rows) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, pad CHAR(200))");
    fill("t", n_rows, "i * 100, 'visible'");
    for (size_t i = 1; i <= n_rows; ++i)
      visible_.push_back(static_cast<long long>(i) * 100);
    take_snapshot();
  }

  /** Seven uncommitted rows after each visible one, so that most pages begin
      and end with an uncommitted row. */
  void crowd() {
    writer_.exec("BEGIN");
    writer_.exec(
        "INSERT INTO t SELECT id + j, REPEAT('u', 200) FROM t, (SELECT 1 j "
        "UNION"
        " SELECT 2 UNION SELECT 3 UNION SELECT 4 UNION SELECT 5 UNION SELECT 6"
        " UNION SELECT 7) few");
  }

  /** Whole pages of uncommitted rows between pages of visible ones. */
  void crowd_in_blocks() {
    writer_.exec("SET cte_max_recursion_depth = 10000");
    writer_.exec("BEGIN");
    writer_.exec(
        "INSERT INTO t WITH RECURSIVE n (j) AS (SELECT 1 UNION ALL SELECT j + 1"
        " FROM n WHERE j < 99) SELECT id + j, REPEAT('u', 200) FROM t, n"
        " WHERE id % 10000 IN (0, 100)");
  }

  /** The number of children of the root, all of which are leaf pages. */
  static size_t leaves() {
    const Index_watch index;
    EXPECT_EQ(index.levels(), 2u);
    return index.root_records();
  }

  /** Read with one thread and call what() at the nth yield. */
  Ints read_with_yields(size_t nth, const std::function<void()> &what) {
    const Scan scan({.donor = donor.id()});
    Pretended_waiter waiter;
    n_yields_ = 0;
    at_yield = [&] {
      if (++n_yields_ == nth) what();
      waiter.wait();
    };
    return collect_ints(scan, 0, 0);
  }

  /** Read and call what() at the first yield. Other workers that yield during
      this call wait until it returns. */
  Ints read_with_event(size_t threads, const std::function<void()> &what) {
    const Scan scan({.donor = donor.id()});
    Pretended_waiter waiter;
    std::once_flag once;
    std::atomic<size_t> n_arrived{0};
    bool has_happened = false;
    at_yield = [&] {
      ++n_arrived;
      std::call_once(once, [&] {
        // Wait until a second worker has yielded too.
        EXPECT_TRUE(threads < 2 || wait_until([&] { return n_arrived > 1; }));
        what();
        has_happened = true;
      });
      waiter.wait();
    };
    const Ints seen = collect_ints(scan, threads, 0, Workers::any);
    EXPECT_TRUE(has_happened);
    return seen;
  }

  Client writer_;
  Ints visible_;
  size_t n_yields_ = 0;
};

TEST_F(ParallelResume, YieldAtEveryPage) {
  make(2000);
  EXPECT_EQ(read_with_yields(0, [] {}), visible_);
  EXPECT_GT(n_yields_, 20u);
}

TEST_F(ParallelResume, YieldDuringWhichTheLastRecordVanishes) {
  make(2000);
  for (const size_t nth : {1, 2, 3, 5, 8, 13, 21, 34}) {
    crowd();
    EXPECT_EQ(read_with_yields(nth, [&] { writer_.exec("ROLLBACK"); }),
              visible_)
        << nth;
    EXPECT_GE(n_yields_, nth);
  }
}

TEST_F(ParallelResume, YieldDuringWhichPagesAreMerged) {
  make(2000);
  for (const size_t nth : {1, 3, 6, 10, 15, 21, 28, 36}) {
    crowd_in_blocks();
    EXPECT_EQ(read_with_yields(nth, [&] { writer_.exec("ROLLBACK"); }),
              visible_)
        << nth;
    EXPECT_GE(n_yields_, nth);
  }
}

TEST_F(ParallelResume, YieldDuringWhichPagesAreSplit) {
  make(2000);
  for (const size_t nth : {1, 2, 4, 9}) {
    EXPECT_EQ(read_with_yields(nth, [&] { crowd(); }), visible_) << nth;
    EXPECT_GT(n_yields_, nth);
    writer_.exec("ROLLBACK");
  }
}

TEST_F(ParallelResume, YieldDuringWhichVisibleRowsAreDeletedAndGrow) {
  make(2000);
  const size_t n_before = leaves();
  const Ints seen = read_with_yields(4, [&] {
    writer_.exec("DELETE FROM t WHERE id % 300 = 0");
    // 200 characters of four bytes each.
    writer_.exec(
        "UPDATE t SET pad = REPEAT(_utf8mb4 X'F09F9880', 200)"
        " WHERE id % 300 = 100");
  });
  EXPECT_EQ(seen, visible_);
  EXPECT_GT(n_yields_, 4u);
  EXPECT_EQ(sql.number("SELECT COUNT(*) FROM t"), 2000 - 666);
  EXPECT_EQ(sql.number("SELECT COUNT(*) FROM t WHERE LENGTH(pad) = 800"), 667);
  EXPECT_GT(leaves(), n_before);
}

// The change happens at the first yield, when most units have not been started.
TEST_F(ParallelResume, UnitsWhoseFirstRecordVanishesBeforeTheyStart) {
  make(6000);
  for (const size_t threads : thread_counts) {
    crowd();
    EXPECT_GT(writer_.number("SELECT COUNT(*) FROM t"), 40000);
    EXPECT_EQ(read_with_event(threads, [&] { writer_.exec("ROLLBACK"); }),
              visible_)
        << threads;
    EXPECT_EQ(writer_.number("SELECT COUNT(*) FROM t"), 6000);
  }
}

// The end of a unit that was split again is a key, not a version of the row
// with that key. The row may have a later or an earlier version when the unit
// is read.
TEST_F(ParallelResume, UnitsWhoseLastRecordsChangeBeforeTheyAreRead) {
  make(6000);
  const auto count = [this](const std::string &value) {
    return sql.number("SELECT COUNT(*) FROM t WHERE pad = " + value);
  };
  for (const size_t threads : thread_counts) {
    SCOPED_TRACE(threads);
    const std::string value = "'changed by " + std::to_string(threads) + "'";
    const std::string change = "UPDATE t SET pad = " + value;
    EXPECT_EQ(read_with_event(threads, [&] { writer_.exec(change); }),
              visible_);
    EXPECT_EQ(count(value), 6000);
    writer_.exec("BEGIN");
    writer_.exec("UPDATE t SET pad = 'uncommitted'");
    EXPECT_EQ(read_with_event(threads, [&] { writer_.exec("ROLLBACK"); }),
              visible_);
    EXPECT_EQ(count(value), 6000);
  }
}

}  // namespace
