// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// cursor.hpp: parallel reads with callables of any type.

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

#include "parallel_test.h"

namespace {

using namespace harness;
using morvena_sn::Error;
using morvena_sn::Per_worker;
using morvena_sn::Sequential_scan;
using morvena_sn::Then;

class CxxParallel : public Parallel_test {
 protected:
  CxxParallel() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    fill("t", n_rows, "i, IF(i % 10 = 0, NULL, i * 3)");
  }

  static constexpr size_t n_rows = 20000;
};

TEST_F(CxxParallel, LambdasSeeEveryRow) {
  Sequential_scan scan("db", "t");
  const uint32_t v = scan.select("v")[0];
  for (const size_t threads : {0, 1, 4}) {
    SCOPED_TRACE(threads);
    Per_worker<long long> sums(threads);
    std::atomic<size_t> rows{0};
    EXPECT_TRUE(
        scan.read_in_parallel(threads, [&](const morvena_sn::Batch &batch) {
          rows += batch.size();
          for (const auto row : batch)
            sums[batch] += row.get<int64_t>(v).value_or(0);
        }));
    long long sum = 0;
    sums.for_each([&](long long of_worker) { sum += of_worker; });
    EXPECT_EQ(rows, n_rows);
    EXPECT_EQ(sum, sql.number("SELECT SUM(v) FROM t"));
  }
}

TEST_F(CxxParallel, CursorsReadTheirRange) {
  morvena_sn::Cursor cursor("db", "t");
  const auto count = [&] {
    std::atomic<size_t> rows{0};
    EXPECT_TRUE(cursor.read_in_parallel(
        2, [&](const morvena_sn::Batch &batch) { rows += batch.size(); }));
    return rows.load();
  };
  EXPECT_EQ(count(), n_rows);
  cursor.range(morvena_sn::between(101, 5100));
  EXPECT_EQ(count(), 5000u);
  cursor.range(morvena_sn::greater_than(n_rows));
  EXPECT_EQ(count(), 0u);
}

/** Its call operator changes the object, so the object cannot be const. */
struct Counter {
  Then operator()(const morvena_sn::Batch &batch) {
    rows += batch.size();
    return Then::go_on;
  }
  std::atomic<size_t> rows{0};
};

TEST_F(CxxParallel, ObjectsAndFunctionsAreCallables) {
  Sequential_scan scan("db", "t");
  Counter counter;
  EXPECT_TRUE(scan.read_in_parallel(2, counter));
  EXPECT_EQ(counter.rows, n_rows);
  static std::atomic<size_t> rows;
  rows = 0;
  const std::function<void(const morvena_sn::Batch &)> function =
      [](const morvena_sn::Batch &batch) { rows += batch.size(); };
  EXPECT_TRUE(scan.read_in_parallel(2, function));
  EXPECT_EQ(rows, n_rows);
  void (*pointer)(const morvena_sn::Batch &) =
      [](const morvena_sn::Batch &batch) { rows += batch.size(); };
  EXPECT_TRUE(scan.read_in_parallel(2, pointer));
  EXPECT_EQ(rows, 2 * n_rows);
}

TEST_F(CxxParallel, BatchesReadByNumber) {
  Sequential_scan scan("db", "t");
  std::atomic<size_t> wrong{0};
  scan.read_in_parallel(2, [&](const morvena_sn::Batch &batch) {
    for (uint32_t nr = 0; nr < batch.size(); ++nr) {
      const auto id = batch.get<int64_t>(0, nr);
      const auto v = batch[nr].get<int64_t>(1);
      if (!id || (*id % 10 == 0 ? v.has_value() : v != *id * 3)) ++wrong;
    }
    if (batch.get<int64_t>(0, batch.size()) || batch.get<int64_t>(9, 0))
      ++wrong;
  });
  EXPECT_EQ(wrong, 0u);
}

