// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/* Calls every function of the header from a file that includes nothing else. */

#include "cursor.h"

void close_all(void);
bool take_batch(uint64_t handle, uint64_t thread_id, void *argument);
bool read_row(uintptr_t cursor);
bool read_by_index(field_arg *bound);
bool read_all(void);

static uintptr_t handles[2];

void close_all(void) {
  close_index_cursor(handles[0]);
  close_seqscan_cursor(handles[1]);
  deinit_common();
}

bool take_batch(uint64_t handle, uint64_t thread_id, void *argument) {
  uintptr_t batch = (uintptr_t)handle;
  uint64_t rows = pread_n_tuples(batch) + thread_id + (argument != NULL);
  long long integer;
  double real;
  char *text;
  size_t size;
  bool negative;
  int32_t words, fraction, *digits, date;
  int64_t time;
  return rows == 0 || pread_field_int(batch, 0, 0, &integer) ||
         pread_field_real(batch, 0, 0, &real) ||
         pread_field_str(batch, 0, 0, &text, &size) ||
         pread_field_decimal(batch, 0, 0, &negative, &words, &fraction,
                             &digits) ||
         pread_field_date(batch, 0, 0, &date) ||
         pread_field_time(batch, 0, 0, &time) ||
         pread_field_datetime(batch, 0, 0, &time);
}

bool read_row(uintptr_t cursor) {
  long long integer;
  double real;
  char *text;
  size_t size;
  bool negative;
  int32_t words, fraction, *digits, date;
  int64_t time;
  return cursor_read_field_int(cursor, 0, &integer) ||
         cursor_read_field_real(cursor, 0, &real) ||
         cursor_read_field_str(cursor, 0, &text, &size) ||
         cursor_read_field_decimal(cursor, 0, &negative, &words, &fraction,
                                   &digits) ||
         cursor_read_field_date(cursor, 0, &date) ||
         cursor_read_field_time(cursor, 0, &time) ||
         cursor_read_field_datetime(cursor, 0, &time);
}

bool read_by_index(field_arg *bound) {
  unsigned int error;
  char message[512];
  const char *names[64];
  uint32_t column;
  uint64_t columns;
  uintptr_t cursor =
      open_index_cursor("db", "t", "PRIMARY", false, 0, 1, &error, message);
  handles[0] = cursor;
  columns = cursor_output_col_num(cursor) + cursor_idx_col_num(cursor) +
            cursor_idx_user_col_num(cursor);
  cursor_output_col_names(cursor, names);
  cursor_idx_col_names(cursor, names);
  column = cursor_col_fieldnr(cursor, names[0]) - 1;
  cursor_set_readset(cursor, 1, &column);
  return columns != 0 &&
         cursor_set_read_range(cursor, bound, bound, true, false, false) &&
         !cursor_advance(cursor) && !read_row(cursor) &&
         cursor_advance_parallel(cursor, 4, take_batch, NULL);
}

bool ask(void) {
  unsigned int error;
  char message[512];
  const char *text;
  uint64_t rows, pages, estimated;
  uint32_t moment = open_snapshot(&error, message);
  close_snapshot(moment);
  cursor_cancel(handles[0]);
  return cursor_error(handles[0], &text) == 1317 &&
         cursor_progress(handles[0], &rows, &pages, &estimated) &&
         cursor_snapshot(handles[0]) == 2 && morvena_sn_version() == NULL;
}

bool read_all(void) {
  unsigned int error;
  char message[512];
  const char *names[64];
  uint32_t column = 0;
  uintptr_t cursor = open_seqscan_cursor("db", "t", 0, 1, &error, message);
  handles[1] = cursor;
  init_common();
  register_shutdown_observer(NULL, close_all);
  seqscan_cursor_output_col_names(cursor, names);
  seqscan_cursor_set_readset(cursor, 1, &column);
  return seqscan_cursor_output_col_num(cursor) > 0 &&
         seqscan_cursor_advance_parallel(cursor, 4, take_batch, NULL);
}
