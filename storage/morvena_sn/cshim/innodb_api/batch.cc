// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// batch: copies the columns of a row version into the server's row format.
// In: a visible version. Out: a row of the worker's batch. Holds: nothing of
// its own. Threads: any worker, each on its own batch; the plan is read only.
// Fails: no memory, a large value that is not written yet.

#include "innodb_api/batch.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr size_t first_slots = 64;  // about the rows of a page

void set_null(byte *row, const Column_plan &column, const byte *default_row) {
  row[column.null_byte] |= column.null_bit;
  memcpy(row + column.row_offset, default_row + column.row_offset,
         column.templ->mysql_col_len);
}

void set_not_null(byte *row, const Column_plan &column) {
  row[column.null_byte] &= static_cast<byte>(~column.null_bit);
}

// The number of table positions up to the last column of the template.
size_t n_positions(const row_prebuilt_t &prebuilt) {
  if (prebuilt.n_template == 0) return 0;
  return prebuilt.mysql_template[prebuilt.n_template - 1].col_no + 1;
}

}  // namespace

ThreadCtx::ThreadCtx(const Read_plan &plan, size_t id)
    : plan_(plan),
      id_(id),
      root_(PSI_NOT_INSTRUMENTED, 512),
      row_columns_(n_positions(*plan.prebuilt)),
      row_bytes_(plan.prebuilt->mysql_row_len),
      large_values_(host::new_heap(srv_page_size)) {}

ThreadCtx::~ThreadCtx() {
  mem_heap_free(large_values_);
  root_.Clear();
}

ThreadCtx::Owner ThreadCtx::init_thread_ctx(const Read_plan &plan, size_t id) {
  try {
    Owner tctx(new ThreadCtx(plan, id));
    return tctx->copy_fields() ? std::move(tctx) : nullptr;
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

void ThreadCtx::deinit_thread_ctx(ThreadCtx *tctx) { delete tctx; }

// Each worker needs its own Field objects, because reading a value points the
// Field at the row.
bool ThreadCtx::copy_fields() {
  TABLE *table = plan_.mysql_table;
  for (const Column_plan &column : plan_.columns) {
    const ulint position = column.templ->col_no;
    Field *copy = table->field[position]->new_field(&root_, table);
    if (copy == nullptr) return false;
    row_columns_[position] =
        Row_column(copy, column.row_offset, column.null_byte, column.null_bit);
  }
  return true;
}

// Makes room for more rows than any batch has had. Reads of few rows thus need
// little memory.
void ThreadCtx::grow_buffer() {
  const size_t n_slots = std::clamp(n_slots_ * 4, first_slots, rows_per_batch);
  std::unique_ptr<byte[]> buffer(new byte[row_bytes_ * n_slots]);
  if (n_slots_ > 0) {
    memcpy(buffer.get(), buffer_.get(), row_bytes_ * n_slots_);
  }
  buffer_ = std::move(buffer);
  n_slots_ = n_slots;
}

void ThreadCtx::clear() {
  n_stored_ = 0;
  mem_heap_empty(large_values_);
}

bool ThreadCtx::store_columns(const Row_version &version, byte *row) {
  for (const Column_plan &column : plan_.columns) {
    if (!store_column(column, version, row)) return false;
  }
  return true;
}

void ThreadCtx::store_located_row(const Located_field *field, byte *row) {
  for (const Column_plan &column : plan_.columns) {
    const auto [data, bytes] = *field++;
    if (data == nullptr) {
      set_null(row, column, plan_.prebuilt->default_rec);
      continue;
    }
    if (column.form == Stored_form::HOSTS) {
      store_by_host(column, plan_.tree.index, keep(column.templ, data, bytes),
                    bytes, row);
    } else {
      store_value(column.form, row + column.row_offset, data, bytes,
                  column.length_bytes);
    }
    set_not_null(row, column);
  }
}

bool ThreadCtx::store_column(const Column_plan &column,
                             const Row_version &version, byte *row) {
  const dict_index_t *index =
      plan_.converts_clustered() ? plan_.clustered_index() : plan_.tree.index;
  ulint bytes;
  const byte *data = rec_get_nth_field_instant(
      version.rec, version.offsets, column.rec_field_no, index, &bytes);
  if (bytes == UNIV_SQL_NULL) {
    set_null(row, column, plan_.prebuilt->default_rec);
    return true;
  }
  if (host::nth_extern(index, version.offsets, column.rec_field_no)) {
    data = fetch_extern(version, column.rec_field_no, &bytes);
    if (data == nullptr) return false;
  } else {
    data = keep(column.templ, data, bytes);
  }
  if (column.form == Stored_form::HOSTS) {
    store_by_host(column, index, data, bytes, row);
  } else {
    store_value(column.form, row + column.row_offset, data, bytes,
                column.length_bytes);
  }
  set_not_null(row, column);
  return true;
}

// The row stores only a pointer to a large value, so the value is copied before
// the page is released.
const byte *ThreadCtx::keep(const mysql_row_templ_t *templ, const byte *data,
                            ulint bytes) {
  if (!DATA_LARGE_MTYPE(templ->type) && !DATA_GEOMETRY_MTYPE(templ->type)) {
    return data;
  }
  return static_cast<byte *>(mem_heap_dup(large_values_, data, bytes));
}

// Fetches a value that is stored off the page, as it was in this version of the
// row. Only clustered records have such values. Returns null while a writer is
// still writing the value. The writer is the donor or, under READ UNCOMMITTED,
// any transaction.
const byte *ThreadCtx::fetch_extern(const Row_version &version, ulint field_no,
                                    ulint *bytes) {
  dict_index_t *clustered = plan_.clustered_index();
  ulint local_bytes;
  const byte *local = rec_get_nth_field_instant(
      version.rec, version.offsets, field_no, clustered, &local_bytes);
  lob::ref_t ref(
      const_cast<byte *>(local + local_bytes - BTR_EXTERN_FIELD_REF_SIZE));
  // InnoDB would return an empty value.
  if (ref.is_being_modified()) return nullptr;
  size_t lob_version = 0;
  byte *data = lob::btr_rec_copy_externally_stored_field(
      plan_.trx, clustered, version.rec, version.offsets, plan_.tree.page_size,
      field_no, bytes, &lob_version, false, large_values_);
  if (data == nullptr) return nullptr;
  // Undo small changes that were made in place after this version.
  version.lob_undo->apply(clustered, field_no, data, *bytes, lob_version,
                          ref.page_no());
  return data;
}

void ThreadCtx::store_by_host(const Column_plan &column,
                              const dict_index_t *index, const byte *data,
                              ulint bytes, byte *row) const {
  // Only InnoDB's debug checks use it.
  [[maybe_unused]] const ulint sec_field_no =
      plan_.converts_clustered() ? ULINT_UNDEFINED : column.rec_field_no;
  byte *value = row + column.row_offset;
  const ulint whole = column.templ->mysql_col_len;
  if (column.filling != nullptr && bytes < whole) {
    // InnoDB would copy the prefix and leave the other bytes unset.
    const CHARSET_INFO *charset = column.filling;
    charset->cset->fill(charset, reinterpret_cast<char *>(value), whole,
                        charset->pad_char);
    memcpy(value, data, bytes);
    return;
  }
  row_sel_field_store_in_mysql_format(value, column.templ, index,
                                      column.rec_field_no, data, bytes,
                                      sec_field_no);
}
