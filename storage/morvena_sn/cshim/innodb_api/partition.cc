// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// partition: the range, cut into sub-ranges without overlap and without gap.
// In: a range. Out: sub-ranges in key order, as units in the queue.
// Holds: pages of one path at a time and the page being sampled, in one
// mini-transaction. Threads: the driver's, and workers that split a unit.
// Fails: out of memory, a kill, a read that has ended meanwhile.

#include <new>

#include "innodb_api.h"
#include "innodb_api/scope.h"

namespace {

// Whether a record lies beyond a range's end.
bool is_beyond(const Iter &end, const rec_t *rec, const dict_index_t *index,
               const ulint *offsets) {
  if (end.tuple_ == nullptr) return false;
  const int order = end.tuple_->compare(rec, index, offsets);
  return order < 0 || (order == 0 && !end.include_);
}

page_cur_t cursor_on(const buf_block_t *block, dict_index_t *index) {
  page_cur_t cursor{};
  cursor.index = index;
  page_cur_set_before_first(block, &cursor);
  return cursor;
}

void release_pages(std::vector<ParallelIndexReader::Savepoint> &savepoints,
                   mtr_t *mtr) {
  for (const auto &[savepoint, block] : savepoints) {
    mtr->release_block_at_savepoint(savepoint, block);
  }
  savepoints.clear();
}

ParallelIndexReader::Savepoint latch_page(const dict_index_t *index,
                                          const page_size_t &page_size,
                                          page_no_t page_no, mtr_t *mtr) {
  const ulint savepoint = mtr->get_savepoint();
  const page_id_t page_id(index->space, page_no);
  buf_block_t *block = host::page_get_s_latched(page_id, page_size, mtr);
  return {savepoint, block};
}

page_no_t child_page_no(const rec_t *rec, const dict_index_t *index) {
  Scratch_heap heap(srv_page_size / 4);
  const ulint *offsets = host::rec_offsets(rec, index, nullptr, &heap.get());
  return btr_node_ptr_get_child_page_no(rec, offsets);
}

// The records of a page that lie in the range, from a position on.
uint32_t count_records(page_cur_t cursor, const Iter &end,
                       const dict_index_t *index, Record_offsets *offsets,
                       mem_heap_t **heap) {
  uint32_t n = 0;
  for (; !page_cur_is_after_last(&cursor); page_cur_move_to_next(&cursor)) {
    const rec_t *rec = page_cur_get_rec(&cursor);
    if (is_beyond(end, rec, index, offsets->of(rec, index, heap))) break;
    ++n;
  }
  return n;
}

// About two sub-ranges for each worker.
uint32_t sampling_step(uint32_t n_records, size_t nthreads) {
  const auto wanted = static_cast<int32_t>(2 * static_cast<uint32_t>(nthreads));
  const uint32_t step = n_records / (wanted > 0 ? wanted : 1);
  return step > 0 ? step : 1;
}

}  // namespace

// On the node pointer under which the range begins. @return whether there is
// one
bool ParallelIndexReader::position_on_node(page_cur_t *cursor,
                                           const dtuple_t *key,
                                           bool include) const {
  if (key == nullptr) {
    page_cur_set_before_first(page_cur_get_block(cursor), cursor);
    page_cur_move_to_next(cursor);
    return !page_cur_is_after_last(cursor);
  }
  page_cur_search(page_cur_get_block(cursor), index_, key,
                  include ? PAGE_CUR_L : PAGE_CUR_G, cursor);
  if (!include && !page_cur_is_before_first(cursor)) {
    page_cur_move_to_prev(cursor);
  }
  if (page_cur_is_before_first(cursor)) page_cur_move_to_next(cursor);
  return !page_cur_is_after_last(cursor);
}

// On the first leaf record of the range. @return whether the page holds it
bool ParallelIndexReader::position_on_leaf(page_cur_t *cursor,
                                           const dtuple_t *key,
                                           bool include) const {
  if (key == nullptr) {
    page_cur_set_before_first(page_cur_get_block(cursor), cursor);
  } else {
    page_cur_search(page_cur_get_block(cursor), index_, key,
                    include ? PAGE_CUR_GE : PAGE_CUR_G, cursor);
  }
  if (page_cur_is_before_first(cursor)) page_cur_move_to_next(cursor);
  return !page_cur_is_after_last(cursor);
}

page_cur_t ParallelIndexReader::start_of_range(
    page_no_t page_no, mtr_t *mtr, const dtuple_t *key, bool include,
    std::vector<Savepoint> &savepoints) const {
  for (;;) {
    savepoints.push_back(latch_page(index_, page_size_, page_no, mtr));
    const buf_block_t *block = savepoints.back().second;
    page_cur_t cursor = cursor_on(block, index_);
    const page_t *page = buf_block_get_frame(block);
    if (page_is_leaf(page)) {
      // The key may lie between the last record here and the next page's first.
      const page_no_t next = btr_page_get_next(page, mtr);
      if (position_on_leaf(&cursor, key, include) || next == FIL_NULL) {
        return cursor;
      }
      page_no = next;
      continue;
    }
    position_on_node(&cursor, key, include);
    page_no = child_page_no(page_cur_get_rec(&cursor), index_);
  }
}

dberr_t ParallelIndexReader::reason_to_stop() const {
  return trx_is_interrupted(trx_) ? DB_INTERRUPTED : get_error();
}

