// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file purge.h
  Makes purge run and watches its progress.
*/

#ifndef MORVENA_SN_TESTS_PURGE_H
#define MORVENA_SN_TESTS_PURGE_H

#include <string>

#include "cursor_test.h"
#include "global_setting.h"

namespace harness {

class Purge {
 public:
  /** @param sql  a client in the database db */
  explicit Purge(Client *sql) : sql_(sql) {
    sql_->exec("CREATE TABLE noise (id INT PRIMARY KEY)");
    sql_->exec("SET GLOBAL innodb_monitor_enable = 'purge_invoked'");
  }
  ~Purge() {
    sql_->attempt("SET GLOBAL innodb_monitor_disable = 'purge_invoked'");
  }
  Purge(const Purge &) = delete;
  Purge &operator=(const Purge &) = delete;

  /** The length of the history list: the number of transactions whose history
      purge has not removed. */
  int64_t history() { return metric("trx_rseg_history_len"); }

  /** Wait until purge has run that many times since this call. */
  bool has_run(int times) {
    const int64_t before = metric("purge_invoked");
    return wait_until([&] {
      commit_something();
      return metric("purge_invoked") >= before + times;
    });
  }

  bool shrinks_history_below(int64_t length) {
    return wait_until([&] {
      commit_something();
      return history() < length;
    });
  }

 private:
  int64_t metric(const std::string &name) {
    return sql_->number(
        "SELECT count FROM information_schema.innodb_metrics"
        " WHERE name = '" +
        name + "'");
  }

  /** Wakes up purge, which sleeps while nothing is committed. */
  void commit_something() {
    sql_->exec("INSERT INTO noise VALUES (1)");
    sql_->exec("DELETE FROM noise");
  }

  Client *const sql_;
  // Purged history leaves the history list after each round of purge. By
  // default it does so once in 128 rounds.
  const Global_setting truncation_{"innodb_purge_rseg_truncate_frequency", "1"};
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_PURGE_H
