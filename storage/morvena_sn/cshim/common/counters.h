// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/counters.h
  What the process's cursors and parallel reads have done, as SHOW GLOBAL STATUS
  tells it (common/plugin.cc has the names).

  Each counter has a cache line of its own. Whoever counts rows or pages adds
  many at a time: a page's, or some hundred rows'.
*/

#ifndef MORVENA_SN_COMMON_COUNTERS_H
#define MORVENA_SN_COMMON_COUNTERS_H

#include <cstddef>
#include <cstdint>

enum class Tally : size_t {
  CURSORS_OPEN,            // open handles
  CURSORS_OPENED,          // openings that succeeded
  SNAPSHOTS_COPIED,        // read views copied from a donor
  SNAPSHOTS_TAKEN,         // read views of a cursor's own
  PARALLEL_READS_RUNNING,  // parallel reads in progress
  PARALLEL_READS,          // parallel reads begun
  ROWS_READ,        // rows that cursors came to stand on, rows in batches
  PAGES_READ,       // leaf pages that parallel reads have been through
  BATCHES,          // batches given to a callback
  WORKERS_RUNNING,  // threads that work for parallel reads, their callers
                    // not included
  PARKS,            // waits of a worker that left the index to others
  KILLS,            // calls that ended because their session was killed
  REFUSALS,         // openings that failed, reads of what cannot be read
  FAILURES,         // reads that failed otherwise
  N
};

namespace counters {

void add(Tally counter, int64_t n);
inline void count(Tally counter) { add(counter, 1); }
int64_t value(Tally counter);

/** Counts one more for as long as it lives. */
class Running {
 public:
  explicit Running(Tally counter) : counter_(counter) { add(counter_, 1); }
  ~Running() { add(counter_, -1); }
  Running(const Running &) = delete;
  Running &operator=(const Running &) = delete;

 private:
  const Tally counter_;
};

/** Counts what happens too often to be added one by one. */
class Batched {
 public:
  explicit Batched(Tally counter) : counter_(counter) {}
  ~Batched() { flush(); }
  Batched(const Batched &) = delete;
  Batched &operator=(const Batched &) = delete;

  void count() {
    if (++n_ == limit) flush();
  }
  void flush() {
    if (n_ > 0) add(counter_, n_);
    n_ = 0;
  }

 private:
  static constexpr int64_t limit = 256;

  const Tally counter_;
  int64_t n_ = 0;
};

}  // namespace counters

#endif  // MORVENA_SN_COMMON_COUNTERS_H
