// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/batch.h
  Rows in the server's format, and the typed reads of their values.
*/

#ifndef MORVENA_SN_INNODB_API_BATCH_H
#define MORVENA_SN_INNODB_API_BATCH_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host.h"
#include "innodb_api/plan.h"
#include "innodb_api/row_version.h"
#include "value_reader.h"

/** One worker's batch of rows, with the buffers for reading their values.
    Callers get its address as a handle. The rows are copies and stay valid
    until clear(). */
class ThreadCtx {
 public:
  struct Deinit {
    void operator()(ThreadCtx *tctx) const { deinit_thread_ctx(tctx); }
  };
  using Owner = std::unique_ptr<ThreadCtx, Deinit>;

  /** @param plan  outlives the batch
      @param id  the worker's number
      @return an empty batch, null if out of memory */
  [[nodiscard]] static Owner init_thread_ctx(const Read_plan &plan, size_t id);
  static void deinit_thread_ctx(ThreadCtx *tctx);
  ThreadCtx(const ThreadCtx &) = delete;
  ThreadCtx &operator=(const ThreadCtx &) = delete;

  size_t id() const { return id_; }
  /** The session of the thread that reads the batch. */
  THD *session() const { return session_; }
  void set_session(THD *session) { session_ = session; }

  // --- filling: innodb_api/batch.cc ---

  /** Whether the batch must go to the callback before it takes another row. */
  bool is_full() const {
    return n_stored_ == rows_per_batch ||
           mem_heap_get_size(large_values_) > large_bytes_per_batch;
  }
  bool is_empty() const { return n_stored_ == 0; }
  /** Append a row. @return false, without appending, if a large value of the
      version is still being written. May throw std::bad_alloc. */
  [[nodiscard]] bool store_row(const Row_version &version);
  /** Make the stored rows visible to typed reads. */
  void show() { n_rows_ = n_stored_; }
  /** Store the next row as the first one again; free the large values. */
  void clear();

  // --- reading: innodb_api/typed_reads.cc ---

  size_t n_rows() const { return n_rows_; }
  /** Call read(Value_in_row, Value_reader *) for one value.
      @return true, without the call, if the batch has no such position or row,
      the column was not read, or the value is NULL */
  template <class Read>
  [[nodiscard]] bool read_value(uint field_idx, uint nr, Read read);
  /** The batch's copy of a column's Field; null if the column is not read. */
  Field *field(size_t field_idx) const {
    return row_columns_[field_idx].field_;
  }

 private:
  static constexpr size_t rows_per_batch = 4096;
  // A batch with more than this in large values takes no further row.
  static constexpr ulint large_bytes_per_batch = 8 << 20;

  ThreadCtx(const Read_plan &plan, size_t id);
  ~ThreadCtx();

  bool copy_fields();
  void grow_buffer();
  const byte *keep(const mysql_row_templ_t *templ, const byte *data,
                   ulint bytes);
  const byte *fetch_extern(const Row_version &version, ulint field_no,
                           ulint *bytes);
  void store_located_row(const Located_field *field, byte *row);
  bool store_columns(const Row_version &version, byte *row);
  bool store_column(const Column_plan &column, const Row_version &version,
                    byte *row);
  void store_by_host(const Column_plan &column, const dict_index_t *index,
                     const byte *data, ulint bytes, byte *row) const;

  const Read_plan &plan_;
  const size_t id_;
  THD *session_ = nullptr;
  MEM_ROOT root_;                        // holds the copies of Fields
  std::vector<Row_column> row_columns_;  // by table position
  const size_t row_bytes_;
  std::unique_ptr<byte[]> buffer_;  // n_slots_ rows
  size_t n_slots_ = 0;              // grows to rows_per_batch
  size_t n_stored_ = 0;
  size_t n_rows_ = 0;         // rows that typed reads can see
  mem_heap_t *large_values_;  // of the stored rows
  Value_reader value_reader_;
};

inline bool ThreadCtx::store_row(const Row_version &version) {
  if (n_stored_ == n_slots_) grow_buffer();
  byte *row = buffer_.get() + n_stored_ * row_bytes_;
  if (version.fields != nullptr) {
    store_located_row(version.fields, row);
  } else if (!store_columns(version, row)) {
    return false;
  }
  ++n_stored_;
  return true;
}

/** Typed reads of row nr of a batch: false = value written. */
struct Typed_reads {
  [[nodiscard]] static bool read_field_int(ThreadCtx *tctx, uint field_idx,
                                           uint nr, longlong *val);
  [[nodiscard]] static bool read_field_real(ThreadCtx *tctx, uint field_idx,
                                            uint nr, double *val);
  [[nodiscard]] static bool read_field_str(ThreadCtx *tctx, uint field_idx,
                                           uint nr, char **str, size_t *size);
  [[nodiscard]] static bool read_field_decimal(ThreadCtx *tctx, uint field_idx,
                                               uint nr, bool *neg,
                                               int32_t *intg, int32_t *frac,
                                               int32_t **data);
  [[nodiscard]] static bool read_field_date(ThreadCtx *tctx, uint field_idx,
                                            uint nr, int32_t *date);
  [[nodiscard]] static bool read_field_time(ThreadCtx *tctx, uint field_idx,
                                            uint nr, int64_t *time);
  [[nodiscard]] static bool read_field_datetime(ThreadCtx *tctx, uint field_idx,
                                                uint nr, int64_t *datetime);
};

#endif  // MORVENA_SN_INNODB_API_BATCH_H
