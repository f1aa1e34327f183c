// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// A server that takes few connections. Sessions of cursors and workers do not
// count as connections: they open when no client can connect, and they do not
// keep a client from connecting.

#include <memory>
#include <stdexcept>

#include "parallel_test.h"

namespace {

using namespace harness;

constexpr size_t n_rows = 6000;
constexpr int n_cursors = 30;

class Connections : public Parallel_test {
 protected:
  Connections() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, pad VARCHAR(300))");
    fill("t", n_rows, "i, REPEAT('p', 200)");
    take_snapshot();
    expected_ = as_ints(donor.query("SELECT id FROM t ORDER BY id"));
  }

  int64_t connected() {
    return sql.number(
        "SELECT variable_value FROM performance_schema.global_status WHERE"
        " variable_name = 'Threads_connected'");
  }

  /** Connect until the server refuses. @return the server's message */
  std::string take_all() {
    for (int64_t i = 0; i <= allowed_; ++i) {
      try {
        clients_.push_back(std::make_unique<Client>());
      } catch (const std::runtime_error &error) {
        return error.what();
      }
    }
    return "";
  }

  const int64_t allowed_ = sql.number("SELECT @@max_connections");
  std::vector<std::unique_ptr<Client>> clients_;
  std::vector<long long> expected_;
};

TEST_F(Connections, CursorsAreNone) {
  const int64_t before = connected();
  std::vector<std::unique_ptr<Cursor>> cursors;
  const auto open_more = [&] {
    for (int i = 0; i < n_cursors; ++i) {
      cursors.push_back(std::make_unique<Cursor>(Open{.donor = donor.id()}));
      ASSERT_TRUE(cursors.back()->is_open()) << cursors.back()->message;
    }
  };
  open_more();
  EXPECT_EQ(connected(), before);
  EXPECT_EQ(take_all(), "cannot connect: Too many connections");
  // The server lets in one more than allowed, because the account may
  // administer it.
  EXPECT_EQ(connected(), allowed_ + 1);
  open_more();
  for (const auto &cursor : cursors) EXPECT_EQ(cursor->ints(0), expected_);
  const Scan scan({.donor = donor.id()});
  EXPECT_EQ(collect_ints(scan, 8, 0), expected_);
  EXPECT_EQ(connected(), allowed_ + 1);
}

}  // namespace
