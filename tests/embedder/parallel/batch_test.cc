// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Batches and the callback that takes them.

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "common/pool.h"
#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;

class ParallelBatch : public Parallel_test {
 protected:
  void make(size_t n_rows) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(50))");
    fill("t", n_rows, "i, i * 2, NULLIF(CONCAT('w', i % 10), 'w0')");
  }
};

TEST_F(ParallelBatch, AsManyRowsAsABatchComeInOne) {
  make(4096);
  const Scan scan;
  for (const size_t threads : {size_t{0}, size_t{1}}) {
    const Delivered delivered = collect(scan, threads, {0});
    ASSERT_EQ(delivered.batches.size(), 1u);
    EXPECT_EQ(delivered.batches.at(0), (std::vector<size_t>{4096}));
  }
}

TEST_F(ParallelBatch, OneRowMoreComesInASecond) {
  make(4097);
  const Scan scan;
  EXPECT_EQ(collect(scan, 0, {0}).batches.at(0),
            (std::vector<size_t>{4096, 1}));
}

TEST_F(ParallelBatch, AllButTheLastOfAWorkerAreFull) {
  make(50000);
  const Scan scan;
  for (const size_t threads : thread_counts) {
    const Delivered delivered = collect(scan, threads, {0});
    EXPECT_EQ(delivered.rows.size(), 50000u);
    for (const auto &[worker, sizes] : delivered.batches) {
      EXPECT_LT(worker, std::max<size_t>(1, std::min<size_t>(threads, 256)));
      for (size_t i = 0; i + 1 < sizes.size(); ++i) EXPECT_EQ(sizes[i], 4096u);
      EXPECT_GT(sizes.back(), 0u);
      EXPECT_LE(sizes.back(), 4096u);
    }
  }
}

TEST_F(ParallelBatch, FewerThanTwoThreadsReadOnTheCallingThread) {
  make(9000);
  const Scan scan;
  for (const size_t threads : {size_t{0}, size_t{1}}) {
    const auto caller = std::this_thread::get_id();
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      EXPECT_EQ(std::this_thread::get_id(), caller);
      EXPECT_EQ(batch.thread, 0u);
      return false;
    }));
  }
}

TEST_F(ParallelBatch, WorkersAreOtherThreads) {
  make(9000);
  const Scan scan;
  const auto caller = std::this_thread::get_id();
  EXPECT_TRUE(read_parallel(scan, 2, [&](const Batch &) {
    EXPECT_NE(std::this_thread::get_id(), caller);
    return false;
  }));
}

TEST_F(ParallelBatch, WorkersHaveASessionEach) {
  make(50000);
  const Scan scan;
  std::mutex mu;
  std::map<uint64_t, std::set<void *>> sessions;
  // Each worker's part of the table has more rows than fit into one batch.
  EXPECT_TRUE(read_parallel(scan, 4, [&](const Batch &batch) {
    {
      const std::lock_guard<std::mutex> lock(mu);
      sessions[batch.thread].insert(current_session());
    }
    EXPECT_TRUE(wait_until([&] {
      const std::lock_guard<std::mutex> lock(mu);
      return sessions.size() == 4;
    }));
    return false;
  }));
  std::set<void *> different;
  for (const auto &[worker, of_worker] : sessions) {
    EXPECT_EQ(of_worker.size(), 1u);
    EXPECT_NE(*of_worker.begin(), nullptr);
    different.insert(*of_worker.begin());
  }
  EXPECT_EQ(different.size(), sessions.size());
}

TEST_F(ParallelBatch, TheArgumentIsHandedOn) {
  make(10);
  const Scan scan;
  int target = 0;
  const auto count = [](uint64_t handle, uint64_t, void *argument) {
    *static_cast<int *>(argument) += static_cast<int>(pread_n_tuples(handle));
    return false;
  };
  EXPECT_TRUE(seqscan_cursor_advance_parallel(scan.handle, 0, count, &target));
  EXPECT_EQ(target, 10);
}

