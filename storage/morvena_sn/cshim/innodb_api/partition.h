// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/partition.h
  Cuts a range into units for the workers of a read, by descending the B-tree
  once. Each sub-range begins at a record whose key becomes a boundary, and ends
  before the next boundary. The caller holds the index latch.
*/

#ifndef MORVENA_SN_INNODB_API_PARTITION_H
#define MORVENA_SN_INNODB_API_PARTITION_H

#include <cstddef>

#include "innodb_api/plan.h"
#include "innodb_api/queue.h"
#include "innodb_api/range.h"
#include "innodb_api/stop.h"

/** Cut a range into units for nthreads workers; 0: for the calling thread. The
    last units are marked to be split, so that no worker is idle at the end. */
[[nodiscard]] dberr_t setup_ctx(const Index_tree &tree, const Read_stop &stop,
                                const Range &range, size_t nthreads,
                                Unit_queue *queue);

/** Split a unit: queue finer units that cover its range, and none if its
    records are gone. The unit itself is not read. */
[[nodiscard]] dberr_t split_ctx(const Index_tree &tree, const Read_stop &stop,
                                const Ctx &ctx, size_t nthreads,
                                Unit_queue *queue);

#endif  // MORVENA_SN_INNODB_API_PARTITION_H
