// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Row versions that cannot be built because purge has removed their history.

#include "host.h"
#include "host/innodb.h"
#include "host/read_view.h"
#include "parallel_test.h"

namespace {

using namespace harness;

/** Hides the current session's read view from purge: only its transaction knows
    the view, so purge does not wait for it. */
class Forgotten_view {
 public:
  Forgotten_view() : trx_(thd_to_trx(current_thd)) {
    trx_sys_mutex_enter();
    ReadView *copy = host::clone_read_view(trx_->read_view);
    trx_sys->mvcc->view_close(trx_->read_view, true);
    trx_sys_mutex_exit();
    trx_->read_view = copy;
  }
  ~Forgotten_view() {
    ut::delete_(trx_->read_view);
    trx_->read_view = nullptr;
  }
  Forgotten_view(const Forgotten_view &) = delete;
  Forgotten_view &operator=(const Forgotten_view &) = delete;

 private:
  trx_t *trx_;
};

class ParallelHistory : public Parallel_test {
 protected:
  ParallelHistory() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, w INT, KEY by_v (v))");
    fill("t", 3000, "i, i, i");
  }

  /** Purge removes the history from which the rows' earlier versions are built,
      and the reads then fail. */
  template <class Reader>
  void expect_failure(const Reader &reader) {
    ASSERT_TRUE(reader.is_open()) << reader.error << reader.message;
    const Forgotten_view view;
    sql.exec("UPDATE t SET v = v + 10000, w = 0 WHERE id % 10 = 0");
    wait_for_purge();
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      EXPECT_FALSE(collect(reader, threads, {0}).complete);
    }
  }
};

TEST_F(ParallelHistory, WhichIsGoneFailsTheReadOfATable) {
  expect_failure(Scan());
}

TEST_F(ParallelHistory, WhichIsGoneFailsAnIndexOnlyRead) {
  expect_failure(Cursor({.index = "by_v", .index_only = true}));
}

TEST_F(ParallelHistory, WhichIsGoneFailsAReadThatFetchesRows) {
  expect_failure(Cursor({.index = "by_v"}));
}

}  // namespace
