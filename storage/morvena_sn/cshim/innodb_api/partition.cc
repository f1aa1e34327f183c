// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// partition: a range, cut into sub-ranges without overlap and without gap.
// In: a range, or a unit to be split. Out: sub-ranges in key order, as units in
// the queue. Holds: pages of one path at a time and the page being sampled, in
// one mini-transaction. Threads: the caller's, and workers that split a unit.
// Fails: out of memory, a kill, another worker's failure.

#include "innodb_api/partition.h"

#include <new>

#include "innodb_api/descent.h"
#include "innodb_api/scope.h"

namespace {

// The number of records of a page, from a position on, that lie in the range.
uint32_t count_records(page_cur_t cursor, const Iter &end,
                       const dict_index_t *index, Record_offsets *offsets,
                       mem_heap_t **heap) {
  uint32_t n = 0;
  for (; !page_cur_is_after_last(&cursor); page_cur_move_to_next(&cursor)) {
    const rec_t *rec = page_cur_get_rec(&cursor);
    if (is_past_end(end, rec, index, offsets->of(rec, index, heap))) break;
    ++n;
  }
  return n;
}

// Taking every nth record makes about two sub-ranges for each worker.
uint32_t sampling_step(uint32_t n_records, size_t nthreads) {
  const auto wanted = static_cast<int32_t>(2 * static_cast<uint32_t>(nthreads));
  const uint32_t step = n_records / (wanted > 0 ? wanted : 1);
  return step > 0 ? step : 1;
}

// Two neighbouring sub-ranges meet at a record that belongs to the second one
// only, so each has its own boundary at that record.
void append_range(std::vector<Range> *ranges, dict_index_t *index,
                  const page_cur_t &start, mtr_t *mtr) {
  auto first = create_persistent_cursor(index, start, mtr);
  if (!ranges->empty()) {
    ranges->back().second = create_persistent_cursor(index, start, mtr);
    ranges->back().second->include_ = false;
  }
  ranges->emplace_back(std::move(first), std::make_shared<Iter>());
}

// The last sub-range ends where the whole range ends. It gets a copy of that
// bound, because the bound may lie in the buffers of the key conversion.
void close_last_range(const Iter &end, std::vector<Range> *ranges) {
  if (end.tuple_ == nullptr || ranges->empty()) return;
  Iter *last = ranges->back().second.get();
  last->heap_ = host::new_heap(srv_page_size / 16 + sizeof(btr_pcur_t));
  dtuple_t *tuple = dtuple_copy(end.tuple_, last->heap_);
  for (ulint i = 0; i < dtuple_get_n_fields(tuple); ++i) {
    dfield_dup(dtuple_get_nth_field(tuple, i), last->heap_);
  }
  // A copy compares every field. If other columns of the boundary record have
  // changed since, it would not recognise the record.
  dtuple_set_n_fields_cmp(tuple, dtuple_get_n_fields_cmp(end.tuple_));
  last->tuple_ = tuple;
  last->include_ = end.include_;
}

// One cut of a range at one level of the tree.
class Cut {
 public:
  Cut(const Index_tree &tree, const Read_stop &stop, const Range &range,
      size_t split_level, size_t nthreads)
      : tree_(tree),
        stop_(stop),
        range_(range),
        split_level_(split_level),
        nthreads_(nthreads) {}

  // Every sub-range starts at a record inside the range. So its start is
  // closed, even if the start of the whole range is open.
  dberr_t run(std::vector<Range> *ranges) {
    const dberr_t err = partition_range(tree_.index->page, 0, ranges);
    mtr_.commit();
    if (err == DB_SUCCESS) close_last_range(*range_.second, ranges);
    return err;
  }

 private:
  dberr_t partition_range(page_no_t page_no, size_t depth,
                          std::vector<Range> *ranges);

