// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file writer.h
  Sessions that write while a case reads.
*/

#ifndef MORVENA_SN_TESTS_WRITER_H
#define MORVENA_SN_TESTS_WRITER_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "client.h"
#include "gtest/gtest.h"

namespace harness {

/** A session that repeats statements until the case ends. */
class Writer {
 public:
  using Statements = std::function<std::vector<std::string>(unsigned int)>;

  Writer(unsigned int seed, Statements statements)
      : thread_([this, seed, statements] { run(seed, statements); }) {}
  ~Writer() {
    stop_ = true;
    thread_.join();
  }
  Writer(const Writer &) = delete;
  Writer &operator=(const Writer &) = delete;
  size_t rounds() const { return rounds_; }

 private:
  void run(unsigned int seed, const Statements &statements) {
    Client client;
    client.exec("USE db");
    for (unsigned int i = seed; !stop_; i = i * 1664525 + 1013904223) {
      for (const std::string &statement : statements(i >> 8)) {
        const Reply reply = client.attempt(statement);
        if (reply.error != 0) client.attempt("ROLLBACK");
        // Deadlocks, lock wait timeouts and duplicate keys are expected.
        if (reply.error != 0 && reply.error != 1213 && reply.error != 1205 &&
            reply.error != 1062) {
          ADD_FAILURE() << reply.error << " " << reply.message;
          return;
        }
        if (reply.error != 0) break;
      }
      ++rounds_;
    }
  }

  std::atomic<bool> stop_{false};
  std::atomic<size_t> rounds_{0};
  std::thread thread_;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_WRITER_H
