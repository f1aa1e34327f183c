// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Each worker keeps a leaf page while its callback runs, and while it waits for
// the next page. If the pages of the workers filled the buffer pool, the
// workers would wait for each other without end. So the pool must have several
// pages for each worker.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <mutex>

#include "common/pool.h"
#include "parallel_test.h"

namespace {

using namespace harness;

using std::chrono::seconds;

constexpr size_t n_threads = ThreadBudget::MAX_THREADS;
// A batch has the rows of about eight leaves. The first batch of each worker
// must end inside a page.
constexpr size_t n_rows = 1400000;
constexpr size_t rows_per_statement = 100000;

/** Holds callbacks back until n of them have come, or some seconds are over. */
class Gate {
 public:
  explicit Gate(size_t n) : wanted_(n) {}

  void pass() {
    std::unique_lock<std::mutex> lock(mu_);
    ++inside_;
    arrived_.notify_all();
    arrived_.wait_for(lock, seconds(15), [this] { return inside_ >= wanted_; });
  }
  size_t inside() {
    const std::lock_guard<std::mutex> lock(mu_);
    return inside_;
  }

 private:
  const size_t wanted_;
  std::mutex mu_;
  std::condition_variable arrived_;
  size_t inside_ = 0;  // under mu_
};

/** Keeps the pool's threads busy, so that each worker of a read gets a thread
    of its own. Otherwise many workers would wait for a few threads. */
class Busy_pool {
 public:
  Busy_pool() {
    ThreadPool *pool = ThreadPool::get_instance();
    for (size_t i = 0; i < ThreadPool::n_workers; ++i)
      tasks_.push_back(pool->submit([done = done_] { done.wait(); }));
    EXPECT_TRUE(wait_until([pool] { return pool->n_idle() == 0; }));
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

class SmallPoolKeptPages : public Parallel_test {
 protected:
  SmallPoolKeptPages() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
    for (size_t at = 0; at < n_rows; at += rows_per_statement)
      fill("t", rows_per_statement, std::to_string(at) + " + i, i");
    take_snapshot();
  }

  size_t count_rows(Gate *gate) {
    const Scan scan({.donor = donor.id()});
    std::vector<std::atomic<bool>> has_passed(n_threads);
    std::atomic<size_t> rows{0};
    EXPECT_TRUE(read_parallel(
        scan, n_threads,
        [&](const Batch &batch) {
          if (!has_passed[batch.thread].exchange(true)) gate->pass();
          rows += batch.size();
          return false;
        },
        Workers::any));
    return rows;
  }
};

TEST_F(SmallPoolKeptPages, WorkersDoNotWaitForEachOther) {
  const Busy_pool busy;
  const Server_log log(sql);
  const size_t n_pages = std::stoull(
      *sql.query("SHOW GLOBAL STATUS LIKE 'Innodb_buffer_pool_pages_total'")
           .at(0)
           .at(1));
  Gate gate(n_pages / 4);
  EXPECT_EQ(count_rows(&gate), n_rows);
  EXPECT_EQ(gate.inside(), n_pages / 4);
  EXPECT_EQ(log.count("difficult to find free blocks"), 0u);
  fprintf(stderr, "figure: %zu of %zu pages kept at a time\n", gate.inside(),
          n_pages);
}

}  // namespace
