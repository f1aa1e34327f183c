// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api.h
  The parallel reader of an InnoDB index.

  A ParallelIndexReader lives for one read. It is opened on a table and one of
  its indexes, which gives the plan of the read; it is given a range and a
  callback, run, and destroyed.

  The range is cut into contiguous sub-ranges by descending the B-tree once.
  Each becomes a unit of work in a queue. Workers take units from it, walk their
  leaf pages, judge every record under the view, store the visible ones in the
  server's row format in a batch of their own, and hand full batches to the
  callback. The last units of a read are cut once more when a worker takes them,
  so that nobody idles at the end.

  Exactly once.  Boundaries are keys: a position that is taken up again, at a
  unit's start or when a page was let go, resumes at the first record at or
  after its key, whatever became of the record and its page meanwhile. Rows that
  come into being between are not visible to the view.

  Latches.  The read holds its index's latch, shared and counted, from start to
  end. No worker asks for it again: a request that waits exclusively lets no new
  shared one through, so the worker would wait for the writer, the writer for
  the read and the read for the worker. For such a waiter the workers park at
  their next page end, and the read lets the latch go until he has had it. A
  worker holds one leaf page at a time, and beside it what one row's look-up
  latches.

  End.  Units created and units completed are counted; the read is over when
  they are equal. Each step answers with its result; the first failure stops
  every worker at its next check.
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

  /** @param state  where the read tells of itself; null: nowhere
      @return a reader of the index of that name, null for the clustered index;
      null when it cannot be read in parallel (the state says why) */
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

  /** Read with up to that many workers; fewer than two: in the calling thread.
      @return whether the read ended without error */
  [[nodiscard]] bool run(size_t n_threads);
  /** Of the run. */
  dberr_t get_error() const { return error_; }

 private:
  explicit ParallelIndexReader(Call_state *state);

  Call_state own_state_;  // of a read that nobody asks about
  Call_state *const state_;
  std::unique_ptr<const Read_plan> plan_;
  Range range_;  // without bounds at first
  Load_callback callback_;
  dberr_t error_ = DB_SUCCESS;
};

#endif  // MORVENA_SN_INNODB_API_H
