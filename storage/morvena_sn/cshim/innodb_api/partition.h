// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/partition.h
  A range, cut into units for a read's workers by descending the B-tree once: a
  sub-range begins at a record that is pinned as a boundary, and ends before the
  next boundary. The index latch is held.
*/

#ifndef MORVENA_SN_INNODB_API_PARTITION_H
#define MORVENA_SN_INNODB_API_PARTITION_H

#include <cstddef>

#include "innodb_api/plan.h"
#include "innodb_api/queue.h"
#include "innodb_api/range.h"
#include "innodb_api/stop.h"

/** Cut a range into units for that many workers, 0: the calling thread. The
   last ones are to be split, so that nobody idles at the end. */
[[nodiscard]] dberr_t setup_ctx(const Index_tree &tree, const Read_stop &stop,
                                const Range &range, size_t nthreads,
                                Unit_queue *queue);

/** Queue finer units that cover a unit's range, which itself is not read. None
    when its records are gone. */
[[nodiscard]] dberr_t split_ctx(const Index_tree &tree, const Read_stop &stop,
                                const Ctx &ctx, size_t nthreads,
                                Unit_queue *queue);

#endif  // MORVENA_SN_INNODB_API_PARTITION_H