// Neighbours share no boundary: each has its own on the same record.
void ParallelIndexReader::append_range(std::vector<Range> &ranges,
                                       const page_cur_t &start,
                                       mtr_t *mtr) const {
  auto first = create_persistent_cursor(index_, start, mtr);
  if (!ranges.empty()) {
    ranges.back().second = create_persistent_cursor(index_, start, mtr);
    ranges.back().second->include_ = false;
  }
  ranges.emplace_back(std::move(first), std::make_shared<Iter>());
}

dberr_t ParallelIndexReader::partition_range(const Range &range,
                                             page_no_t page_no,
                                             std::vector<Range> &ranges,
                                             size_t depth, size_t split_level,
                                             size_t nthreads, mtr_t *mtr) {
  const Savepoint own = latch_page(index_, page_size_, page_no, mtr);
  const Iter &end = *range.second;
  const dtuple_t *start = range.first->tuple_;
  bool include_start = range.first->include_;
  page_cur_t cursor = cursor_on(own.second, index_);
  if (!position_on_node(&cursor, start, include_start)) return DB_SUCCESS;

  Scratch_heap heap(srv_page_size / 4);
  Record_offsets offsets;
  std::vector<Savepoint> savepoints;
  const ulint at_level = host::page_level(buf_block_get_frame(own.second), mtr);
  uint32_t n_tuples = 0;
  uint32_t step = 1;
  if (at_level > 0 && depth >= split_level) {
    n_tuples = count_records(cursor, end, index_, &offsets, &heap.get());
    step = sampling_step(n_tuples, nthreads);
  }

  uint32_t count = 0;
  for (; !page_cur_is_after_last(&cursor); page_cur_move_to_next(&cursor)) {
    const uint32_t i = count++;
    if (count < n_tuples && i % step != 0) continue;
    // Each descent may read from the disk, with a page latched meanwhile.
    if (const dberr_t err = reason_to_stop(); err != DB_SUCCESS) return err;
    const rec_t *rec = page_cur_get_rec(&cursor);
    const ulint *rec_offsets = offsets.of(rec, index_, &heap.get());
    if (is_beyond(end, rec, index_, rec_offsets)) break;

    page_cur_t leaf = cursor;
    if (at_level == 0) {
      position_on_leaf(&leaf, start, include_start);
    } else {
      const page_no_t child = btr_node_ptr_get_child_page_no(rec, rec_offsets);
      if (depth < split_level) {
        const dberr_t err = partition_range(range, child, ranges, depth + 1,
                                            split_level, nthreads, mtr);
        if (err != DB_SUCCESS) return err;
        continue;
      }
      leaf = start_of_range(child, mtr, start, include_start, savepoints);
    }
    if (!page_cur_is_after_last(&leaf)) append_range(ranges, leaf, mtr);
    release_pages(savepoints, mtr);
    // A leaf yields one sub-range at most.
    if (at_level == 0) break;
    start = nullptr;
    include_start = true;
  }
  savepoints.push_back(own);
  release_pages(savepoints, mtr);
  return DB_SUCCESS;
}

// The last sub-range ends where the whole does; its copy of that bound does not
// depend on the conversion's buffers.
void ParallelIndexReader::close_last_range(const Iter &end,
                                           std::vector<Range> &ranges) const {
  if (end.tuple_ == nullptr || ranges.empty()) return;
  Iter *last = ranges.back().second.get();
  last->heap_ = host::new_heap(srv_page_size / 16 + sizeof(btr_pcur_t));
  dtuple_t *tuple = dtuple_copy(end.tuple_, last->heap_);
  for (ulint i = 0; i < dtuple_get_n_fields(tuple); ++i) {
    dfield_dup(dtuple_get_nth_field(tuple, i), last->heap_);
  }
  // The copy would compare every field, and so take a boundary record that has
  // changed since for another one.
  dtuple_set_n_fields_cmp(tuple, dtuple_get_n_fields_cmp(end.tuple_));
  last->tuple_ = tuple;
  last->include_ = end.include_;
}

dberr_t ParallelIndexReader::enqueue_units(const std::vector<Range> &ranges,
                                           size_t first_split_ctx) {
  for (const Range &range : ranges) {
    const size_t id = ctx_id_.fetch_add(1);
    try {
      auto ctx = std::make_shared<Ctx>(id, range);
      ctx->split_ = id >= first_split_ctx;
      enqueue(std::move(ctx));
    } catch (const std::bad_alloc &) {
      ctx_id_.fetch_sub(1);
      return DB_OUT_OF_MEMORY;
    }
  }
  return DB_SUCCESS;
}

// Every sub-range's start is a record inside the range, so it belongs to it,
// also when the range's own start is open.
void ParallelIndexReader::setup_ctx(size_t nthreads) {
  std::vector<Range> ranges;
  Read_mtr mtr;
  const dberr_t err = partition_range(scan_range_, index_->page, ranges, 0, 0,
                                      nthreads, mtr.start());
  mtr.commit();
  if (err != DB_SUCCESS) {
    set_error(err);
    return;
  }
  close_last_range(*scan_range_.second, ranges);
  // The units of whole groups, one for each worker, are read as they are; the
  // rest is cut again.
  const size_t rest = nthreads > 0 ? ranges.size() % nthreads : 0;
  const dberr_t queued = enqueue_units(ranges, ranges.size() - rest);
  if (queued != DB_SUCCESS) set_error(queued);
}
