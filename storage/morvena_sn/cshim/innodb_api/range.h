// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/range.h
  Ranges and their boundaries. A boundary holds no latch.
*/

#ifndef MORVENA_SN_INNODB_API_RANGE_H
#define MORVENA_SN_INNODB_API_RANGE_H

#include <memory>

#include "host/innodb.h"
#include "innodb_api/unit.h"

class Read_plan;
struct key_range;

/** One boundary of a range. Its key is a copy. Its stored cursor position is
    only a hint: if it is stale, the record is searched by the key. */
struct Iter {
  Iter() = default;
  ~Iter();
  Iter(const Iter &) = delete;
  Iter &operator=(const Iter &) = delete;

  mem_heap_t *heap_ = nullptr;  // owns all that follows, except for a bound
                                // of the whole range, which has no heap
  const dtuple_t *tuple_ = nullptr;  // the key; null: no bound on this side
  bool include_ = true;              // whether a record equal to it belongs
  btr_pcur_t *pcur_ = nullptr;       // stored on the record; null without one
};

/** Make a plan's range from two bounds, null for none. The range points to the
    bounds' key images and the plan's buffers, so a plan has one such range at a
    time. */
[[nodiscard]] Range range_between(const Read_plan &plan, const key_range *start,
                                  const key_range *end);

/** Make a boundary at the record under a page cursor, whose page is latched in
    mtr. If the page has no such record, the boundary has no key. May throw
    std::bad_alloc. */
[[nodiscard]] std::shared_ptr<Iter> create_persistent_cursor(
    dict_index_t *index, const page_cur_t &page_cursor, mtr_t *mtr);

/** Whether a record lies beyond a range's end. */
[[nodiscard]] inline bool is_past_end(const Iter &end, const rec_t *rec,
                                      const dict_index_t *index,
                                      const ulint *offsets) {
  if (end.tuple_ == nullptr) return false;
  const int order = end.tuple_->compare(rec, index, offsets);
  return order < 0 || (order == 0 && !end.include_);
}

/** Order two keys by the lengths of their fields: of b, only the lengths are
    looked at. */
[[nodiscard]] int cmp_dtuple(const dict_index_t *index, dtuple_t *a,
                             dtuple_t *b);

#endif  // MORVENA_SN_INNODB_API_RANGE_H
