// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// batch: a version's columns, in memory of ours and in the server's row format.
// In: a visible version. Out: a row of the worker's batch; full batches go on
// to the callback. Holds: nothing of its own. Threads: any worker, each on its
// own context; the template is read only. Fails: no memory, a large value that
// is not written yet.

#include <algorithm>
#include <cstring>
#include <new>

#include "innodb_api.h"

namespace {

constexpr size_t rows_per_batch = 4096;
constexpr size_t first_slots = 64;  // for the rows of a page, mostly
// A batch with more than this in large values takes no further row.
constexpr ulint large_bytes_per_batch = 8 << 20;

// A worker's own Field objects: reading a row points them at it.
bool copy_fields(ThreadCtx *tctx, TABLE *table,
                 const std::vector<Column_plan> &columns) {
  tctx->fields.assign(table->s->fields, nullptr);
  for (const Column_plan &column : columns) {
    const ulint position = column.templ->col_no;
    Field *copy = table->field[position]->new_field(&tctx->root, table);
    if (copy == nullptr) return false;
    tctx->fields[position] = copy;
  }
  return true;
}

// Where each column's value and null bit lie in a row.
void lay_out_row(ThreadCtx *tctx, const row_prebuilt_t *prebuilt) {
  tctx->row_len_ = prebuilt->mysql_row_len;
  if (prebuilt->n_template > 0) {
    tctx->ncols_ =
        prebuilt->mysql_template[prebuilt->n_template - 1].col_no + 1;
  }
  tctx->col_offsets_.resize(tctx->ncols_);
  tctx->null_byte_offsets_.resize(tctx->ncols_);
  tctx->null_bitmasks_.resize(tctx->ncols_);
  tctx->row_columns_.resize(tctx->ncols_);
  for (ulint i = 0; i < prebuilt->n_template; ++i) {
    const mysql_row_templ_t &templ = prebuilt->mysql_template[i];
    tctx->col_offsets_[templ.col_no] = templ.mysql_col_offset;
    tctx->null_byte_offsets_[templ.col_no] = templ.mysql_null_byte_offset;
    tctx->null_bitmasks_[templ.col_no] = templ.mysql_null_bit_mask;
    Field *field = tctx->fields[templ.col_no];
    if (field == nullptr) continue;
    tctx->row_columns_[templ.col_no] =
        Row_column(field, static_cast<uint32_t>(templ.mysql_col_offset),
                   static_cast<uint32_t>(templ.mysql_null_byte_offset),
                   static_cast<uint8_t>(templ.mysql_null_bit_mask));
  }
}

void set_null(byte *row, const Column_plan &column, const byte *default_row) {
  row[column.null_byte] |= column.null_bit;
  memcpy(row + column.row_offset, default_row + column.row_offset,
         column.templ->mysql_col_len);
}

void set_not_null(byte *row, const Column_plan &column) {
  row[column.null_byte] &= static_cast<byte>(~column.null_bit);
}

// More rows in a batch than there were so far.
void grow_buffer(ThreadCtx *tctx) {
  const size_t n_slots =
      std::clamp(tctx->n_slots_ * 4, first_slots, tctx->batch_size_);
  std::unique_ptr<byte[]> buffer(new byte[tctx->row_len_ * n_slots]);
  if (tctx->n_slots_ > 0) {
    memcpy(buffer.get(), tctx->buffer_.get(), tctx->row_len_ * tctx->n_slots_);
  }
  tctx->buffer_ = std::move(buffer);
  tctx->n_slots_ = n_slots;
}

// Of a large value the row gets a pointer, which is to hold after the page has
// been let go.
const byte *keep(const Ctx *ctx, const mysql_row_templ_t *templ,
                 const byte *data, ulint bytes) {
  if (!DATA_LARGE_MTYPE(templ->type) && !DATA_GEOMETRY_MTYPE(templ->type)) {
    return data;
  }
  return static_cast<byte *>(
      mem_heap_dup(ctx->thread_ctx_->blob_heap_, data, bytes));
}

// A value that is stored off the page, as of the version in hand. Null while
// its writer is writing it: the donor itself or, under READ UNCOMMITTED,
// anybody.
const byte *fetch_extern(const row_prebuilt_t *prebuilt, const Ctx *ctx,
                         const dict_index_t *clustered, ulint field_no,
                         mem_heap_t *heap, ulint *bytes) {
  ulint local_bytes;
  const byte *local = rec_get_nth_field_instant(
      ctx->rec_, ctx->offsets_, field_no, clustered, &local_bytes);
  lob::ref_t ref(
      const_cast<byte *>(local + local_bytes - BTR_EXTERN_FIELD_REF_SIZE));
  // The host makes an empty value of it.
  if (ref.is_being_modified()) return nullptr;
  size_t lob_version = 0;
  const page_size_t page_size = dict_table_page_size(clustered->table);
  byte *data = lob::btr_rec_copy_externally_stored_field(
      prebuilt->trx, clustered, ctx->rec_, ctx->offsets_, page_size, field_no,
      bytes, &lob_version, false, heap);
  if (data == nullptr) return nullptr;
  // Small changes made in place since are taken back.
  ctx->thread_ctx_->lob_undo_.apply(const_cast<dict_index_t *>(clustered),
                                    field_no, data, *bytes, lob_version,
                                    ref.page_no());
  return data;
}

}  // namespace

