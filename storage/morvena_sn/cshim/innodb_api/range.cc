// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// range: the caller's bounds as InnoDB keys, and positions without a latch.
// In: key images; records under a page latch. Out: boundaries (Iter).
// Holds: nothing of its own. Threads: the caller's, and workers that split a
// unit or release their page. Fails: out of memory.

#include "innodb_api/range.h"

#include <new>

#include "common.h"
#include "host.h"
#include "innodb_api/plan.h"

Iter::~Iter() {
  // The cursor keeps the stored key outside the heap.
  if (pcur_ != nullptr) pcur_->free_rec_buf();
  if (heap_ != nullptr) mem_heap_free(heap_);
}

std::shared_ptr<Iter> create_persistent_cursor(dict_index_t *index,
                                               const page_cur_t &page_cursor,
                                               mtr_t *mtr) {
  auto iter = std::make_shared<Iter>();
  iter->heap_ = host::new_heap(srv_page_size / 16 + sizeof(btr_pcur_t));
  page_cur_t cursor = page_cursor;
  // Cursors placed without a search do not know their index.
  cursor.index = index;
  if (page_cur_is_before_first(&cursor)) page_cur_move_to_next(&cursor);
  if (page_cur_is_after_last(&cursor)) return iter;

  const rec_t *rec = page_cur_get_rec(&cursor);
  ulint *offsets = host::rec_offsets(rec, index, nullptr, &iter->heap_);
  void *place = mem_heap_alloc(iter->heap_, rec_offs_size(offsets));
  rec_t *copy = rec_copy(place, rec, offsets);
  rec_offs_make_valid(copy, index, offsets);
  dtuple_t *tuple =
      row_rec_to_index_entry_low(copy, index, offsets, iter->heap_);
  dtuple_set_n_fields_cmp(tuple, dict_index_get_n_unique_in_tree(index));
  iter->tuple_ = tuple;

  auto *pcur =
      new (mem_heap_alloc(iter->heap_, sizeof(btr_pcur_t))) btr_pcur_t();
  pcur->init();
  pcur->open_on_user_rec(cursor, PAGE_CUR_GE,
                         BTR_SEARCH_LEAF | BTR_ALREADY_S_LATCHED);
  iter->pcur_ = pcur;
  pcur->store_position(mtr);
  pcur->set_fetch_type(Page_fetch::NORMAL);
  return iter;
}

int cmp_dtuple(const dict_index_t *index, dtuple_t *a, dtuple_t *b) {
  for (ulint i = 0; i < a->n_fields_cmp; ++i) {
    const ulint a_bytes = dfield_get_len(dtuple_get_nth_field(a, i));
    const ulint b_bytes = dfield_get_len(dtuple_get_nth_field(b, i));
    // The value of a is compared with itself cut to b's length, so only the
    // lengths count: the shorter value is a prefix of the longer. Comparing
    // bytes would read beyond the value of a.
    if (a_bytes == b_bytes) continue;
    const bool is_ascending =
        dict_index_is_ibuf(index) || index->get_field(i)->is_ascending;
    return (a_bytes < b_bytes) == is_ascending ? -1 : 1;
  }
  return 0;
}

Range range_between(const Read_plan &plan, const key_range *start,
                    const key_range *end) {
  Range range(std::make_shared<Iter>(), std::make_shared<Iter>());
  dict_index_t *index = plan.tree.index;
  const KEY *key = CommonApi::find_key(plan.mysql_table, index->name);
  row_prebuilt_t *prebuilt = plan.prebuilt.get();
  const auto convert = [&](const key_range *bound, dtuple_t *tuple,
                           byte *buffer) -> const dtuple_t * {
    if (bound == nullptr || key == nullptr) return nullptr;
    // The bound's own length leaves out NULL parts, so the conversion would
    // stop inside a field: count the bytes of all its parts. A bound without
    // parts would compare equal to every record, so it counts as no bound.
    const uint bytes = calculate_key_len(
        plan.mysql_table, static_cast<uint>(key - plan.mysql_table->key_info),
        bound->keypart_map);
    if (bytes == 0) return nullptr;
    dict_index_copy_types(tuple, index, index->n_fields);
    host::convert_key(tuple, buffer, prebuilt->srch_key_val_len, index,
                      bound->key, bytes, plan.trx);
    return tuple;
  };
  range.first->tuple_ =
      convert(start, prebuilt->search_tuple, prebuilt->srch_key_val1);
  range.second->tuple_ =
      convert(end, prebuilt->m_stop_tuple, prebuilt->srch_key_val2);
  // Every other flag leaves the bound out, even the flag of the closed end of a
  // backward cursor.
  if (start != nullptr) {
    range.first->include_ = start->flag == HA_READ_KEY_OR_NEXT;
  }
  if (end != nullptr) range.second->include_ = end->flag == HA_READ_KEY_OR_PREV;
  return range;
}