TEST_F(ParallelBatch, RowsBeyondItAreRefused) {
  make(10);
  const Scan scan;
  EXPECT_TRUE(read_parallel(scan, 0, [](const Batch &batch) {
    EXPECT_EQ(batch.size(), 10u);
    for (const unsigned int nr : {10u, 11u, 4095u, 4096u, 4294967295u}) {
      long long integer = 77;
      EXPECT_TRUE(pread_field_int(batch.handle, 0, nr, &integer));
      EXPECT_EQ(integer, 77);
      EXPECT_FALSE(batch.read_real(0, nr));
      EXPECT_FALSE(batch.read_text(0, nr));
      EXPECT_FALSE(batch.read_decimal(0, nr));
      EXPECT_FALSE(batch.read_date(0, nr));
      EXPECT_FALSE(batch.read_time(0, nr));
      EXPECT_FALSE(batch.read_datetime(0, nr));
    }
    return false;
  }));
}

TEST_F(ParallelBatch, ColumnsBeyondTheTableAreRefused) {
  make(10);
  const Scan scan;
  EXPECT_TRUE(read_parallel(scan, 0, [](const Batch &batch) {
    for (const unsigned int column : {3u, 4u, 4000u, 4294967295u}) {
      long long integer = 77;
      EXPECT_TRUE(pread_field_int(batch.handle, column, 0, &integer));
      EXPECT_EQ(integer, 77);
      EXPECT_FALSE(batch.read_text(column, 0));
      EXPECT_FALSE(batch.read_decimal(column, 0));
    }
    return false;
  }));
}

TEST_F(ParallelBatch, NullLeavesTheOutputsAlone) {
  make(10);
  const Scan scan;
  EXPECT_TRUE(read_parallel(scan, 0, [](const Batch &batch) {
    char mark;
    char *text = &mark;
    size_t size = 99;
    EXPECT_TRUE(pread_field_str(batch.handle, 2, 9, &text, &size));
    EXPECT_EQ(text, &mark);
    EXPECT_EQ(size, 99u);
    int32_t date = 5;
    EXPECT_TRUE(pread_field_date(batch.handle, 2, 9, &date));
    EXPECT_EQ(date, 5);
    return false;
  }));
}

TEST_F(ParallelBatch, TheRowsOfABatchCanBeReadInAnyOrderAndTwice) {
  make(100);
  const Scan scan;
  EXPECT_TRUE(read_parallel(scan, 0, [](const Batch &batch) {
    for (int round = 0; round < 2; ++round) {
      for (unsigned int nr = 100; nr-- > 0;) {
        EXPECT_EQ(batch.read_int(1, nr), (nr + 1) * 2);
        EXPECT_EQ(batch.read_int(0, nr), nr + 1);
      }
    }
    return false;
  }));
}

TEST_F(ParallelBatch, NullHandleIsRefused) {
  EXPECT_EQ(pread_n_tuples(0), 0u);
  long long integer;
  double real;
  char *text;
  size_t size;
  bool negative;
  int32_t whole, fraction, date;
  int32_t *words;
  int64_t time;
  EXPECT_TRUE(pread_field_int(0, 0, 0, &integer));
  EXPECT_TRUE(pread_field_real(0, 0, 0, &real));
  EXPECT_TRUE(pread_field_str(0, 0, 0, &text, &size));
  EXPECT_TRUE(
      pread_field_decimal(0, 0, 0, &negative, &whole, &fraction, &words));
  EXPECT_TRUE(pread_field_date(0, 0, 0, &date));
  EXPECT_TRUE(pread_field_time(0, 0, 0, &time));
  EXPECT_TRUE(pread_field_datetime(0, 0, 0, &time));
}

TEST_F(ParallelBatch, ColumnsAreTheTablesInItsOrder) {
  make(1);
  const Scan scan;
  EXPECT_EQ(seqscan_cursor_output_col_num(scan.handle), 3u);
  EXPECT_EQ(scan.output_columns(), (std::vector<std::string>{"id", "v", "w"}));
}