TEST_F(CxxParallel, ThenStopEndsTheRead) {
  Sequential_scan scan("db", "t");
  for (const size_t threads : {1, 4}) {
    std::atomic<size_t> rows{0};
    EXPECT_FALSE(
        scan.read_in_parallel(threads, [&](const morvena_sn::Batch &batch) {
          rows += batch.size();
          return Then::stop;
        }));
    EXPECT_GT(rows, 0u);
    EXPECT_LT(rows, n_rows);
  }
}

// After a worker's last batch there is nothing left to stop. cursor.hpp reports
// the read as stopped all the same.
TEST_F(CxxParallel, ThenStopCountsInTheOnlyBatch) {
  sql.exec("DELETE FROM t WHERE id > 5");
  Sequential_scan scan("db", "t");
  EXPECT_FALSE(scan.read_in_parallel(
      1, [](const morvena_sn::Batch &) { return Then::stop; }));
}

TEST_F(CxxParallel, ExceptionsReachTheCaller) {
  Sequential_scan scan("db", "t");
  for (const size_t threads : {1, 4}) {
    std::atomic<size_t> rows{0};
    try {
      scan.read_in_parallel(threads, [&](const morvena_sn::Batch &batch) {
        if ((rows += batch.size()) > n_rows / 4)
          throw std::out_of_range("enough");
      });
      ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range &error) {
      EXPECT_STREQ(error.what(), "enough");
    }
    EXPECT_LT(rows, n_rows);
    EXPECT_TRUE(scan.read_in_parallel(threads, [](const auto &) {}));
  }
}

TEST_F(CxxParallel, ExceptionsOfTheOnlyBatchReachTheCaller) {
  sql.exec("DELETE FROM t WHERE id > 5");
  morvena_sn::Cursor cursor("db", "t");
  const auto fail = [](const morvena_sn::Batch &) { throw 5; };
  EXPECT_THROW(cursor.read_in_parallel(1, fail), int);
  EXPECT_THROW((void)cursor.try_read_in_parallel(1, fail), int);
}

TEST_F(CxxParallel, FailuresAreErrors) {
  Sequential_scan scan("db", "t");
  const auto cancel = [&](const morvena_sn::Batch &) { scan.cancel(); };
  try {
    scan.read_in_parallel(2, cancel);
    ADD_FAILURE() << "it was not cancelled";
  } catch (const Error &error) {
    EXPECT_EQ(error.code(), 1317u);
  }
  const auto result = scan.try_read_in_parallel(2, cancel);
  ASSERT_FALSE(result.has_value());
  EXPECT_EQ(result.error().code(), 1317u);
  EXPECT_TRUE(scan.read_in_parallel(2, [](const auto &) {}));
}

TEST_F(CxxParallel, ProgressCountsTheRows) {
  sql.exec("ANALYZE TABLE t");
  Sequential_scan scan("db", "t");
  EXPECT_TRUE(scan.read_in_parallel(2, [](const auto &) {}));
  const auto progress = scan.progress();
  ASSERT_TRUE(progress.has_value());
  EXPECT_EQ(progress->rows, n_rows);
  EXPECT_GT(progress->pages, 1u);
  EXPECT_GT(progress->pages_estimated, 1u);
}

TEST_F(CxxParallel, DecimalsAddUpExactly) {
  sql.exec("CREATE TABLE d (id INT PRIMARY KEY, c DECIMAL(30,10))");
  fill("d", 5000, "i, (i - 2000) * 1234567890.0123456789");
  Sequential_scan scan("db", "d");
  const uint32_t c = scan.column("c");
  Per_worker<morvena_sn::Int128> sums(2);
  scan.read_in_parallel(2, [&](const morvena_sn::Batch &batch) {
    for (const auto row : batch)
      sums[batch] += row.get<Decimal>(c)->scaled(10).value();
  });
  morvena_sn::Int128 sum = 0;
  sums.for_each([&](morvena_sn::Int128 of_worker) { sum += of_worker; });
  EXPECT_EQ(morvena_sn::to_text(sum, 10), sql.text("SELECT SUM(c) FROM d"));
}

}  // namespace
