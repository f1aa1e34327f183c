// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The counters of cursors and parallel reads in SHOW GLOBAL STATUS.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "parallel_test.h"

namespace {

using namespace harness;

using Counts = std::map<std::string, int64_t>;

class Status : public Parallel_test {
 protected:
  Status() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    fill("t", n_rows, "i, i * 10");
  }

  static Counts counts() {
    Counts counts;
    Client client;
    for (const Row &row :
         client.query("SHOW GLOBAL STATUS LIKE 'morvena\\_sn\\_%'"))
      counts[row[0].value().substr(11)] = std::stoll(row[1].value());
    return counts;
  }

  /** How much a counter has grown since this case began. */
  int64_t grown(const std::string &name) const {
    return counts().at(name) - before_.at(name);
  }

  static constexpr int n_rows = 20000;

 private:
  const Counts before_ = counts();
};

TEST_F(Status, HasTheseNames) {
  std::vector<std::string> names;
  for (const auto &[name, value] : counts()) names.push_back(name);
  EXPECT_EQ(names,
            (std::vector<std::string>{
                "batches", "cursors_open", "cursors_opened", "failures",
                "kills", "pages_read", "parallel_reads",
                "parallel_reads_running", "parks", "refusals", "rows_read",
                "snapshots_copied", "snapshots_taken", "workers_running"}));
}

TEST_F(Status, OpenCursorsAreCounted) {
  {
    const Cursor cursor, other({.index = "by_v"});
    const Scan scan;
    EXPECT_EQ(grown("cursors_open"), 3);
    EXPECT_EQ(grown("cursors_opened"), 3);
  }
  EXPECT_EQ(grown("cursors_open"), 0);
  EXPECT_EQ(grown("cursors_opened"), 3);
  EXPECT_EQ(grown("refusals"), 0);
}

TEST_F(Status, RefusedOpeningsAreCounted) {
  EXPECT_FALSE(Cursor({.table = "nothing"}).is_open());
  EXPECT_FALSE(Cursor({.index = "nothing"}).is_open());
  EXPECT_FALSE(Scan({.db = "nowhere"}).is_open());
  EXPECT_EQ(grown("refusals"), 3);
  EXPECT_EQ(grown("cursors_opened"), 0);
  EXPECT_EQ(grown("cursors_open"), 0);
}

TEST_F(Status, SnapshotsAreCounted) {
  take_snapshot();
  { const Cursor copy({.donor = donor.id()}); }
  EXPECT_EQ(grown("snapshots_copied"), 1);
  EXPECT_EQ(grown("snapshots_taken"), 0);
  donor.exec("COMMIT");
  { const Cursor own; }
  EXPECT_EQ(grown("snapshots_taken"), 1);
  Cursor late({.donor = donor.id()});
  EXPECT_EQ(grown("snapshots_taken"), 1);
  ASSERT_TRUE(late.set_range());
  ASSERT_TRUE(late.set_range());
  EXPECT_EQ(grown("snapshots_taken"), 2);
  EXPECT_EQ(grown("snapshots_copied"), 1);
}

TEST_F(Status, StepsCountTheirRows) {
  Cursor cursor;
  EXPECT_EQ(cursor.ints(0).size(), size_t{n_rows});
  EXPECT_EQ(grown("rows_read"), n_rows);
  ASSERT_TRUE(cursor.set_range());
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(cursor.next());
  // A cursor adds its rows to the counter in portions of about a hundred.
  EXPECT_GE(grown("rows_read"), n_rows + 200);
  EXPECT_LE(grown("rows_read"), n_rows + 300);
  cursor.close();
  EXPECT_EQ(grown("rows_read"), n_rows + 300);
  EXPECT_EQ(grown("batches"), 0);
  EXPECT_EQ(grown("parallel_reads"), 0);
}

TEST_F(Status, ParallelReadsCountRowsPagesAndBatches) {
  sql.exec("ANALYZE TABLE t");
  const int64_t pages = sql.number(
      "SELECT stat_value FROM mysql.innodb_index_stats WHERE"
      " database_name = 'db' AND table_name = 't' AND"
      " index_name = 'PRIMARY' AND stat_name = 'n_leaf_pages'");
  ASSERT_GT(pages, 10);
  int64_t reads = 0;
  std::atomic<int64_t> batches{0};
  for (const size_t threads : {size_t{0}, size_t{2}, size_t{4}}) {
    SCOPED_TRACE(threads);
    EXPECT_TRUE(read_parallel(Scan(), threads, [&](const Batch &) {
      ++batches;
      return false;
    }));
    ++reads;
    EXPECT_EQ(grown("parallel_reads"), reads);
    EXPECT_EQ(grown("rows_read"), reads * n_rows);
    EXPECT_EQ(grown("pages_read"), reads * pages);
    EXPECT_EQ(grown("batches"), batches);
  }
  EXPECT_EQ(grown("parallel_reads_running"), 0);
  EXPECT_EQ(grown("workers_running"), 0);
}

TEST_F(Status, RunningReadsAndTheirWorkersAreCounted) {
  const Scan scan;
  std::promise<void> goes_on;
  const std::shared_future<void> may_go_on(goes_on.get_future());
  auto reader = on_own_thread([&] {
    EXPECT_TRUE(read_parallel(scan, 2, [&](const Batch &) {
      may_go_on.wait();
      return false;
    }));
  });
  EXPECT_TRUE(wait_until([&] { return grown("workers_running") == 2; }));
  EXPECT_EQ(grown("parallel_reads_running"), 1);
  goes_on.set_value();
  reader.get();
  EXPECT_EQ(grown("workers_running"), 0);
  EXPECT_EQ(grown("parallel_reads_running"), 0);
  EXPECT_EQ(grown("rows_read"), n_rows);
}

// A writer requests the index latch exclusively while a worker is in its
// callback.
TEST_F(Status, ParksAreCounted) {
  const Index_watch index;
  const Scan scan;
  std::atomic<int> batches{0};
  std::atomic<bool> go_on{false};
  auto reader = on_own_thread([&] {
    EXPECT_TRUE(read_parallel(scan, 0, [&](const Batch &) {
      ++batches;
      wait_until([&] { return go_on.load(); });
      return false;
    }));
  });
  EXPECT_TRUE(wait_until([&] { return batches > 0; }));
  EXPECT_EQ(grown("parks"), 0);
  auto writer = on_own_thread([&] { index.with_latch([] {}); });
  EXPECT_TRUE(wait_until([&] { return index.has_waiting_writer(); }));
  go_on = true;
  writer.get();
  reader.get();
  EXPECT_EQ(grown("parks"), 1);
}

}  // namespace
