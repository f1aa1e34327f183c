// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// traverse: the records of one unit, page by page.
// In: a unit's range. Out: its visible rows, to the sink. Holds: what leaves
// holds; for one row, what its look-up latches. Threads: any worker. Fails: the
// sink's and visibility's failures, a kill, another worker's failure.

#include "innodb_api/traverse.h"

#include <algorithm>

#include "innodb_api/callback.h"

#include "lock0lock.h"

namespace {

bool has_multi_value_field(const dtuple_t *tuple) {
  for (ulint i = 0; i < dtuple_get_n_fields(tuple); ++i) {
    if (dfield_is_multi_value(dtuple_get_nth_field(tuple, i))) return true;
  }
  return false;
}

}  // namespace

// Without a view the record layout is not used: view_ is null.
template <class Sink>
Traversal<Sink>::Traversal(const Read_plan &plan, const Read_stop &stop,
                           Index_latch *latch, const Range &range, Sink *sink)
    : plan_(plan),
      stop_(stop),
      index_(plan.tree.index),
      range_(range),
      end_(*range_.second),
      sink_(sink),
      leaves_(plan.tree, latch),
      visibility_(plan),
      heap_(srv_page_size / 4),
      view_(plan.layout.is_usable() ? plan.judgement.of_entries : nullptr),
      located_(plan.columns.size() + 1) {}

template <class Sink>
dberr_t Traversal<Sink>::traverse() {
  leaves_.come_to(*range_.first);
  dberr_t err = DB_SUCCESS;
  while (err == DB_SUCCESS) {
    err = read_page();
    if (err == DB_SUCCESS) err = end_page();
    if (err == DB_SUCCESS) err = leaves_.next_page();
  }
  return err == DB_END_OF_INDEX ? DB_SUCCESS : err;
}

template <class Sink>
dberr_t Traversal<Sink>::read_page() {
  if (leaves_.is_after_last()) return DB_SUCCESS;
  start_page();
  dberr_t err = DB_SUCCESS;
  do {
    err = handle_record();
    leaves_.step();
  } while (err == DB_SUCCESS && !leaves_.is_after_last());
  return err;
}

// Compares the page's last record with the unit's end. If that record lies
// before the end, the others do too and need no comparison.
template <class Sink>
void Traversal<Sink>::start_page() {
  if (view_ != nullptr && !index_->is_clustered()) {
    page_visible_ =
        lock_sec_rec_cons_read_sees(leaves_.record(), index_, view_);
  }
  check_end_ = end_.tuple_ != nullptr;
  if (!check_end_) return;
  const rec_t *rec = leaves_.last_record();
  const ulint *offsets = offsets_.of(rec, index_, &heap_.get());
  check_end_ = is_past_end(end_, rec, index_, offsets);
}

// Returns DB_END_OF_INDEX at the unit's end. The pairs gathered on that page
// are then dropped.
template <class Sink>
dberr_t Traversal<Sink>::handle_record() {
  const rec_t *rec = leaves_.record();
  if (!check_end_ && view_ != nullptr && is_visible_in_place(rec)) {
    if (rec_get_deleted_flag(rec, true)) return DB_SUCCESS;
    return sink_->process_row({rec, nullptr, located_.data(), nullptr});
  }
  ulint *offsets =
      offsets_.of(rec, index_, &heap_.get(), plan_.n_scanned_fields);
  if (check_end_ && is_past_end(end_, rec, index_, offsets)) {
    return DB_END_OF_INDEX;
  }
  if (plan_.indexonly_scan) return read_index_only(rec, offsets);
  pairs_.emplace_back(rec, build_row_ref(plan_, rec, offsets, heap_.get()));
  return DB_SUCCESS;
}

// Whether the view sees a record as it stands. If so, its fields have been
// located. A secondary record does not tell which transaction changed it last;
// only its page does.
template <class Sink>
bool Traversal<Sink>::is_visible_in_place(const rec_t *rec) {
  if (!index_->is_clustered()) {
    return page_visible_ && plan_.layout.locate(rec, located_.data());
  }
  if (!plan_.layout.locate(rec, located_.data())) return false;
  const trx_id_t id = mach_read_from_6(located_.back().data);
  return view_->changes_visible(id, index_->table->name);
}

template <class Sink>
dberr_t Traversal<Sink>::read_index_only(const rec_t *rec, ulint *offsets) {
  Row_version version{rec, offsets, nullptr, nullptr};
  dberr_t err = visibility_.check_visibility(&version, heap_.get(),
                                             leaves_.mtr(), &row_mtr_);
  // The sink gets the entry or a copy of a version, never a record on the page
  // of the clustered record. Release that page, so that nobody waits for it
  // while the sink has the row.
  row_mtr_.commit();
  if (err != DB_SUCCESS) return err;
  if (version.rec != nullptr) err = sink_->process_row(version);
  const bool version_built = version.offsets != offsets || !version.rec;
  // Building a version may have read thousands of undo records.
  if (err == DB_SUCCESS && version_built) err = stop_.reason_to_stop();
  return err;
}

// std::stable_sort stays inside the vector even if the comparison is no strict
// weak order, as that of cmp_dtuple may be. std::sort may leave it.
template <class Sink>
dberr_t Traversal<Sink>::look_up_pending() {
  if (pairs_.empty()) return DB_SUCCESS;
  if (!has_multi_value_field(pairs_.front().second)) {
    std::stable_sort(pairs_.begin(), pairs_.end(),
                     [this](const Pending_pair &a, const Pending_pair &b) {
                       return cmp_dtuple(index_, a.second, b.second) < 0;
                     });
  }
  dberr_t err = DB_SUCCESS;
  for (const auto &[sec_rec, ref] : pairs_) {
    Row_version version{};
    err = visibility_.lookup_cluster_rec(sec_rec, ref, &version, heap_.get(),
                                         &row_mtr_);
    if (err == DB_SUCCESS && version.rec != nullptr) {
      err = sink_->process_row(version);
    }
    row_mtr_.commit();
    if (err == DB_SUCCESS) err = stop_.reason_to_stop();
    if (err != DB_SUCCESS) break;
  }
  pairs_.clear();
  return err;
}

template <class Sink>
dberr_t Traversal<Sink>::end_page() {
  const dberr_t err = look_up_pending();
  if (err != DB_SUCCESS) return err;
  offsets_.forget_heap();
  heap_.clear();
  sink_->end_page();
  return stop_.reason_to_stop();
}

// The only sink of the plug-in.
template class Traversal<Batch_sender>;
