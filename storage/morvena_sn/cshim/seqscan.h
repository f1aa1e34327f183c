// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file seqscan.h
  A cursor whose only read is a parallel scan of a whole table.
*/

#ifndef MORVENA_SN_SEQSCAN_H
#define MORVENA_SN_SEQSCAN_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/call_state.h"
#include "cursor.h"
#include "host.h"

class SeqScanCursor {
 public:
  /** @return a cursor on a locked table, under the snapshot of its session's
      transaction; never null */
  [[nodiscard]] static std::unique_ptr<SeqScanCursor> open(TABLE *table);

  /** Set where the cursor's calls report from then on. */
  void report_to(Call_state *state) { state_ = state; }

  /** Read the table along its primary key, or InnoDB's own clustered index.
      @return whether the read ended without error */
  bool advance_parallel(size_t n_threads, Parallel_load_func fn,
                        void *argument);
  /** Set columns to the names of the table's columns. */
  void get_col_names(std::vector<const char *> &columns);
  /** Positions beyond the table's columns are skipped. */
  void set_readset(size_t ncols, const uint32_t *fields);

 private:
  explicit SeqScanCursor(TABLE *table) : table_(table) {}

  Call_state own_state_;  // of a cursor without a handle
  Call_state *state_ = &own_state_;
  TABLE *const table_;
};

#endif  // MORVENA_SN_SEQSCAN_H
