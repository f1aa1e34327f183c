// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file handler_api.h
  A cursor over one index of one open table, row by row, through the server's
  table handler.
*/

#ifndef MORVENA_SN_HANDLER_API_H
#define MORVENA_SN_HANDLER_API_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/call_state.h"
#include "common/counters.h"
#include "cursor.h"
#include "host.h"
#include "value_reader.h"

struct trx_t;

class IndexCursor {
 public:
  // --- opening, columns, read set: handler_api.cc ---

  /** @return a cursor on the index of that name, under the snapshot of the
      table's session, whose transaction has started; null, with the reason in
      the session's diagnostics area, when there is no such index or it cannot
      be read in key order */
  [[nodiscard]] static std::unique_ptr<IndexCursor> open(TABLE *table,
                                                         const char *idx_name,
                                                         bool index_only);
  ~IndexCursor();
  IndexCursor(const IndexCursor &) = delete;
  IndexCursor &operator=(const IndexCursor &) = delete;

  /** Set where the cursor's calls report from then on. */
  void report_to(Call_state *state) { state_ = state; }

  void cursor_output_col_names_names(std::vector<const char *> &colnames);
  void get_key_col_names(std::vector<const char *> &columns);
  int get_key_user_cols();
  /** @return the column's 1-based position in the table, 0 for none */
  uint32_t get_col_fieldnr(const char *name);
  /** Positions beyond the table's columns are skipped. */
  void set_readset(size_t ncols, const uint32_t *fields);

  // --- keys, ranges, stepping: handler_api/range.cc ---

  /** Make the key of the given leading parts. @return its length in bytes: a
      part that is NULL is in the key but adds nothing to the length */
  size_t create_key(const field_arg *arg, uchar *keybuf);
  /** @retval false on the range's first row  @retval true no row, or error */
  bool set_read_range(const field_arg *begin, const field_arg *end,
                      bool closed_begin, bool closed_end, bool reverse);
  /** There is no range to read any more. */
  void forget_range() {
    has_row_ = false;
    bounds_ = Bounds::REFUSED;
  }
  /** @retval false on the next row  @retval true no further row, or error */
  bool advance();

  // --- parallel read: handler_api/parallel.cc ---

  /** Read the range with the parallel reader, in ascending order whatever the
      range's was. @return whether it ended without error; false after a range
      that was refused */
  bool advance_parallel(size_t n_threads, Parallel_load_func fn,
                        void *argument);

  // --- typed reads: handler_api/fields.cc. false = value written ---

  bool read_field_int(unsigned int field_idx, longlong *val);
  bool read_field_real(unsigned int field_idx, double *val);
  bool read_field_str(unsigned int field_idx, char **str, size_t *size);
  bool read_field_decimal(unsigned int field_idx, bool *neg, int32_t *intg,
                          int32_t *frac, int32_t **data);
  bool read_field_date(unsigned int field_idx, int32_t *time);
  bool read_field_time(unsigned int field_idx, int64_t *time);
  bool read_field_datetime(unsigned int field_idx, int64_t *time);

 private:
  /** What the last range allows to read. */
  enum class Bounds {
    IN_FORCE,  // the rows between from_ and end_
    EMPTY,     // no row
    REFUSED    // nothing: the bounds could not be read
  };

  IndexCursor(TABLE *table, trx_t *trx, KEY *key, bool index_only);

  key_range *make_bound(key_range *bound, const field_arg *arg,
                        ha_rkey_function flag);
  bool can_be_read(const field_arg *arg) const;
  bool has_nan(const field_arg *arg) const;
  bool find_row();
  bool next_row();
  bool step();
  void let_others_in();
  void count_row();
  bool no_row(int error);
  void fail(int error);
  int refresh_columns();
  /** The bytes of a bound's given parts, NULL ones included. */
  uint image_bytes(const key_range &bound) const;
  int position();
  int position_reverse();
  bool is_before_range();
  bool ends_backward();
  bool every_partition_has_passed();
  int find_key(const key_range *bound, ha_rkey_function flag);
  bool index_has(unsigned int field_idx) const;
  bool was_read(unsigned int field_idx) const;
  const Row_column *column_with_value(unsigned int field_idx);
  template <class Read>
  bool read_value(unsigned int field_idx, Read read);
  /** To be called when the columns that may be read change. */
  void forget_row_columns() {
    row_columns_.assign(row_columns_.size(), Row_column());
  }
  TABLE *table() const { return table_; }
  const uchar *row() const { return table()->record[0]; }
  KEY *key() const { return key_; }

  Call_state own_state_;  // of a cursor without a handle
  Call_state *state_ = &own_state_;
  TABLE *const table_;
  trx_t *const trx_;  // the session's
  KEY *const key_;
  bool has_row_ = false;  // the row buffer holds a row of the range
  key_range rangebuf[2] = {};
  key_range *from_ = nullptr;
  key_range *end_ = nullptr;
  Bounds bounds_ = Bounds::IN_FORCE;
  bool equal_range_ = false;
  bool reverse_ = false;
  const bool index_only_;
  /** By partition: whether a backward range has met a row of the partition
      that lies before the range. Empty where rows come in order. */
  std::vector<bool> passed_;
  // The names of the index's columns. Asking InnoDB for them takes a mutex. A
  // thread that holds a page must not wait for it, and a callback's thread does
  // hold one.
  std::vector<const char *> key_columns_;
  counters::Batched rows_read_{Tally::ROWS_READ};
  Value_reader value_reader_;
  std::vector<Row_column> row_columns_;  // by table position, made when read
  /** The read and write sets with which the handler last positioned; empty
      before the first time. */
  std::vector<my_bitmap_map> columns_read_;
};

#endif  // MORVENA_SN_HANDLER_API_H
