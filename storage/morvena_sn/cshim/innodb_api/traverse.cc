// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// traverse: the records of one unit, page by page.
// In: a unit. Out: its visible rows, to the worker's batch.
// Holds: one leaf page, shared, the next one latched before it is let go; for
// one row, what its look-up latches. The only owner of latches between rows.
// Threads: any worker. Fails: the batch's failure, a kill; stops quietly when
// another worker failed.

#include <sched.h>

#include <algorithm>

#include "common/counters.h"
#include "innodb_api.h"
#include "innodb_api/scope.h"

#include "lock0lock.h"

namespace {

// The position's page as it was when it was stored, if nothing has changed it.
bool restore_as_stored(btr_pcur_t *pcur, mtr_t *mtr) {
  const uint64_t modify_clock = pcur->m_modify_clock;
  return pcur->m_block_when_stored.run_with_hint([&](buf_block_t *block) {
    return block != nullptr &&
           buf_page_optimistic_get(RW_S_LATCH, block, modify_clock,
                                   Page_fetch::NORMAL, __FILE__, __LINE__, mtr);
  });
}

bool has_multi_value_field(const dtuple_t *tuple) {
  for (ulint i = 0; i < dtuple_get_n_fields(tuple); ++i) {
    if (dfield_is_multi_value(dtuple_get_nth_field(tuple, i))) return true;
  }
  return false;
}

// A secondary record of the page in hand, and the key of its clustered record.
using Pending_pair = std::pair<const rec_t *, dtuple_t *>;

// The process's counters are told of so many pages at a time.
constexpr size_t pages_between_counts = 64;

// Records lie on a page in the order in which they came. Where that is not the
// key's, the processor cannot tell which lines come next.
void prefetch_page(const buf_block_t *block) {
  constexpr ulint line = 64;
  const page_t *page = buf_block_get_frame(block);
  const ulint top = page_header_get_field(page, PAGE_HEAP_TOP);
  for (ulint at = 0; at < top; at += line) __builtin_prefetch(page + at);
}

}  // namespace

class Traversal {
 public:
  Traversal(ParallelIndexReader *reader, Ctx *ctx)
      : reader_(*reader),
        ctx_(ctx),
        index_(reader->index_),
        end_(*ctx->range_.second),
        heap_(srv_page_size / 4),
        n_rows_counted_(ctx->thread_ctx_->n_read_),
        located_(reader->columns_.size() + 1) {
    cursor_.index = index_;
    // Reads that judge without a view are left to the general way.
    const trx_t *trx = reader->trx_;
    const auto without_view = index_->is_clustered() ? TRX_ISO_READ_UNCOMMITTED
                                                     : TRX_ISO_READ_COMMITTED;
    if (reader->layout_.is_usable() && trx != nullptr &&
        trx->isolation_level > without_view) {
      view_ = trx->read_view;
    }
  }

  ~Traversal() { count(); }
  Traversal(const Traversal &) = delete;
  Traversal &operator=(const Traversal &) = delete;

  dberr_t run() {
    restore_start();
    dberr_t err = DB_SUCCESS;
    while (err == DB_SUCCESS) {
      err = page_cur_is_after_last(&cursor_) ? end_page() : handle_record();
    }
    return err == DB_END_OF_INDEX ? DB_SUCCESS : err;
  }

 private:
  void restore_start();
  bool pcur_restore_position(const Iter &position);
  dberr_t handle_record();
  bool is_visible_in_place(const rec_t *rec);
  dberr_t read_index_only(const rec_t *rec, ulint *offsets);
  dberr_t deliver(const rec_t *rec, ulint *offsets,
                  const Located_field *fields = nullptr);
  void start_page();
  bool is_past_end(const rec_t *rec, const ulint *offsets) const;
  void gather(const rec_t *rec, ulint *offsets);
  dberr_t look_up_pending();
  dberr_t end_page();
  bool is_stopped(dberr_t *err) const;
  void count();
  dberr_t pcur_move_to_next_node();
  bool pcur_move_to_next_block();
  dberr_t pcur_move_to_user_rec();

  mtr_t *scan_mtr() { return mtrs_[current_mtr_].get(); }
  buf_block_t *block() { return page_cur_get_block(&cursor_); }

  ParallelIndexReader &reader_;
  Ctx *ctx_;
  dict_index_t *index_;
  const Iter &end_;
  // One holds the page in hand; the other takes the next page. A single one
  // would grow with every page.
  Read_mtr mtrs_[2];
  size_t current_mtr_ = 0;
  Read_mtr row_mtr_;
  Scratch_heap heap_;
  Record_offsets offsets_;
  page_cur_t cursor_{};
  bool at_page_start_ = true;
  bool check_end_ = true;  // whether the unit may end on the page in hand
  std::vector<Pending_pair> pairs_;
  size_t n_pages_ = 0;         // ended, since they were last counted
  size_t n_rows_counted_;      // of the worker's
  ReadView *view_ = nullptr;   // if records may be read by the layout
  bool page_visible_ = false;  // of a secondary index: all of the page in hand
  std::vector<Located_field> located_;
};

