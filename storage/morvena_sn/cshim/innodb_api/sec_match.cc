// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Compares a secondary entry with a clustered record, column by column.

#include "innodb_api/sec_match.h"

#include "host.h"
#include "innodb_api/scope.h"

namespace {

struct Value {
  const byte *data;
  ulint bytes;
};

// The two records and what is the same for all of their columns.
struct Pair {
  const rec_t *clust_rec;
  const dict_index_t *clust_index;
  const ulint *clust_offsets;
  const dict_index_t *sec_index;
  trx_t *trx;
  TABLE *mysql_table;
  mem_heap_t *heap;
};

bool same_value(const dict_col_t *col, Value a, Value b) {
  // Whether the index ascends does not matter for equality.
  return cmp_data_data(col->mtype, col->prtype, true, a.data, a.bytes, b.data,
                       b.bytes) == 0;
}

ulint prefix_bytes(const dict_field_t *field, ulint bytes, const byte *data) {
  const dict_col_t *col = field->col;
  return dtype_get_at_most_n_mbchars(col->prtype, col->mbminmaxlen,
                                     field->prefix_len, bytes,
                                     reinterpret_cast<const char *>(data));
}

// Compares an entry's value with a value that is stored off the page, or with
// the prefix of it that the index holds.
bool row_sel_sec_rec_is_for_blob(const Pair &pair, const dict_field_t *field,
                                 Value clust, Value sec) {
  byte buf[REC_VERSION_56_MAX_INDEX_COL_LEN];
  const ulint clust_len = clust.bytes;
  // The buffer has room for the longest value that an index can hold.
  const ulint wanted = field->prefix_len > 0 ? field->prefix_len : sizeof buf;
  ut_a(clust_len >= BTR_EXTERN_FIELD_REF_SIZE);
  ut_a(wanted <= sizeof buf);
  const byte *reference = clust.data + clust_len - BTR_EXTERN_FIELD_REF_SIZE;
  // The value is not written yet.
  if (memcmp(reference, field_ref_zero, BTR_EXTERN_FIELD_REF_SIZE) == 0) {
    return false;
  }
  const ulint fetched = lob::btr_copy_externally_stored_field_prefix(
      pair.trx, pair.clust_index, buf, wanted,
      dict_table_page_size(pair.clust_index->table), clust.data, false,
      clust_len);
  // The value is being freed.
  if (fetched == 0) return false;
  const ulint bytes =
      field->prefix_len > 0 ? prefix_bytes(field, fetched, buf) : fetched;
  return same_value(field->col, {buf, bytes}, sec);
}

bool same_mbr(const Pair &pair, Value clust, bool is_extern, Value sec) {
  const byte *data = clust.data;
  ulint bytes = clust.bytes;
  if (is_extern) {
    data = lob::btr_copy_externally_stored_field(
        pair.trx, pair.clust_index, &bytes, nullptr, data,
        dict_table_page_size(pair.clust_index->table), clust.bytes, false,
        pair.heap);
  }
  rtr_mbr_t clust_mbr;
  rtr_mbr_t sec_mbr;
  get_mbr_from_store(pair.sec_index->rtr_srs.get(), data,
                     static_cast<uint32_t>(bytes), SPDIMS,
                     reinterpret_cast<double *>(&clust_mbr), nullptr);
  rtr_read_mbr(sec.data, &sec_mbr);
  return host::mbr_is_equal(pair.sec_index, &sec_mbr, &clust_mbr);
}

// A virtual column's value is computed from the row.
dberr_t same_virtual(const Pair &pair, const dict_col_t *col, Value sec,
                     bool *same) {
  row_ext_t *ext = nullptr;
  mem_heap_t *local_heap = nullptr;
  const dtuple_t *row =
      row_build(ROW_COPY_POINTERS, pair.clust_index, pair.clust_rec,
                pair.clust_offsets, nullptr, nullptr, nullptr, &ext, pair.heap);
  const dfield_t *value = host::computed_value(
      row, reinterpret_cast<const dict_v_col_t *>(col), pair.clust_index,
      &local_heap, pair.heap, current_thd, pair.mysql_table);
  if (local_heap != nullptr) mem_heap_free(local_heap);
  if (value == nullptr) return DB_COMPUTE_VALUE_FAILED;
  const Value computed{static_cast<const byte *>(dfield_get_data(value)),
                       dfield_get_len(value)};
  *same = col->is_multi_value()
              ? is_multi_value_clust_and_sec_equal(
                    computed.data, computed.bytes, sec.data, sec.bytes, col)
              : same_value(col, computed, sec);
  return DB_SUCCESS;
}

bool same_stored(const Pair &pair, ulint i, Value sec) {
  const dict_field_t *field = pair.sec_index->get_field(i);
  const ulint position = dict_col_get_clust_pos(field->col, pair.clust_index);
  Value clust{};
  clust.data =
      rec_get_nth_field_instant(pair.clust_rec, pair.clust_offsets, position,
                                pair.clust_index, &clust.bytes);
  const bool is_extern =
      host::nth_extern(pair.clust_index, pair.clust_offsets, position);
  if (dict_index_is_spatial(pair.sec_index) && i == 0) {
    return same_mbr(pair, clust, is_extern, sec);
  }
  if (clust.bytes == UNIV_SQL_NULL || sec.bytes == UNIV_SQL_NULL) {
    return same_value(field->col, clust, sec);
  }
  if (field->prefix_len == 0) {
    return is_extern ? row_sel_sec_rec_is_for_blob(pair, field, clust, sec)
                     : same_value(field->col, clust, sec);
  }
  const ulint local =
      is_extern ? clust.bytes - BTR_EXTERN_FIELD_REF_SIZE : clust.bytes;
  const ulint cut = prefix_bytes(field, local, clust.data);
  // Some row formats keep no prefix of a large value on the row's page. The
  // part on the page is then empty and equals an empty entry, whatever the
  // value is, so it does not decide.
  const bool on_page_decides =
      cut >= sec.bytes &&
      !(dict_table_has_atomic_blobs(pair.clust_index->table) && sec.bytes == 0);
  if (is_extern && !on_page_decides) {
    return row_sel_sec_rec_is_for_blob(pair, field, clust, sec);
  }
  return same_value(field->col, {clust.data, cut}, sec);
}

}  // namespace