// A cursor's session may serve another thread as soon as the cursor is closed.
TEST_F(ParallelBatch, ReadsLeaveTheSessionOfTheCallbacksCursor) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(20))");
  sql.exec("CREATE TABLE other (id INT PRIMARY KEY, v INT)");
  fill("t", 20000, "i, CONCAT(i, ' and more')");
  const Scan scan;
  for (const size_t threads : {size_t{0}, size_t{2}}) {
    std::vector<std::unique_ptr<Cursor>> others;
    for (int i = 0; i < 20; ++i)
      others.push_back(std::make_unique<Cursor>(Open{.table = "other"}));
    std::atomic<size_t> batches{0};
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      void *session = current_session();
      Cursor &other = *others.at(batches++);
      EXPECT_FALSE(other.set_range());
      void *others_session = current_session();
      EXPECT_NE(others_session, session);
      other.close();
      EXPECT_EQ(current_session(), others_session);
      EXPECT_EQ(batch.read_int(1, 0), batch.read_int(0, 0));
      EXPECT_EQ(current_session(), session);
      return false;
    }));
    EXPECT_GT(batches, 3u);
  }
}

// The callback's thread holds the index latch and a leaf page. The server must
// not open a table on such a thread.
TEST_F(ParallelBatch, TheCallbackOpensNoCursor) {
  make(5000);
  sql.exec("CREATE TABLE other (id INT PRIMARY KEY, v INT)");
  const Scan scan;
  for (const size_t threads : {size_t{0}, size_t{2}}) {
    std::atomic<int> batches{0};
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &) {
      const Cursor cursor({.table = "other"});
      const Scan other({.table = "other"});
      EXPECT_FALSE(cursor.is_open());
      EXPECT_FALSE(other.is_open());
      for (const auto &[error, message] :
           {std::pair(cursor.error, cursor.message),
            std::pair(other.error, other.message)}) {
        EXPECT_EQ(error, 1235u);
        EXPECT_EQ(message,
                  "Cannot open a cursor inside the callback of a parallel "
                  "read");
      }
      ++batches;
      return false;
    }));
    EXPECT_GT(batches, 1);
    EXPECT_TRUE(Cursor({.table = "other"}).is_open());
  }
}

TEST_F(ParallelBatch, TheCallbackReadsThroughACursorThatIsOpen) {
  make(5000);
  sql.exec("CREATE TABLE other (id INT PRIMARY KEY, v INT)");
  sql.exec("INSERT INTO other VALUES (1, 42)");
  const Scan scan;
  for (const size_t threads : {size_t{0}, size_t{2}}) {
    Cursor cursor({.table = "other"});
    std::mutex mu;
    int found = 0;
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      const std::lock_guard<std::mutex> lock(mu);
      if (cursor.ints(1) == std::vector<long long>{42}) ++found;
      EXPECT_TRUE(batch.read_int(0, 0));
      return false;
    }));
    EXPECT_GT(found, 1);
  }
}

// The mark that forbids opening belongs to one thread, because other threads
// may be inside a callback at the same time. An exception must clear it.
TEST_F(ParallelBatch, AFailingCallbackLeavesTheThreadAbleToOpen) {
  make(5000);
  const Scan scan;
  EXPECT_FALSE(read_parallel(scan, 0, [](const Batch &) -> bool { throw 1; }));
  EXPECT_TRUE(Cursor().is_open());
}

/** The callback reads another table on another thread, through a cursor of its
    own. */
TEST_F(ParallelBatch, TheCallbackReadsAnotherTable) {
  make(5000);
  sql.exec("CREATE TABLE other (id INT PRIMARY KEY, v INT)");
  sql.exec("INSERT INTO other VALUES (1, 42)");
  const Scan scan;
  std::atomic<int> found{0};
  EXPECT_TRUE(read_parallel(scan, 2, [&](const Batch &) {
    // Use a new thread: the current session of this thread belongs to the
    // worker.
    on_own_thread([&] {
      Cursor cursor({.table = "other"});
      if (cursor.ints(1) == std::vector<long long>{42}) ++found;
    }).get();
    return false;
  }));
  EXPECT_GT(found, 0);
}

}  // namespace
