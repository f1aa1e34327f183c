/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file host/innodb.h
  Differences between the hosts' InnoDB, behind one form each.
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

// Debug builds want to know where a transaction was started; 8.0.27 has a macro
// for that, later ones a function.
inline void start_read_transaction(trx_t *trx) {
#ifdef UNIV_DEBUG
  trx->start_file = __FILE__;
  trx->start_line = __LINE__;
#endif
  trx_start_if_not_started_xa_low(trx, false);
}

// The leaf pages of an index by the table's statistics. 9.7 keeps them in a
// structure of their own.
template <class Index>
auto n_leaf_pages(const Index *index, int)
    -> decltype(index->stat_n_leaf_pages) {
  return index->stat_n_leaf_pages;
}
template <class Index>
auto n_leaf_pages(const Index *index, long)
    -> decltype(index->stats.n_leaf_pages) {
  return index->stats.n_leaf_pages;
}
inline uint64_t n_leaf_pages(const dict_index_t *index) {
  return n_leaf_pages(index, 0);
}

// Gives back the place of a thread in InnoDB, if the transaction has one.
inline void leave_innodb(trx_t *trx) {
  if (trx->declared_to_be_inside_innodb) srv_conc_force_exit_innodb(trx);
}

// 8.0.27: a macro that records file and line. The pass value must be the same
// at lock and unlock; with 1 another thread may unlock.
inline void s_lock(rw_lock_t *lock, ulint pass) {
#if HOST_TAKES_LOCATION
  rw_lock_s_lock_gen(lock, pass, UT_LOCATION_HERE);
#else
  rw_lock_s_lock_gen(lock, pass);
#endif
}

inline void s_unlock(rw_lock_t *lock, [[maybe_unused]] ulint pass) {
  rw_lock_s_unlock_gen(lock, pass);
}

// 8.0.27: size only.
inline mem_heap_t *new_heap(ulint bytes) {
#if HOST_TAKES_LOCATION
  return mem_heap_create(bytes, UT_LOCATION_HERE);
#else
  return mem_heap_create(bytes);
#endif
}

// 8.0.27: a macro without a location.
inline ulint *rec_offsets(const rec_t *rec, const dict_index_t *index,
                          ulint *offsets, mem_heap_t **heap,
                          ulint n_fields = ULINT_UNDEFINED) {
#if HOST_TAKES_LOCATION
  return rec_get_offsets(rec, index, offsets, n_fields, UT_LOCATION_HERE, heap);
#else
  return rec_get_offsets(rec, index, offsets, n_fields, heap);
#endif
}

// 8.0.27: no row versions.
inline bool has_instant_columns(const dict_table_t *table) {
#if HOST_TAKES_LOCATION
  return table->has_instant_cols() || table->has_row_versions();
#else
  return table->has_instant_cols();
#endif
}

// 8.0.27: file and line.
inline buf_block_t *page_get_s_latched(const page_id_t &page_id,
                                       const page_size_t &page_size,
                                       mtr_t *mtr) {
#if HOST_TAKES_LOCATION
  return buf_page_get_gen(page_id, page_size, RW_S_LATCH, nullptr,
                          Page_fetch::NORMAL, UT_LOCATION_HERE, mtr);
#else
  return buf_page_get_gen(page_id, page_size, RW_S_LATCH, nullptr,
                          Page_fetch::NORMAL, __FILE__, __LINE__, mtr);
#endif
}

// 8.0.27: a macro that takes the mini-transaction too.
inline ulint page_level(const page_t *page, [[maybe_unused]] mtr_t *mtr) {
#if HOST_TAKES_LOCATION
  return btr_page_get_level(page);
#else
  return btr_page_get_level(page, mtr);
#endif
}

// 8.0.27: takes the transaction.
inline void convert_key(dtuple_t *tuple, byte *buffer, ulint buffer_bytes,
                        dict_index_t *index, const byte *key, ulint key_bytes,
                        [[maybe_unused]] trx_t *trx) {
#if HOST_TAKES_LOCATION
  row_sel_convert_mysql_key_to_innobase(tuple, buffer, buffer_bytes, index, key,
                                        key_bytes);
#else
  row_sel_convert_mysql_key_to_innobase(tuple, buffer, buffer_bytes, index, key,
                                        key_bytes, trx);
#endif
}

// 8.0.27: takes the transaction.
inline void build_row_ref(dtuple_t *ref, const rec_t *rec,
                          const dict_index_t *index, ulint *offsets,
                          [[maybe_unused]] trx_t *trx) {
#if HOST_TAKES_LOCATION
  row_build_row_ref_in_tuple(ref, rec, index, offsets);
#else
  row_build_row_ref_in_tuple(ref, rec, index, offsets, trx);
#endif
}

// 8.0.27: without the index.
inline const byte *nth_field([[maybe_unused]] const dict_index_t *index,
                             const rec_t *rec, const ulint *offsets, ulint n,
                             ulint *bytes) {
#if HOST_TAKES_LOCATION
  return rec_get_nth_field(index, rec, offsets, n, bytes);
#else
  return rec_get_nth_field(rec, offsets, n, bytes);
#endif
}

// 8.0.27: without the index.
inline bool nth_extern([[maybe_unused]] const dict_index_t *index,
                       const ulint *offsets, ulint n) {
#if HOST_TAKES_LOCATION
  return rec_offs_nth_extern(index, offsets, n);
#else
  return rec_offs_nth_extern(offsets, n) != 0;
#endif
}

// Before 8.0.43: takes the index, and the field to ignore before the session.
inline dfield_t *computed_value(const dtuple_t *row, const dict_v_col_t *col,
                                const dict_index_t *index,
                                mem_heap_t **local_heap, mem_heap_t *heap,
                                THD *thd, TABLE *table) {
#if HOST_COMPUTES_FOR_TABLE
  return innobase_get_computed_value(row, col, index->table, local_heap, heap,
                                     thd, table);
#else
  return innobase_get_computed_value(row, col, index, local_heap, heap, nullptr,
                                     thd, table, nullptr, nullptr, nullptr);
#endif
}

// Before 8.0.41: under another name, with the reference system.
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
