// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api.h
  The parallel reader of an InnoDB index.

  A ParallelIndexReader lives for one read. Opening it on a table and one of its
  indexes makes the plan of the read. The caller then sets a range and a
  callback, runs the reader and destroys it.

  The range is cut into contiguous sub-ranges by descending the B-tree once.
  Each sub-range becomes a unit of work in a queue. A worker takes a unit, walks
  its leaf pages and finds for every record the version that the read view sees.
  It stores the visible rows in the server's row format in a batch of its own,
  and hands full batches to the callback. A worker that takes one of the last
  units splits it into finer units instead, so that no worker is idle at the
  end.

  Exactly once.  Boundaries and stored positions are keys. A worker that starts
  a unit, or comes back to a page that it has released, searches for the first
  record at or after the key. This works even if the record or its page has
  changed or is gone. Rows that are inserted meanwhile are not visible to the
  view.

  Latches.  The read holds the latch of the scanned index, shared and counted,
  from start to end. No worker requests it again. An exclusive request that
  waits blocks new shared ones, so the worker would wait for the writer, the
  writer for the read, and the read for the worker. When a writer waits, the
  workers park at the end of their page, and the read releases the latch until
  the writer has had it. A worker holds one leaf page at a time, and in addition
  what the look-up of one row latches.

  End.  The queue counts the units that were created and those that are
  completed. The read is over when both counts are equal. Each step returns its
  result. The first failure stops every worker at its next check.
*/

#ifndef MORVENA_SN_INNODB_API_H
#define MORVENA_SN_INNODB_API_H

#include <cstddef>
#include <memory>

#include "common/call_state.h"
#include "common/pool.h"
#include "innodb_api/batch.h"
#include "innodb_api/callback.h"
#include "innodb_api/plan.h"
#include "innodb_api/range.h"

class ParallelIndexReader : public ThreadBudget, public Typed_reads {
 public:
  using ThreadPool = ::ThreadPool;

  /** @param index_name  null: the clustered index
      @param state  where the read reports progress and failure; null: nowhere
      @return null if the index cannot be read in parallel; state says why */
  [[nodiscard]] static ParallelIndexReader *open(TABLE *table,
                                                 const char *index_name,
                                                 bool indexonly_scan,
                                                 Call_state *state = nullptr);
  ParallelIndexReader(const ParallelIndexReader &) = delete;
  ParallelIndexReader &operator=(const ParallelIndexReader &) = delete;

  /** Set the bounds, null for none. Their key images must outlive the reader.
   */
  void set_range_scan(const key_range *start, const key_range *end);
  void set_load_cb(Parallel_load_fn load_cb, void *argument) {
    callback_ = {load_cb, argument};
  }

  /** Read with up to n_threads workers; with fewer than two, in the calling
      thread. @return whether the read ended without error */
  [[nodiscard]] bool run(size_t n_threads);
  /** The result of run(). */
  dberr_t get_error() const { return error_; }

 private:
  explicit ParallelIndexReader(Call_state *state);

  Call_state own_state_;  // used if open() gets no state
  Call_state *const state_;
  std::unique_ptr<const Read_plan> plan_;
  Range range_;  // without bounds at first
  Load_callback callback_;
  dberr_t error_ = DB_SUCCESS;
};

#endif  // MORVENA_SN_INNODB_API_H
