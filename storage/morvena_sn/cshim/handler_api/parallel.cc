// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Index cursor: its range, handed over to the parallel reader.

#include <memory>

#include "handler_api.h"
#include "innodb_api.h"

bool IndexCursor::advance_parallel(size_t n_threads, Parallel_load_func fn,
                                   void *argument) {
  if (bounds_ == Bounds::REFUSED) {
    state_->failure.set_wrong_argument("the range, which was refused");
    return false;
  }
  const std::unique_ptr<ParallelIndexReader> reader(
      ParallelIndexReader::open(table(), key()->name, index_only_, state_));
  if (reader == nullptr) return false;
  if (bounds_ == Bounds::EMPTY) return true;
  reader->set_range_scan(from_, end_);
  reader->set_load_cb(fn, argument);
  return reader->run(n_threads);
}