// The cursor comes to stand on the stored record if it is still there, else on
// the first one after it, in which case that one has not been handled.
// @return whether it is the stored record
bool Traversal::pcur_restore_position(const Iter &position) {
  if (restore_as_stored(position.pcur_, scan_mtr())) {
    cursor_ = *position.pcur_->get_page_cur();
    cursor_.index = index_;
    return true;
  }
  // By the key, from the root, under the index latch that the read holds: the
  // host's own restore would ask for that latch once more.
  std::vector<ParallelIndexReader::Savepoint> path;
  cursor_ = reader_.start_of_range(index_->page, scan_mtr(), position.tuple_,
                                   true, path);
  path.pop_back();
  for (const auto &[savepoint, block] : path) {
    scan_mtr()->release_block_at_savepoint(savepoint, block);
  }
  if (page_cur_is_after_last(&cursor_)) return false;
  const rec_t *rec = page_cur_get_rec(&cursor_);
  return position.tuple_->compare(rec, index_,
                                  offsets_.of(rec, index_, &heap_.get())) == 0;
}

void Traversal::restore_start() {
  const Iter &start = *ctx_->range_.first;
  scan_mtr();
  pcur_restore_position(start);
}

// Whether the unit can end on a page is settled once, against its last record.
void Traversal::start_page() {
  at_page_start_ = false;
  if (view_ != nullptr && !index_->is_clustered()) {
    page_visible_ =
        lock_sec_rec_cons_read_sees(page_cur_get_rec(&cursor_), index_, view_);
  }
  check_end_ = end_.tuple_ != nullptr;
  if (!check_end_) return;
  page_cur_t last = cursor_;
  page_cur_set_after_last(block(), &last);
  page_cur_move_to_prev(&last);
  const rec_t *rec = page_cur_get_rec(&last);
  const ulint *offsets = offsets_.of(rec, index_, &heap_.get());
  check_end_ = is_past_end(rec, offsets);
}

bool Traversal::is_past_end(const rec_t *rec, const ulint *offsets) const {
  const int order = end_.tuple_->compare(rec, index_, offsets);
  return order < 0 || (order == 0 && !end_.include_);
}

dberr_t Traversal::handle_record() {
  if (at_page_start_) start_page();
  ctx_->first_rec_ = false;
  const rec_t *rec = page_cur_get_rec(&cursor_);
  dberr_t err = DB_SUCCESS;
  if (!check_end_ && view_ != nullptr && is_visible_in_place(rec)) {
    if (!rec_get_deleted_flag(rec, true)) {
      err = deliver(rec, nullptr, located_.data());
    }
    page_cur_move_to_next(&cursor_);
    return err;
  }
  ulint *offsets =
      offsets_.of(rec, index_, &heap_.get(), reader_.n_scanned_fields_);
  // Pairs gathered on the page in which a unit ends are dropped.
  if (check_end_ && is_past_end(rec, offsets)) return DB_END_OF_INDEX;
  if (reader_.indexonly_scan_) {
    err = read_index_only(rec, offsets);
  } else {
    gather(rec, offsets);
  }
  page_cur_move_to_next(&cursor_);
  return err;
}

// Whether a record is to be read as it stands; its fields are located then. Of
// a secondary index only the page tells who changed it last.
bool Traversal::is_visible_in_place(const rec_t *rec) {
  if (!index_->is_clustered()) {
    return page_visible_ && reader_.layout_.locate(rec, located_.data());
  }
  if (!reader_.layout_.locate(rec, located_.data())) return false;
  const trx_id_t id = mach_read_from_6(located_.back().data);
  return view_->changes_visible(id, index_->table->name);
}

dberr_t Traversal::read_index_only(const rec_t *rec, ulint *offsets) {
  const ulint *in_place = offsets;
  const bool visible = reader_.check_visibility(
      rec, offsets, heap_.get(), scan_mtr(), &row_mtr_, ctx_->thread_ctx_);
  // The entry is delivered, or a copy of a version: nobody has to wait for the
  // row's page while the callback runs.
  row_mtr_.commit();
  dberr_t err = visible ? deliver(rec, offsets) : DB_SUCCESS;
  const bool version_built = offsets != in_place || !visible;
  // Building a version may take thousands of steps back.
  if (err == DB_SUCCESS && version_built) is_stopped(&err);
  return err;
}

dberr_t Traversal::deliver(const rec_t *rec, ulint *offsets,
                           const Located_field *fields) {
  ctx_->rec_ = rec;
  ctx_->offsets_ = offsets;
  ctx_->fields_ = fields;
  ctx_->block_ = block();
  const dberr_t err = reader_.process_row(ctx_);
  if (err != DB_SUCCESS) reader_.set_error(err);
  return err;
}

