// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host/innodb.h
  Differences between the hosts' InnoDB, behind one form each; host.h says how
  they are told apart.
*/

#ifndef MORVENA_SN_HOST_INNODB_H
#define MORVENA_SN_HOST_INNODB_H

#include <type_traits>
#include <utility>

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
#ifdef rw_lock_s_lock_gen
  rw_lock_s_lock_gen(lock, pass);
#else
  rw_lock_s_lock_gen(lock, pass, UT_LOCATION_HERE);
#endif
}

inline void s_unlock(rw_lock_t *lock, [[maybe_unused]] ulint pass) {
  rw_lock_s_unlock_gen(lock, pass);
}

// 8.0.27: as above.
inline void x_lock(rw_lock_t *lock) {
#ifdef rw_lock_x_lock
  rw_lock_x_lock(lock);
#else
  rw_lock_x_lock(lock, UT_LOCATION_HERE);
#endif
}

// 8.0.27: a macro that takes the size only.
inline mem_heap_t *new_heap(ulint bytes) {
#ifdef mem_heap_create
  return mem_heap_create(bytes);
#else
  return mem_heap_create(bytes, UT_LOCATION_HERE);
#endif
}

// 8.0.27: a macro without a location.
inline ulint *rec_offsets(const rec_t *rec, const dict_index_t *index,
                          ulint *offsets, mem_heap_t **heap,
                          ulint n_fields = ULINT_UNDEFINED) {
#ifdef rec_get_offsets
  return rec_get_offsets(rec, index, offsets, n_fields, heap);
#else
  return rec_get_offsets(rec, index, offsets, n_fields, UT_LOCATION_HERE, heap);
#endif
}

// 8.0.27: a macro that takes the mini-transaction too.
inline ulint page_level(const page_t *page, [[maybe_unused]] mtr_t *mtr) {
#ifdef btr_page_get_level
  return btr_page_get_level(page, mtr);
#else
  return btr_page_get_level(page);
#endif
}

// 8.0.27: file and line.
inline buf_block_t *page_get_s_latched(
    buf_block_t *(*get)(const page_id_t &, const page_size_t &, ulint,
                        buf_block_t *, Page_fetch, const char *, ulint, mtr_t *,
                        bool),
    const page_id_t &page_id, const page_size_t &page_size, mtr_t *mtr) {
  return get(page_id, page_size, RW_S_LATCH, nullptr, Page_fetch::NORMAL,
             __FILE__, __LINE__, mtr, false);
}
inline buf_block_t *page_get_s_latched(
    buf_block_t *(*get)(const page_id_t &, const page_size_t &, ulint,
                        buf_block_t *, Page_fetch, ut::Location, mtr_t *, bool),
    const page_id_t &page_id, const page_size_t &page_size, mtr_t *mtr) {
  return get(page_id, page_size, RW_S_LATCH, nullptr, Page_fetch::NORMAL,
             UT_LOCATION_HERE, mtr, false);
}
inline buf_block_t *page_get_s_latched(const page_id_t &page_id,
                                       const page_size_t &page_size,
                                       mtr_t *mtr) {
  return page_get_s_latched(buf_page_get_gen, page_id, page_size, mtr);
}

// How often columns were added or dropped by row versions. 8.0.27: there are
// none.
inline ulint n_row_versions(...) { return 0; }
template <class Table>
auto n_row_versions(const Table *table)
    -> decltype(ulint{table->current_row_version}) {
  return table->current_row_version;
}

inline bool has_instant_columns(const dict_table_t *table) {
  return table->has_instant_cols() || host::n_row_versions(table) > 0;
}

// The bit of a record's header that says that its row version follows. 8.0.27:
// no bit.
template <class Table, class = void>
constexpr byte record_has_version_of = 0;
template <class Table>
constexpr byte record_has_version_of<
    Table, std::void_t<decltype(std::declval<Table>().current_row_version)>> =
    0x40;
constexpr byte record_has_version = record_has_version_of<dict_table_t>;

// The field that lies n-th in a clustered record that has all fields there ever
// were. 8.0.27: the index's order.
template <class Index>
auto physical_field(const Index *index, ulint n, int)
    -> decltype(index->get_physical_field(n)) {
  return index->get_physical_field(n);
}
template <class Index>
const dict_field_t *physical_field(const Index *index, ulint n, long) {
  return index->get_field(n);
}
inline const dict_field_t *physical_field(const dict_index_t *index, ulint n) {
  return physical_field(index, n, 0);
}

// Whether records of a row version have a column. 8.0.27: all have.
template <class Column>
auto is_in_version(const Column *col, ulint version, int)
    -> decltype(col->is_added_after(uint8_t{})) {
  const auto number = static_cast<uint8_t>(version);
  return !col->is_added_after(number) && !col->is_dropped_in_or_before(number);
}
template <class Column>
bool is_in_version(const Column *, ulint, long) {
  return true;
}
inline bool is_in_version(const dict_col_t *col, ulint version) {
  return is_in_version(col, version, 0);
}