ThreadCtx *ParallelIndexReader::init_thread_ctx(size_t id) {
  try {
    std::unique_ptr<ThreadCtx> tctx(new ThreadCtx());
    tctx->id_ = id;
    tctx->fn_ = loader_;
    tctx->argument_ = argument_;
    if (!copy_fields(tctx.get(), mysql_table_, columns_)) return nullptr;
    lay_out_row(tctx.get(), prebuilt_);
    tctx->batch_size_ = rows_per_batch;
    tctx->blob_heap_ = host::new_heap(srv_page_size);
    return tctx.release();
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

void ParallelIndexReader::deinit_thread_ctx(ThreadCtx *tctx) {
  mem_heap_free(tctx->blob_heap_);
  tctx->lob_undo_.destroy();
  tctx->root.Clear();
  delete tctx;
}

dberr_t ParallelIndexReader::process_row(Ctx *ctx) {
  ThreadCtx *tctx = ctx->thread_ctx_;
  size_t slot = tctx->n_read_ - tctx->n_sent_;
  dberr_t err = DB_SUCCESS;
  if (slot == tctx->batch_size_ ||
      mem_heap_get_size(tctx->blob_heap_) > large_bytes_per_batch) {
    err = send_batch(tctx);
    if (err != DB_SUCCESS) {
      state_->failure.set(er_callback_stopped, "The callback stopped the read");
    }
    mem_heap_empty(tctx->blob_heap_);
    slot = 0;
  }
  if (slot == tctx->n_slots_) grow_buffer(tctx);
  if (!store_row(ctx, tctx->buffer_.get() + slot * tctx->row_len_)) {
    // As in SQL, a row is not there before its values are.
    if (trx_->isolation_level == TRX_ISO_READ_UNCOMMITTED) return err;
    state_->failure.raise(ER_CHECKREAD,
                          "Cannot read a value that the donor is writing");
    return DB_ERROR;
  }
  ++tctx->n_read_;
  return err;
}

bool ParallelIndexReader::store_row(const Ctx *ctx, byte *row) {
  if (ctx->fields_ != nullptr) {
    store_located_row(ctx, row);
    return true;
  }
  for (const Column_plan &column : columns_) {
    if (!store_column(column, ctx, row)) return false;
  }
  return true;
}

void ParallelIndexReader::store_located_row(const Ctx *ctx, byte *row) {
  const Located_field *field = ctx->fields_;
  for (const Column_plan &column : columns_) {
    const auto [data, bytes] = *field++;
    if (data == nullptr) {
      set_null(row, column, prebuilt_->default_rec);
      continue;
    }
    if (column.form == Stored_form::HOSTS) {
      store_by_host(column, index_, keep(ctx, column.templ, data, bytes), bytes,
                    row);
    } else {
      store_value(column.form, row + column.row_offset, data, bytes,
                  column.length_bytes);
    }
    set_not_null(row, column);
  }
}

bool ParallelIndexReader::store_column(const Column_plan &column,
                                       const Ctx *ctx, byte *row) {
  const dict_index_t *index = converts_clustered() ? clustered_index() : index_;
  ulint bytes;
  const byte *data = rec_get_nth_field_instant(
      ctx->rec_, ctx->offsets_, column.rec_field_no, index, &bytes);
  if (bytes == UNIV_SQL_NULL) {
    set_null(row, column, prebuilt_->default_rec);
    return true;
  }
  const bool is_external =
      host::nth_extern(index, ctx->offsets_, column.rec_field_no);
  if (is_external) {
    data = fetch_extern(prebuilt_, ctx, index, column.rec_field_no,
                        ctx->thread_ctx_->blob_heap_, &bytes);
    if (data == nullptr) return false;
  } else {
    data = keep(ctx, column.templ, data, bytes);
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

void ParallelIndexReader::store_by_host(const Column_plan &column,
                                        const dict_index_t *index,
                                        const byte *data, ulint bytes,
                                        byte *row) const {
  // For the host's debug checks.
  [[maybe_unused]] const ulint sec_field_no =
      converts_clustered() ? ULINT_UNDEFINED : column.rec_field_no;
  byte *value = row + column.row_offset;
  const ulint whole = column.templ->mysql_col_len;
  if (column.filling != nullptr && bytes < whole) {
    // The host would copy as many bytes as there are and leave the others.
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
