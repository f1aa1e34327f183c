/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// The index's latch: the read holds it from start to end, and a writer that
// wants the whole index waits for it.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "parallel_test.h"

namespace {

using namespace harness;

class Parallel_latch : public Parallel_test {
 protected:
  Parallel_latch() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, b LONGBLOB)");
    fill("t", 20000, "i * 2, i, IF(i % 50, 'short', REPEAT('b', 30000))");
  }
};

TEST_F(Parallel_latch, SlowCallbacksBesideLargeInserts) {
  std::atomic<bool> done{false};
  size_t inserted = 0;
  auto writer = on_own_thread([&] {
    Client client;
    client.exec("USE db");
    while (!done)
      client.exec("INSERT INTO t VALUES (" +
                  std::to_string(100001 + 2 * inserted++) +
                  ", 1, REPEAT('n', 1000000))");
  });
  for (int round = 0; round < 3; ++round) {
    for (const size_t threads : {size_t{0}, size_t{3}, size_t{8}}) {
      take_snapshot();
      const auto expected =
          as_ints(donor.query("SELECT id FROM t ORDER BY id"));
      const Scan scan({.donor = donor.id()});
      std::vector<long long> ids;
      std::mutex mu;
      EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const std::lock_guard<std::mutex> lock(mu);
        for (unsigned int nr = 0; nr < batch.size(); ++nr) {
          ids.push_back(batch.read_int(0, nr).value());
          EXPECT_TRUE(batch.read_text(2, nr));
        }
        return false;
      }));
      std::sort(ids.begin(), ids.end());
      EXPECT_TRUE(ids == expected) << ids.size() << " of " << expected.size();
      donor.exec("COMMIT");
    }
  }
  done = true;
  writer.get();
  EXPECT_GT(inserted, 1u);
}

TEST_F(Parallel_latch, TwoReadsAndTheirWriters) {
  std::atomic<bool> done{false};
  const auto write = [&](const std::string &statement) {
    Client client;
    client.exec("USE db");
    while (!done) client.exec(statement);
  };
  auto one = on_own_thread([&] {
    write(
        "UPDATE t SET b = REPEAT('u', 200000 + RAND() * 1000)"
        " WHERE id = 100");
  });
  auto other = on_own_thread(
      [&] { write("REPLACE INTO t VALUES (101, 1, REPEAT('r', 300000))"); });
  const auto read = [] {
    for (int round = 0; round < 10; ++round) {
      Scan scan;
      scan.set_columns({0});
      EXPECT_GE(collect(scan, 4, {0}).rows.size(), 20000u);
    }
  };
  auto reader = on_own_thread(read);
  read();
  reader.get();
  done = true;
  one.get();
  other.get();
}

}  // namespace
