// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// visibility: which version of this record may the read see?
// In: a record on a latched page. Out: a version in the heap, or none. Holds:
// the clustered leaf of one look-up, in the row's mini-transaction. Threads:
// any worker; the view is read only. Fails: history that purge has taken, a
// virtual value that cannot be computed.

#include "innodb_api/visibility.h"

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
    // No other session uses an intrinsic table, so it needs no latch.
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

  // Null if the row is gone.
  const rec_t *record() const {
    const rec_t *rec = btr_cur_get_rec(&cursor_);
    if (!page_rec_is_user_rec(rec)) return nullptr;
    return cursor_.low_match < dict_index_get_n_unique(index_) ? nullptr : rec;
  }

 private:
  dict_index_t *index_;
  btr_cur_t cursor_{};
};

}  // namespace

dtuple_t *build_row_ref(const Read_plan &plan, const rec_t *sec_rec,
                        ulint *sec_offsets, mem_heap_t *heap) {
  const dict_index_t *clustered = plan.clustered_index();
  const ulint n_fields = dict_index_get_n_unique(clustered);
  dtuple_t *ref = dtuple_create(heap, n_fields);
  dict_index_copy_types(ref, clustered, n_fields);
  host::build_row_ref(ref, sec_rec, plan.tree.index, sec_offsets, plan.trx);
  return ref;
}

// Replaces a clustered record in *version by the version of it that the view
// sees. rec becomes null if there is none, or if it cannot be built. mtr holds
// the record's page.
dberr_t Visibility::find_version(dict_index_t *index, ReadView *view,
                                 Row_version *version, mem_heap_t **heap,
                                 mtr_t *mtr) {
  lob_undo_.reset();
  version->lob_undo = &lob_undo_;
  const rec_t *rec = version->rec;
  const trx_id_t id = row_get_rec_trx_id(rec, index, version->offsets);
  if (view->changes_visible(id, index->table->name)) return DB_SUCCESS;
  version->offsets = host::rec_offsets(rec, index, nullptr, heap);
  rec_t *built = nullptr;
  const dberr_t err = row_vers_build_for_consistent_read(
      rec, mtr, index, &version->offsets, view, heap, *heap, &built, nullptr,
      &lob_undo_);
  version->rec = err == DB_SUCCESS ? built : nullptr;
  return err;
}

dberr_t Visibility::check_visibility(Row_version *version, mem_heap_t *&heap,
                                     mtr_t *mtr, Read_mtr *row_mtr) {
  dict_index_t *index = plan_.tree.index;
  ReadView *view = plan_.judgement.of_entries;
  version->lob_undo = &lob_undo_;
  if (view != nullptr && index->is_clustered()) {
    const dberr_t err = find_version(index, view, version, &heap, mtr);
    if (err != DB_SUCCESS || version->rec == nullptr) return err;
  } else if (view != nullptr &&
             !lock_sec_rec_cons_read_sees(version->rec, index, view)) {
    // The view may not see the transaction that changed the page last, so the
    // clustered record decides.
    const dtuple_t *ref =
        build_row_ref(plan_, version->rec, version->offsets, heap);
    Row_version row{};
    const dberr_t err =
        lookup_cluster_rec(version->rec, ref, &row, heap, row_mtr);
    if (row.rec == nullptr) version->rec = nullptr;
    return err;
  }
  if (rec_get_deleted_flag(version->rec, plan_.is_compact)) {
    version->rec = nullptr;
  }
  return DB_SUCCESS;
}

// A clustered record that is visible as it stands is delivered even if it is
// delete-marked itself, provided that the entry is not.
dberr_t Visibility::lookup_cluster_rec(const rec_t *sec_rec,
                                       const dtuple_t *ref,
                                       Row_version *version, mem_heap_t *&heap,
                                       Read_mtr *row_mtr) {
  dict_index_t *clustered = plan_.clustered_index();
  mtr_t *mtr = row_mtr->get();
  const Clustered_search search(clustered, ref, mtr);
  const rec_t *found = search.record();
  *version = {found, nullptr, nullptr, &lob_undo_};
  if (found == nullptr) return DB_SUCCESS;
  version->offsets = host::rec_offsets(found, clustered, nullptr, &heap,
                                       plan_.n_fetched_fields);
  if (ReadView *view = plan_.judgement.of_rows; view != nullptr) {
    const dberr_t err = find_version(clustered, view, version, &heap, mtr);
    if (err != DB_SUCCESS || version->rec == nullptr) return err;
  }
  if (version->rec == found &&
      !rec_get_deleted_flag(sec_rec, plan_.is_compact)) {
    return DB_SUCCESS;
  }
  // The version is delivered only if the entry belongs to it.
  bool is_equal = false;
  const dberr_t err = row_sel_sec_rec_is_for_clust_rec(
      sec_rec, plan_.tree.index, version->rec, clustered, plan_.trx,
      plan_.mysql_table, is_equal);
  if (!is_equal) version->rec = nullptr;
  return err;
}
