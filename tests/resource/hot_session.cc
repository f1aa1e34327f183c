// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "hot_session.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace harness {

namespace {

constexpr char select[] = "SELECT SUM(LENGTH(pad)) FROM hot";
constexpr int n_rows = 950;
constexpr int row_bytes = 1000;
constexpr std::chrono::milliseconds pause(5);

}  // namespace

Hot_session::Hot_session(Client &sql) {
  sql.exec("CREATE TABLE hot (id INT PRIMARY KEY, pad VARCHAR(2000))");
  sql.exec(
      "INSERT INTO hot WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1"
      " FROM n WHERE i < " +
      std::to_string(n_rows) + ") SELECT i, REPEAT('h', " +
      std::to_string(row_bytes) + ") FROM n");
  thread_ = std::thread([this] { run(); });
}

Hot_session::~Hot_session() {
  stop_ = true;
  thread_.join();
}

Hot_session::Figures Hot_session::take() {
  const std::lock_guard<std::mutex> lock(mu_);
  return std::exchange(figures_, {});
}

void Hot_session::run() {
  using clock = std::chrono::steady_clock;
  Client client;
  client.exec("USE db");
  while (!stop_) {
    const auto begin = clock::now();
    const Reply reply = client.attempt(select);
    const double ms =
        std::chrono::duration<double, std::milli>(clock::now() - begin).count();
    const bool right = reply.rows == Rows{{std::to_string(n_rows * row_bytes)}};
    {
      const std::lock_guard<std::mutex> lock(mu_);
      ++figures_.reads;
      figures_.wrong += right ? 0 : 1;
      figures_.ms += ms;
      figures_.longest = std::max(figures_.longest, ms);
    }
    std::this_thread::sleep_for(pause);
  }
}

int64_t hot_pages_in_memory(Client &sql) {
  return sql.number(
      "SELECT COUNT(*) FROM information_schema.innodb_buffer_page WHERE"
      " table_name = '`db`.`hot`'");
}

int64_t hot_disk_reads(Client &sql) {
  return sql.number(
      "SELECT SUM(count_read) FROM"
      " performance_schema.file_summary_by_instance WHERE file_name LIKE"
      " '%/db/hot.ibd'");
}

}  // namespace harness
