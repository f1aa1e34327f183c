/* Copyright (c) 2026, the morvena_sn authors.
   SPDX-License-Identifier: GPL-2.0-only */

/**
  @file sum.c
  A range read in C: the page to copy from where there is no C++. The plug-in
  that it is a part of is declared in reader.cc.
*/

#include "sum.h"

#include <stdio.h>

/** The rows of an open cursor whose column has a value. */
static void add_rows(uintptr_t cursor, unsigned int column, long long *sum,
                     uint64_t *count) {
  /* Each reports in its own way whether there is a row: see cursor.h. */
  while (!cursor_advance(cursor)) {
    long long value;
    if (cursor_read_field_int(cursor, column, &value)) continue; /* NULL */
    *sum += value;
    ++*count;
  }
}

/** A bound on the first key part, as text: that fits a column of any type. */
static bool set_range(uintptr_t cursor, const struct example_sum_read *read) {
  int32_t low_bytes = (int32_t)read->low_bytes;
  int32_t high_bytes = (int32_t)read->high_bytes;
  void *low_value = (void *)read->low;
  void *high_value = (void *)read->high;
  char type = MORVENA_SN_TEXT;
  field_arg low = {1, &low_bytes, &low_value, &type};
  field_arg high = {1, &high_bytes, &high_value, &type};
  return cursor_set_read_range(cursor, read->low != NULL ? &low : NULL,
                               read->high != NULL ? &high : NULL, true, true,
                               false);
}

unsigned int example_sum(const struct example_sum_read *read, long long *sum,
                         uint64_t *count, char *message) {
  const int wait_for_locks_sec = 10;
  unsigned int error;
  const char *text;
  uint32_t column;
  const uintptr_t cursor =
      open_index_cursor(read->db, read->table, read->index, false, read->donor,
                        wait_for_locks_sec, &error, message);
  *sum = 0;
  *count = 0;
  if (cursor == 0) return error;

  column = cursor_col_fieldnr(cursor, read->column);
  if (column == 0) {
    snprintf(message, MORVENA_SN_MESSAGE_BYTES, "no column %s", read->column);
    close_index_cursor(cursor);
    return MORVENA_SN_ERROR_NO_COLUMN;
  }
  --column; /* cursor_col_fieldnr() alone counts from 1 */
  cursor_set_readset(cursor, 1, &column);

  if (set_range(cursor, read)) add_rows(cursor, column, sum, count);
  /* The end of the range, or a failure: a kill of the client, say. */
  error = cursor_error(cursor, &text);
  if (error != 0) snprintf(message, MORVENA_SN_MESSAGE_BYTES, "%s", text);
  close_index_cursor(cursor);
  return error;
}
