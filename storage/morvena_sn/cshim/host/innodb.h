// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host/innodb.h
  Differences between the servers' InnoDB, behind one form each; host.h says how
  they are told apart.
*/

#ifndef MORVENA_SN_HOST_INNODB_H
#define MORVENA_SN_HOST_INNODB_H

#include "host/version.h"

#include "univ.i"

#include "btr0btr.h"
#include "btr0cur.h"
#include "btr0pcur.h"
#include "buf0buf.h"
#include "data0data.h"
#include "dict0dd.h"
#include "dict0dict.h"
#include "gis0rtree.h"
#include "ha_innodb.h"
#include "ha_prototypes.h"
#include "lob0lob.h"
#include "lob0undo.h"
#include "mem0mem.h"
#include "mtr0mtr.h"
#include "page0cur.h"
#include "page0page.h"
#include "read0read.h"
#include "rem0cmp.h"
#include "rem0rec.h"
#include "row0mysql.h"
#include "row0row.h"
#include "row0sel.h"
#include "srv0conc.h"
#include "sync0rw.h"
#include "sync0sync.h"
#include "trx0trx.h"
#include "ut0new.h"

#include "sql/gis/rtree_support.h"

namespace host {

/** Start a transaction that reads. Debug builds want to know where. */
inline void start_read_transaction(trx_t *trx) {
#ifdef UNIV_DEBUG
  trx->start_file = __FILE__;
  trx->start_line = __LINE__;
#endif
  trx_start_if_not_started_xa_low(trx, false);
}

/** The leaf pages of an index by the table's statistics. */
inline uint64_t n_leaf_pages(const dict_index_t *index) {
#if HOST_HAS_STATISTICS_STRUCTURE
  return index->stats.n_leaf_pages;
#else
  return index->stat_n_leaf_pages;
#endif
}

/** Give back the place of a thread in InnoDB, if the transaction has one. */
inline void leave_innodb(trx_t *trx) {
  if (trx->declared_to_be_inside_innodb) srv_conc_force_exit_innodb(trx);
}

/** Take a latch, shared. The pass value must be the same at lock and unlock;
   with 1 another thread may unlock. */
inline void s_lock(rw_lock_t *lock, ulint pass) {
#if HOST_LATCH_TAKES_LOCATION
  rw_lock_s_lock_gen(lock, pass, UT_LOCATION_HERE);
#else
  rw_lock_s_lock_gen(lock, pass);
#endif
}

inline void s_unlock(rw_lock_t *lock, [[maybe_unused]] ulint pass) {
  rw_lock_s_unlock_gen(lock, pass);
}

inline void x_lock(rw_lock_t *lock) {
#if HOST_LATCH_TAKES_LOCATION
  rw_lock_x_lock(lock, UT_LOCATION_HERE);
#else
  rw_lock_x_lock(lock);
#endif
}

inline mem_heap_t *new_heap(ulint bytes) {
#if HOST_HEAP_TAKES_LOCATION
  return mem_heap_create(bytes, UT_LOCATION_HERE);
#else
  return mem_heap_create(bytes);
#endif
}

inline ulint *rec_offsets(const rec_t *rec, const dict_index_t *index,
                          ulint *offsets, mem_heap_t **heap,
                          ulint n_fields = ULINT_UNDEFINED) {
#if HOST_OFFSETS_TAKE_LOCATION
  return rec_get_offsets(rec, index, offsets, n_fields, UT_LOCATION_HERE, heap);
#else
  return rec_get_offsets(rec, index, offsets, n_fields, heap);
#endif
}

inline ulint page_level(const page_t *page, [[maybe_unused]] mtr_t *mtr) {
#if HOST_PAGE_LEVEL_TAKES_MTR
  return btr_page_get_level(page, mtr);
#else
  return btr_page_get_level(page);
#endif
}

/** Fetch a page into the mini-transaction and latch it, shared. */
inline buf_block_t *page_get_s_latched(const page_id_t &page_id,
                                       const page_size_t &page_size,
                                       mtr_t *mtr) {
#if HOST_PAGE_FETCH_TAKES_LOCATION
  return buf_page_get_gen(page_id, page_size, RW_S_LATCH, nullptr,
                          Page_fetch::NORMAL, UT_LOCATION_HERE, mtr);
#else
  return buf_page_get_gen(page_id, page_size, RW_S_LATCH, nullptr,
                          Page_fetch::NORMAL, __FILE__, __LINE__, mtr);
#endif
}

/** How often columns were added or dropped by row versions. */
inline ulint n_row_versions([[maybe_unused]] const dict_table_t *table) {
#if HOST_HAS_ROW_VERSIONS
  return table->current_row_version;
#else
  return 0;
#endif
}

inline bool has_instant_columns(const dict_table_t *table) {
  return table->has_instant_cols() || host::n_row_versions(table) > 0;
}

/** The bit of a record's header that says that its row version follows; 0 where
    there is no such bit. */
constexpr byte record_has_version = HOST_HAS_ROW_VERSIONS ? 0x40 : 0;

/** The field that lies n-th in a clustered record that has all fields there
   ever were. */
inline const dict_field_t *physical_field(const dict_index_t *index, ulint n) {
#if HOST_HAS_ROW_VERSIONS
  return index->get_physical_field(n);
#else
  return index->get_field(n);
#endif
}

/** Whether records of a row version have a column. */
inline bool is_in_version([[maybe_unused]] const dict_col_t *col,
                          [[maybe_unused]] ulint version) {
#if HOST_HAS_ROW_VERSIONS
  const auto number = static_cast<uint8_t>(version);
  return !col->is_added_after(number) && !col->is_dropped_in_or_before(number);
#else
  return true;
#endif
}

inline void convert_key(dtuple_t *tuple, byte *buffer, ulint buffer_bytes,
                        dict_index_t *index, const byte *key, ulint key_bytes,
                        [[maybe_unused]] trx_t *trx) {
#if HOST_KEY_CONVERSION_TAKES_TRX
  row_sel_convert_mysql_key_to_innobase(tuple, buffer, buffer_bytes, index, key,
                                        key_bytes, trx);
#else
  row_sel_convert_mysql_key_to_innobase(tuple, buffer, buffer_bytes, index, key,
                                        key_bytes);
#endif
}

inline void build_row_ref(dtuple_t *ref, const rec_t *rec,
                          const dict_index_t *index, ulint *offsets,
                          [[maybe_unused]] trx_t *trx) {
#if HOST_ROW_REFERENCE_TAKES_TRX
  row_build_row_ref_in_tuple(ref, rec, index, offsets, trx);
#else
  row_build_row_ref_in_tuple(ref, rec, index, offsets);
#endif
}

inline const byte *nth_field([[maybe_unused]] const dict_index_t *index,
                             const rec_t *rec, const ulint *offsets, ulint n,
                             ulint *bytes) {
#if HOST_RECORD_FIELDS_TAKE_INDEX
  return rec + rec_get_nth_field_offs(index, offsets, n, bytes);
#else
  return rec + rec_get_nth_field_offs(offsets, n, bytes);
#endif
}

/** Whether the rest of a record's field lies outside it. */
inline bool nth_extern([[maybe_unused]] const dict_index_t *index,
                       const ulint *offsets, ulint n) {
#if HOST_RECORD_FIELDS_TAKE_INDEX
  return rec_offs_nth_extern(index, offsets, n) != 0;
#else
  return rec_offs_nth_extern(offsets, n) != 0;
#endif
}

inline dfield_t *computed_value(const dtuple_t *row, const dict_v_col_t *col,
                                const dict_index_t *index,
                                mem_heap_t **local_heap, mem_heap_t *heap,
                                THD *thd, TABLE *table) {
#if HOST_COMPUTES_FOR_TABLE
  return innobase_get_computed_value(row, col, index->table, local_heap, heap,
                                     thd, table, nullptr, nullptr, nullptr);
#else
  return innobase_get_computed_value(row, col, index, local_heap, heap, nullptr,
                                     thd, table, nullptr, nullptr, nullptr);
#endif
}

inline bool mbr_is_equal([[maybe_unused]] const dict_index_t *index,
                         rtr_mbr_t *a, rtr_mbr_t *b) {
#if HOST_HAS_MBR_EQUAL_PHYSICALLY
  return mbr_equal_physically(a, b);
#else
  return mbr_equal_cmp(index->rtr_srs.get(), a, b);
#endif
}

}  // namespace host

#endif  // MORVENA_SN_HOST_INNODB_H
