// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// leaves: one leaf page after another, in key order.
// In: a boundary to begin at. Out: records on a latched page. Holds: one leaf
// page, shared; it latches the next before it releases it. Threads: any worker.
// Fails: never.

#include "innodb_api/leaves.h"

#include <sched.h>

#include <vector>

#include "innodb_api/descent.h"

namespace {

// Latches the page of a stored position, if nothing has changed the page since.
// Returns whether that succeeded.
bool restore_as_stored(btr_pcur_t *pcur, mtr_t *mtr) {
  const uint64_t modify_clock = pcur->m_modify_clock;
  return pcur->m_block_when_stored.run_with_hint([&](buf_block_t *block) {
    return block != nullptr &&
           buf_page_optimistic_get(RW_S_LATCH, block, modify_clock,
                                   Page_fetch::NORMAL, __FILE__, __LINE__, mtr);
  });
}

// Records lie on a page in the order in which they were inserted. If that is
// not key order, the processor cannot predict which cache lines are read next,
// so fetch all of them.
void prefetch_page(const buf_block_t *block) {
  constexpr ulint line = 64;
  const page_t *page = buf_block_get_frame(block);
  const ulint top = page_header_get_field(page, PAGE_HEAP_TOP);
  for (ulint at = 0; at < top; at += line) __builtin_prefetch(page + at);
}

}  // namespace

std::atomic<void (*)()> Leaf_walk::s_yield{[] { sched_yield(); }};

Leaf_walk::Leaf_walk(const Index_tree &tree, Index_latch *latch)
    : tree_(tree), latch_(latch) {
  cursor_.index = tree.index;
}

bool Leaf_walk::come_to(const Iter &boundary) {
  if (restore_as_stored(boundary.pcur_, mtr())) {
    cursor_ = *boundary.pcur_->get_page_cur();
    cursor_.index = tree_.index;
    return true;
  }
  // Search by key from the root, under the index latch that the read holds.
  // InnoDB's own function for returning to a position would request that latch
  // again.
  std::vector<Savepoint> path;
  cursor_ = start_of_range(tree_, tree_.index->page, mtr(), boundary.tuple_,
                           true, &path);
  path.pop_back();
  release_pages(&path, mtr());
  if (is_after_last()) return false;
  Scratch_heap heap(srv_page_size / 16);
  Record_offsets offsets;
  return boundary.tuple_->compare(
             record(), tree_.index,
             offsets.of(record(), tree_.index, &heap.get())) == 0;
}

const rec_t *Leaf_walk::last_record() {
  page_cur_t last = cursor_;
  page_cur_set_after_last(block(), &last);
  page_cur_move_to_prev(&last);
  return page_cur_get_rec(&last);
}

dberr_t Leaf_walk::next_page() {
  if (latch_->has_waiters() && give_way()) return DB_SUCCESS;
  const page_no_t next = btr_page_get_next(buf_block_get_frame(block()), mtr());
  if (next == FIL_NULL) return DB_END_OF_INDEX;
  Read_mtr &next_mtr = mtrs_[1 - current_mtr_];
  buf_block_t *next_block = latch_page(tree_, next, next_mtr.start()).second;
  mtrs_[current_mtr_].commit();
  current_mtr_ = 1 - current_mtr_;
  prefetch_page(next_block);
  page_cur_set_before_first(next_block, &cursor_);
  page_cur_move_to_next(&cursor_);
  return DB_SUCCESS;
}

// Releases the page for a thread that waits. If that thread wants the index
// latch exclusively, also parks until it has had the latch.
// @return whether the cursor stands on a record that is still to be handled
bool Leaf_walk::give_way() {
  const std::shared_ptr<Iter> last_handled = leave();
  if (last_handled == nullptr) return false;
  s_yield.load()();
  if (latch_->is_wanted()) latch_->park();
  come_back(*last_handled);
  return !is_after_last();
}

std::shared_ptr<Iter> Leaf_walk::leave() {
  page_cur_t last = cursor_;
  page_cur_move_to_prev(&last);
  if (page_cur_is_before_first(&last)) return nullptr;
  auto position = create_persistent_cursor(tree_.index, last, mtr());
  mtrs_[current_mtr_].commit();
  return position;
}

// The page may have been merged with another one, and rows may have been
// inserted before and after the position. The key finds the place in any case.
void Leaf_walk::come_back(const Iter &last_handled) {
  // If the record is gone, the cursor stands on one that is not handled yet.
  if (come_to(last_handled)) step();
}