// 8.0.27: takes the transaction.
inline void convert_key(void (*convert)(dtuple_t *, byte *, ulint,
                                        dict_index_t *, const byte *, ulint,
                                        trx_t *),
                        dtuple_t *tuple, byte *buffer, ulint buffer_bytes,
                        dict_index_t *index, const byte *key, ulint key_bytes,
                        trx_t *trx) {
  convert(tuple, buffer, buffer_bytes, index, key, key_bytes, trx);
}
inline void convert_key(void (*convert)(dtuple_t *, byte *, ulint,
                                        dict_index_t *, const byte *, ulint),
                        dtuple_t *tuple, byte *buffer, ulint buffer_bytes,
                        dict_index_t *index, const byte *key, ulint key_bytes,
                        trx_t *) {
  convert(tuple, buffer, buffer_bytes, index, key, key_bytes);
}
inline void convert_key(dtuple_t *tuple, byte *buffer, ulint buffer_bytes,
                        dict_index_t *index, const byte *key, ulint key_bytes,
                        trx_t *trx) {
  convert_key(row_sel_convert_mysql_key_to_innobase, tuple, buffer,
              buffer_bytes, index, key, key_bytes, trx);
}

// 8.0.27: takes the transaction.
inline void build_row_ref(void (*build)(dtuple_t *, const rec_t *,
                                        const dict_index_t *, ulint *, trx_t *),
                          dtuple_t *ref, const rec_t *rec,
                          const dict_index_t *index, ulint *offsets,
                          trx_t *trx) {
  build(ref, rec, index, offsets, trx);
}
inline void build_row_ref(void (*build)(dtuple_t *, const rec_t *,
                                        const dict_index_t *, ulint *),
                          dtuple_t *ref, const rec_t *rec,
                          const dict_index_t *index, ulint *offsets, trx_t *) {
  build(ref, rec, index, offsets);
}
inline void build_row_ref(dtuple_t *ref, const rec_t *rec,
                          const dict_index_t *index, ulint *offsets,
                          trx_t *trx) {
  build_row_ref(row_build_row_ref_in_tuple, ref, rec, index, offsets, trx);
}

// 8.0.27: without the index.
inline ulint nth_field_offset(ulint (*offset)(const ulint *, ulint, ulint *),
                              const dict_index_t *, const ulint *offsets,
                              ulint n, ulint *bytes) {
  return offset(offsets, n, bytes);
}
inline ulint nth_field_offset(ulint (*offset)(const dict_index_t *,
                                              const ulint *, ulint, ulint *),
                              const dict_index_t *index, const ulint *offsets,
                              ulint n, ulint *bytes) {
  return offset(index, offsets, n, bytes);
}
inline const byte *nth_field(const dict_index_t *index, const rec_t *rec,
                             const ulint *offsets, ulint n, ulint *bytes) {
  return rec +
         nth_field_offset(rec_get_nth_field_offs, index, offsets, n, bytes);
}

// 8.0.27: without the index.
inline bool nth_extern(ulint (*is_extern)(const ulint *, ulint),
                       const dict_index_t *, const ulint *offsets, ulint n) {
  return is_extern(offsets, n) != 0;
}
inline bool nth_extern(ulint (*is_extern)(const dict_index_t *, const ulint *,
                                          ulint),
                       const dict_index_t *index, const ulint *offsets,
                       ulint n) {
  return is_extern(index, offsets, n) != 0;
}
inline bool nth_extern(const dict_index_t *index, const ulint *offsets,
                       ulint n) {
  return nth_extern(rec_offs_nth_extern, index, offsets, n);
}

// Before 8.0.43 and 8.4.6: takes the index, and the field to ignore before the
// session.
inline dfield_t *computed_value(
    dfield_t *(*compute)(const dtuple_t *, const dict_v_col_t *,
                         const dict_index_t *, mem_heap_t **, mem_heap_t *,
                         const dict_field_t *, THD *, TABLE *,
                         const dict_table_t *, upd_t *, dict_foreign_t *),
    const dtuple_t *row, const dict_v_col_t *col, const dict_index_t *index,
    mem_heap_t **local_heap, mem_heap_t *heap, THD *thd, TABLE *table) {
  return compute(row, col, index, local_heap, heap, nullptr, thd, table,
                 nullptr, nullptr, nullptr);
}
inline dfield_t *computed_value(
    dfield_t *(*compute)(const dtuple_t *, const dict_v_col_t *,
                         const dict_table_t *, mem_heap_t **, mem_heap_t *,
                         THD *, TABLE *, const dict_field_t *,
                         const dict_table_t *, upd_t *),
    const dtuple_t *row, const dict_v_col_t *col, const dict_index_t *index,
    mem_heap_t **local_heap, mem_heap_t *heap, THD *thd, TABLE *table) {
  return compute(row, col, index->table, local_heap, heap, thd, table, nullptr,
                 nullptr, nullptr);
}
inline dfield_t *computed_value(const dtuple_t *row, const dict_v_col_t *col,
                                const dict_index_t *index,
                                mem_heap_t **local_heap, mem_heap_t *heap,
                                THD *thd, TABLE *table) {
  return computed_value(innobase_get_computed_value, row, col, index,
                        local_heap, heap, thd, table);
}

// Before 8.0.41 and 8.4.4: under another name, with the reference system. A
// template of which the host lacks the function is left out.
template <class Mbr>
auto mbr_is_equal(const dict_index_t *, Mbr *a, Mbr *b)
    -> decltype(mbr_equal_physically(a, b)) {
  return mbr_equal_physically(a, b);
}
template <class Mbr>
auto mbr_is_equal(const dict_index_t *index, Mbr *a, Mbr *b)
    -> decltype(mbr_equal_cmp(index->rtr_srs.get(), a, b)) {
  return mbr_equal_cmp(index->rtr_srs.get(), a, b);
}

}  // namespace host

#endif  // MORVENA_SN_HOST_INNODB_H