  const Index_tree &tree_;
  const Read_stop &stop_;
  const Range &range_;
  const size_t split_level_;  // how far below the root pages are sampled
  const size_t nthreads_;
  Read_mtr mtr_;
};

// Append the sub-ranges under a page.
dberr_t Cut::partition_range(page_no_t page_no, size_t depth,
                             std::vector<Range> *ranges) {
  mtr_t *mtr = mtr_.get();
  const Savepoint own = latch_page(tree_, page_no, mtr);
  const Iter &end = *range_.second;
  const dtuple_t *start = range_.first->tuple_;
  bool include_start = range_.first->include_;
  page_cur_t cursor = cursor_on(own.second, tree_);
  if (!position_on_node(&cursor, start, include_start)) return DB_SUCCESS;

  Scratch_heap heap(srv_page_size / 4);
  Record_offsets offsets;
  std::vector<Savepoint> savepoints;
  const ulint at_level = host::page_level(buf_block_get_frame(own.second), mtr);
  uint32_t n_tuples = 0;
  uint32_t step = 1;
  if (at_level > 0 && depth >= split_level_) {
    n_tuples = count_records(cursor, end, tree_.index, &offsets, &heap.get());
    step = sampling_step(n_tuples, nthreads_);
  }

  uint32_t count = 0;
  for (; !page_cur_is_after_last(&cursor); page_cur_move_to_next(&cursor)) {
    const uint32_t i = count++;
    if (count < n_tuples && i % step != 0) continue;
    // Each descent may read from the disk, with a page latched meanwhile.
    dberr_t err = stop_.reason_to_stop();
    if (err != DB_SUCCESS) return err;
    const rec_t *rec = page_cur_get_rec(&cursor);
    const ulint *rec_offsets = offsets.of(rec, tree_.index, &heap.get());
    if (is_past_end(end, rec, tree_.index, rec_offsets)) break;

    page_cur_t leaf = cursor;
    if (at_level == 0) {
      position_on_leaf(&leaf, start, include_start);
    } else {
      const page_no_t child = btr_node_ptr_get_child_page_no(rec, rec_offsets);
      if (depth < split_level_) {
        err = partition_range(child, depth + 1, ranges);
        if (err != DB_SUCCESS) return err;
        continue;
      }
      leaf =
          start_of_range(tree_, child, mtr, start, include_start, &savepoints);
    }
    if (!page_cur_is_after_last(&leaf))
      append_range(ranges, tree_.index, leaf, mtr);
    release_pages(&savepoints, mtr);
    // A leaf yields one sub-range at most.
    if (at_level == 0) break;
    start = nullptr;
    include_start = true;
  }
  savepoints.push_back(own);
  release_pages(&savepoints, mtr);
  return DB_SUCCESS;
}

// @param n_whole  the number of ranges, from the first, that are not split
dberr_t enqueue_units(const std::vector<Range> &ranges, size_t n_whole,
                      Unit_queue *queue) {
  try {
    for (size_t i = 0; i < ranges.size(); ++i) {
      queue->enqueue(std::make_shared<Ctx>(ranges[i], i >= n_whole));
    }
    return DB_SUCCESS;
  } catch (const std::bad_alloc &) {
    return DB_OUT_OF_MEMORY;
  }
}

}  // namespace

// Most units are read as they are: as many as divide evenly among the workers.
// The few that remain at the end are split.
dberr_t setup_ctx(const Index_tree &tree, const Read_stop &stop,
                  const Range &range, size_t nthreads, Unit_queue *queue) {
  std::vector<Range> ranges;
  const dberr_t err = Cut(tree, stop, range, 0, nthreads).run(&ranges);
  if (err != DB_SUCCESS) return err;
  const size_t rest = nthreads > 0 ? ranges.size() % nthreads : 0;
  return enqueue_units(ranges, ranges.size() - rest, queue);
}

dberr_t split_ctx(const Index_tree &tree, const Read_stop &stop, const Ctx &ctx,
                  size_t nthreads, Unit_queue *queue) {
  std::vector<Range> ranges;
  const dberr_t err = Cut(tree, stop, ctx.range_, 1, nthreads).run(&ranges);
  if (err != DB_SUCCESS) return err;
  return enqueue_units(ranges, ranges.size(), queue);
}
