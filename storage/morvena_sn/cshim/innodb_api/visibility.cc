// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// visibility: which version of this record may the read see?
// In: a record on a page that traverse has latched. Out: a version in the heap,
// or none. Holds: the clustered leaf of one look-up, in the row's mini-
// transaction. Threads: any worker; the snapshot is read-only. Fails: history
// that purge has taken, a virtual value that cannot be computed; the failure is
// the read's, at the worker's next check.

#include "innodb_api.h"
#include "innodb_api/scope.h"
#include "innodb_api/sec_match.h"

#include "gis0rtree.h"
#include "lock0lock.h"
#include "row0vers.h"

namespace {

// The position of a key in the clustered index, on one latched leaf.
class Clustered_search {
 public:
  Clustered_search(dict_index_t *index, const dtuple_t *ref, mtr_t *mtr)
      : index_(index) {
    cursor_.index = index;
    // Nobody else uses an intrinsic table.
    if (index->table->is_intrinsic()) {
      btr_cur_search_to_nth_level_with_no_latch(
          index, 0, ref, PAGE_CUR_LE, &cursor_, __FILE__, __LINE__, mtr, false);
    } else {
      btr_cur_search_to_nth_level(index, 0, ref, PAGE_CUR_LE, BTR_SEARCH_LEAF,
                                  &cursor_, 0, __FILE__, __LINE__, mtr);
    }
  }
  ~Clustered_search() {
    if (cursor_.rtr_info != nullptr) rtr_clean_rtr_info(cursor_.rtr_info, true);
  }
  Clustered_search(const Clustered_search &) = delete;
  Clustered_search &operator=(const Clustered_search &) = delete;

  // Null when the row is not there any more.
  const rec_t *record() const {
    const rec_t *rec = btr_cur_get_rec(&cursor_);
    if (!page_rec_is_user_rec(rec)) return nullptr;
    return cursor_.low_match < dict_index_get_n_unique(index_) ? nullptr : rec;
  }

 private:
  dict_index_t *index_;
  btr_cur_t cursor_{};
};

// *version is that of a clustered record that the view sees; null when there is
// none, or it cannot be built. The mini-transaction holds the record's page.
dberr_t visible_version(const rec_t *rec, dict_index_t *index, ReadView *view,
                        ulint **offsets, mem_heap_t **heap,
                        lob::undo_vers_t *lob_undo, mtr_t *mtr,
                        const rec_t **version) {
  lob_undo->reset();
  *version = rec;
  const trx_id_t id = row_get_rec_trx_id(rec, index, *offsets);
  if (view->changes_visible(id, index->table->name)) return DB_SUCCESS;
  *offsets = host::rec_offsets(rec, index, nullptr, heap);
  rec_t *built = nullptr;
  const dberr_t err = row_vers_build_for_consistent_read(
      rec, mtr, index, offsets, view, heap, *heap, &built, nullptr, lob_undo);
  *version = err == DB_SUCCESS ? built : nullptr;
  return err;
}

dtuple_t *build_ref(const rec_t *sec_rec, const dict_index_t *sec_index,
                    const dict_index_t *clustered, ulint *sec_offsets,
                    mem_heap_t *heap, trx_t *trx) {
  const ulint n_fields = dict_index_get_n_unique(clustered);
  dtuple_t *ref = dtuple_create(heap, n_fields);
  dict_index_copy_types(ref, clustered, n_fields);
  host::build_row_ref(ref, sec_rec, sec_index, sec_offsets, trx);
  return ref;
}

bool is_delete_marked(const rec_t *rec, bool compact) {
  return rec_get_deleted_flag(rec, compact) != 0;
}

}  // namespace

bool ParallelIndexReader::check_visibility(const rec_t *&rec, ulint *&offsets,
                                           mem_heap_t *&heap, mtr_t *mtr,
                                           Read_mtr *row_mtr, ThreadCtx *tctx) {
  ReadView *view = trx_ != nullptr ? trx_->read_view : nullptr;
  if (view != nullptr && index_->is_clustered()) {
    if (trx_->isolation_level > TRX_ISO_READ_UNCOMMITTED) {
      const dberr_t err = visible_version(rec, index_, view, &offsets, &heap,
                                          &tctx->lob_undo_, mtr, &rec);
      if (err != DB_SUCCESS) set_error(err);
      if (rec == nullptr) return false;
    }
  } else if (view != nullptr &&
             trx_->isolation_level > TRX_ISO_READ_COMMITTED &&
             !lock_sec_rec_cons_read_sees(rec, index_, view)) {
    // The page was changed by somebody whom the view may not see: the row
    // tells.
    dtuple_t *ref =
        build_ref(rec, index_, clustered_index(), offsets, heap, trx_);
    ulint *clustered_offsets = nullptr;
    return lookup_cluster_rec(rec, ref, clustered_offsets, heap, row_mtr,
                              tctx) != nullptr;
  }
  return !is_delete_marked(rec, table_is_compact_);
}

// A clustered version that is delete-marked itself is delivered all the same.
const rec_t *ParallelIndexReader::lookup_cluster_rec(
    const rec_t *&sec_rec, const dtuple_t *ref, ulint *&offsets,
    mem_heap_t *&heap, Read_mtr *row_mtr, ThreadCtx *tctx) {
  dict_index_t *clustered = clustered_index();
  mtr_t *mtr = row_mtr->get();
  const Clustered_search search(clustered, ref, mtr);
  const rec_t *found = search.record();
  const rec_t *version = found;
  ReadView *view = trx_ != nullptr ? trx_->read_view : nullptr;
  if (found != nullptr) {
    offsets =
        host::rec_offsets(found, clustered, nullptr, &heap, n_fetched_fields_);
    if (view != nullptr) {
      const dberr_t err =
          visible_version(found, clustered, view, &offsets, &heap,
                          &tctx->lob_undo_, mtr, &version);
      if (err != DB_SUCCESS) set_error(err);
    }
  }
  if (version == nullptr) return nullptr;
  if (version == found && !is_delete_marked(sec_rec, table_is_compact_)) {
    return version;
  }
  // The entry counts only if it still is that version's.
  bool is_equal = false;
  const dberr_t err = row_sel_sec_rec_is_for_clust_rec(
      sec_rec, index_, version, clustered, trx_, mysql_table_, is_equal);
  if (err != DB_SUCCESS) set_error(err);
  return err == DB_SUCCESS && is_equal ? version : nullptr;
}
