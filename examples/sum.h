/* Copyright (c) 2026, the morvena_sn authors.
   SPDX-License-Identifier: GPL-2.0-only */

/**
  @file sum.h
  What sum.c offers: a range read in C.
*/

#ifndef MORVENA_EXAMPLE_SUM_H
#define MORVENA_EXAMPLE_SUM_H

#include "cursor.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What to read. The bounds are values of the index's first key part, as text.
 */
struct example_sum_read {
  const char *db, *table, *index, *column;
  const char *low, *high; /**< included; null: unbounded */
  size_t low_bytes, high_bytes;
  uint32_t donor; /**< connection id */
};

/**
  Add up a column of integers. NULL adds nothing.

  @param[out] sum      the sum of the rows that were read
  @param[out] count    of how many values
  @param[out] message  MORVENA_SN_MESSAGE_BYTES bytes: why it failed
  @return 0, or the error number

  Threads: as for the cursors of cursor.h; leaves a session that is not the
  thread's own.
*/
unsigned int example_sum(const struct example_sum_read *read, long long *sum,
                         uint64_t *count, char *message);

#ifdef __cplusplus
}
#endif

#endif /* MORVENA_EXAMPLE_SUM_H */
