// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file hot_session.h
  A session that reads the small table "hot" every few milliseconds, and
  measures how much a big read slows it down.
*/

#ifndef MORVENA_SN_TESTS_HOT_SESSION_H
#define MORVENA_SN_TESTS_HOT_SESSION_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "client.h"

namespace harness {

class Hot_session {
 public:
  /** Makes the table, of 1 MB. */
  explicit Hot_session(Client &sql);
  ~Hot_session();
  Hot_session(const Hot_session &) = delete;
  Hot_session &operator=(const Hot_session &) = delete;

  struct Figures {
    size_t reads = 0;
    size_t wrong = 0;
    double ms = 0;       // of all reads
    double longest = 0;  // ms
  };

  /** The figures since the last call. */
  Figures take();

 private:
  void run();

  std::atomic<bool> stop_{false};
  std::mutex mu_;
  Figures figures_;  // under mu_
  std::thread thread_;
};

/** How many pages of the table the buffer pool holds. */
int64_t hot_pages_in_memory(Client &sql);

/** How often the table's file was read. */
int64_t hot_disk_reads(Client &sql);

}  // namespace harness

#endif  // MORVENA_SN_TESTS_HOT_SESSION_H