void Traversal::gather(const rec_t *rec, ulint *offsets) {
  const dict_index_t *clustered = reader_.clustered_index();
  const ulint n_fields = dict_index_get_n_unique(clustered);
  dtuple_t *ref = dtuple_create(heap_.get(), n_fields);
  dict_index_copy_types(ref, clustered, n_fields);
  host::build_row_ref(ref, rec, index_, offsets, reader_.trx_);
  pairs_.emplace_back(rec, ref);
}

// A merge sort: it stays inside the range also under an order that is none.
dberr_t Traversal::look_up_pending() {
  if (pairs_.empty()) return DB_SUCCESS;
  if (!has_multi_value_field(pairs_.front().second)) {
    std::stable_sort(pairs_.begin(), pairs_.end(),
                     [this](const Pending_pair &a, const Pending_pair &b) {
                       return cmp_dtuple(index_, a.second, b.second) < 0;
                     });
  }
  dberr_t err = DB_SUCCESS;
  for (const auto &[sec_rec, ref] : pairs_) {
    const rec_t *rec = sec_rec;
    ulint *offsets = nullptr;
    const rec_t *found = reader_.lookup_cluster_rec(
        rec, ref, offsets, heap_.get(), &row_mtr_, ctx_->thread_ctx_);
    if (found != nullptr) err = deliver(found, offsets);
    row_mtr_.commit();
    if (err != DB_SUCCESS) break;
    if (is_stopped(&err)) break;
  }
  pairs_.clear();
  return err;
}

// @return whether the unit is to be left: with an error of its own when the
// session was killed, with the end's code when another worker failed.
bool Traversal::is_stopped(dberr_t *err) const {
  if (trx_is_interrupted(reader_.trx_)) {
    reader_.set_error(DB_INTERRUPTED);
    *err = DB_INTERRUPTED;
  } else if (reader_.get_error() != DB_SUCCESS) {
    *err = DB_END_OF_INDEX;
  }
  return *err != DB_SUCCESS;
}

void Traversal::count() {
  const size_t n_rows = ctx_->thread_ctx_->n_read_;
  counters::add(Tally::ROWS_READ,
                static_cast<int64_t>(n_rows - n_rows_counted_));
  counters::add(Tally::PAGES_READ, static_cast<int64_t>(n_pages_));
  n_rows_counted_ = n_rows;
  n_pages_ = 0;
}

dberr_t Traversal::end_page() {
  if (++n_pages_ == pages_between_counts) count();
  dberr_t err = look_up_pending();
  if (err != DB_SUCCESS) return err;
  offsets_.forget_heap();
  heap_.clear();
  reader_.tell_progress(ctx_->thread_ctx_, 1);
  if (is_stopped(&err)) return err;
  return pcur_move_to_next_node();
}

dberr_t Traversal::pcur_move_to_next_node() {
  at_page_start_ = true;
  if (reader_.latch_.has_waiters() && pcur_move_to_next_block()) {
    ++ctx_->n_pages_;
    return DB_SUCCESS;
  }
  const dberr_t err = pcur_move_to_user_rec();
  ++ctx_->n_pages_;
  return err;
}

// Let go of the page for whoever waits, of the index latch too for who wants it
// exclusively, and come back by the key of the last record handled. What the
// page has become does not matter: another page may have been merged into it,
// rows may have come in before and after.
// @return whether the cursor stands on a record that is still to be handled
bool Traversal::pcur_move_to_next_block() {
  page_cur_t last = cursor_;
  page_cur_move_to_prev(&last);
  if (page_cur_is_before_first(&last)) return false;
  const auto position = create_persistent_cursor(index_, last, scan_mtr());
  mtrs_[current_mtr_].commit();
  ParallelIndexReader::s_yield.load()();
  if (reader_.latch_.is_wanted()) reader_.latch_.park();
  // Stepping on from a record that has not been handled would lose it.
  if (pcur_restore_position(*position)) page_cur_move_to_next(&cursor_);
  return !page_cur_is_after_last(&cursor_);
}

// On to the next leaf, latched before this one is let go.
dberr_t Traversal::pcur_move_to_user_rec() {
  const page_no_t next =
      btr_page_get_next(buf_block_get_frame(block()), scan_mtr());
  if (next == FIL_NULL) return DB_END_OF_INDEX;
  Read_mtr &next_mtr = mtrs_[1 - current_mtr_];
  buf_block_t *next_block = host::page_get_s_latched(
      page_id_t(index_->space, next), reader_.page_size_, next_mtr.start());
  mtrs_[current_mtr_].commit();
  current_mtr_ = 1 - current_mtr_;
  prefetch_page(next_block);
  page_cur_set_before_first(next_block, &cursor_);
  page_cur_move_to_next(&cursor_);
  return DB_SUCCESS;
}

std::atomic<void (*)()> ParallelIndexReader::s_yield{[] { sched_yield(); }};

dberr_t ParallelIndexReader::traverse(Ctx *ctx) {
  const Index_latch::In_tree in_tree(&latch_);
  Traversal traversal(this, ctx);
  const dberr_t err = traversal.run();
  tell_progress(ctx->thread_ctx_, 0);
  return err;
}