dberr_t row_sel_sec_rec_is_for_clust_rec(const rec_t *sec_rec,
                                         const dict_index_t *sec_index,
                                         const rec_t *clust_rec,
                                         const dict_index_t *clust_index,
                                         trx_t *trx, TABLE *mysql_table,
                                         bool &is_equal) {
  is_equal = false;
  if (rec_get_deleted_flag(clust_rec, dict_table_is_comp(clust_index->table))) {
    return DB_SUCCESS;
  }
  Scratch_heap heap(256);
  Record_offsets clust_offsets;
  Record_offsets sec_offsets;
  const Pair pair{clust_rec,
                  clust_index,
                  clust_offsets.of(clust_rec, clust_index, &heap.get()),
                  sec_index,
                  trx,
                  mysql_table,
                  heap.get()};
  const ulint *offsets = sec_offsets.of(sec_rec, sec_index, &heap.get());
  const ulint n_fields = dict_index_get_n_ordering_defined_by_user(sec_index);
  for (ulint i = 0; i < n_fields; ++i) {
    Value sec{};
    sec.data = host::nth_field(sec_index, sec_rec, offsets, i, &sec.bytes);
    const dict_col_t *col = sec_index->get_field(i)->col;
    bool same = false;
    if (col->is_virtual()) {
      const dberr_t err = same_virtual(pair, col, sec, &same);
      if (err != DB_SUCCESS) return err;
    } else {
      same = same_stored(pair, i, sec);
    }
    if (!same) return DB_SUCCESS;
  }
  is_equal = true;
  return DB_SUCCESS;
}
