// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The table is many times as large as the buffer pool. Reads are exact while
// others write, they end whatever number of threads they have, and a session
// that needs only a few pages goes on. The cases print how much a read slows
// that session down, and how much SQL does.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>

#include "hot_session.h"
#include "parallel_test.h"
#include "writer.h"

namespace {

using namespace harness;

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t rows_per_mb = 950;
constexpr size_t rows_per_statement = 10000;
constexpr milliseconds sampling(50);

double seconds_since(steady_clock::time_point begin) {
  return std::chrono::duration<double>(steady_clock::now() - begin).count();
}

/** Sums that differ between the rows of two snapshots. */
struct Totals {
  uint64_t rows = 0;
  uint64_t values = 0;
  uint64_t weighted = 0;  // by the key

  void add(uint64_t id, uint64_t v) {
    ++rows;
    values += v;
    weighted += id * v;
  }
  void add(const Totals &other) {
    rows += other.rows;
    values += other.values;
    weighted += other.weighted;
  }
  bool operator==(const Totals &other) const {
    return rows == other.rows && values == other.values &&
           weighted == other.weighted;
  }
};

std::ostream &operator<<(std::ostream &stream, const Totals &totals) {
  return stream << totals.rows << " rows, " << totals.values << ", "
                << totals.weighted;
}

template <class Reader>
Totals totals_of(const Reader &reader, size_t threads) {
  Totals totals;
  std::mutex mu;
  EXPECT_TRUE(read_parallel(
      reader, threads,
      [&](const Batch &batch) {
        Totals own;
        const size_t size = batch.size();
        for (unsigned int nr = 0; nr < size; ++nr)
          own.add(static_cast<uint64_t>(batch.read_int(0, nr).value()),
                  static_cast<uint64_t>(batch.read_int(1, nr).value()));
        const std::lock_guard<std::mutex> lock(mu);
        totals.add(own);
        return false;
      },
      Workers::any));
  return totals;
}

Totals totals_by_rows(uint32_t donor) {
  Cursor cursor({.donor = donor});
  Totals totals;
  if (!cursor.set_range()) return totals;
  while (cursor.next())
    totals.add(static_cast<uint64_t>(cursor.read_int(0).value()),
               static_cast<uint64_t>(cursor.read_int(1).value()));
  return totals;
}

class SmallPool : public Parallel_test {
 protected:
  SmallPool() {
    const size_t n_rows = setting("TABLE_MB", 40) * rows_per_mb;
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, pad VARCHAR(2000))");
    for (size_t at = 0; at < n_rows; at += rows_per_statement)
      fill("t", std::min(rows_per_statement, n_rows - at),
           std::to_string(at) + " + i, i % 1000, REPEAT('p', 1000)");
    EXPECT_GT(sql.number("SELECT SUM(file_size) FROM"
                         " information_schema.innodb_tablespaces WHERE name ="
                         " 'db/t'"),
              2 * sql.number("SELECT @@innodb_buffer_pool_size"));
    hot_ = std::make_unique<Hot_session>(sql);
    take_snapshot();
    writer_ = std::make_unique<Writer>(7, [n_rows](unsigned int random) {
      const std::string id = std::to_string(1 + random % n_rows);
      return std::vector<std::string>{"UPDATE t SET v = v + 1 WHERE id = " + id,
                                      "DO SLEEP(0.002)"};
    });
    const Row row =
        donor.query("SELECT COUNT(*), SUM(v), SUM(id * v) FROM t").at(0);
    expected_ = {std::stoull(*row[0]), std::stoull(*row[1]),
                 std::stoull(*row[2])};
    fprintf(stderr, "figure: %32s %8s %9s %7s %7s %6s %12s %5s\n", "",
            "seconds", "hot reads", "ms each", "longest", "disk",
            "pages: least", "mean");
  }

  /** Do something while the hot session reads, and print what it cost it. */
  void measure(const std::string &name, const std::function<void()> &f) {
    const int64_t disk_before = hot_disk_reads(sql);
    int64_t least = hot_pages_in_memory(sql), sum = least, samples = 1;
    const size_t writes_before = writer_->rounds();
    hot_->take();
    const auto begin = steady_clock::now();
    auto done = on_own_thread(f);
    while (done.wait_for(sampling) != std::future_status::ready) {
      const int64_t pages = hot_pages_in_memory(sql);
      least = std::min(least, pages);
      sum += pages;
      ++samples;
    }
    const double seconds = seconds_since(begin);
    done.get();
    EXPECT_TRUE(wait_until([&] { return writer_->rounds() > writes_before; }));
    const Hot_session::Figures hot = hot_->take();
    EXPECT_EQ(hot.wrong, 0u);
    fprintf(
        stderr, "figure: %32s %8.2f %9zu %7.1f %7.1f %6lld %12lld %5lld\n",
        name.c_str(), seconds, hot.reads,
        hot.ms / static_cast<double>(std::max<size_t>(hot.reads, 1)),
        hot.longest, static_cast<long long>(hot_disk_reads(sql) - disk_before),
        static_cast<long long>(least), static_cast<long long>(sum / samples));
  }

  void measure_parallel(size_t threads) {
    measure("parallel read, " + std::to_string(threads) + " threads",
            [this, threads] {
              const Cursor cursor({.donor = donor.id()});
              EXPECT_EQ(totals_of(cursor, threads), expected_);
            });
  }

  Totals expected_;
  std::unique_ptr<Hot_session> hot_;
  std::unique_ptr<Writer> writer_;
};

TEST_F(SmallPool, ReadsAreExactBesideAWriterAndAHotTable) {
  const auto idle = [] { std::this_thread::sleep_for(milliseconds(1000)); };
  measure("nothing", idle);
  for (const size_t threads : {1, 2, 8}) measure_parallel(threads);
  measure("sequential scan, 4 threads", [this] {
    const Scan scan({.donor = donor.id()});
    EXPECT_EQ(totals_of(scan, 4), expected_);
  });
  measure("index cursor",
          [this] { EXPECT_EQ(totals_by_rows(donor.id()), expected_); });
  measure("SELECT COUNT(*)", [this] {
    EXPECT_EQ(donor.number("SELECT COUNT(*) FROM t"),
              static_cast<int64_t>(expected_.rows));
  });
  measure("SELECT SUM(v)", [this] {
    EXPECT_EQ(donor.number("SELECT SUM(v) FROM t"),
              static_cast<int64_t>(expected_.values));
  });
  measure("nothing", idle);
}

// First as many threads as there are, then more than that.
TEST_F(SmallPool, AsManyThreadsAsThereAre) {
  const Server_log log(sql);
  measure_parallel(255);
  measure("300 and 300 asked for", [this] {
    auto other = on_own_thread([this] {
      const Scan scan({.donor = donor.id()});
      EXPECT_EQ(totals_of(scan, 300), expected_);
    });
    const Cursor cursor({.donor = donor.id()});
    EXPECT_EQ(totals_of(cursor, 300), expected_);
    other.get();
  });
  fprintf(stderr, "figure: free blocks were hard to find %zu times\n",
          log.count("difficult to find free blocks"));
}

}  // namespace
