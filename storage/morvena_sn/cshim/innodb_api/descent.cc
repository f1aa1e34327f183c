// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// descent: searches by key, from a page of the index down to a leaf.
// In: a page's number and a key. Out: a cursor on a leaf that is latched.
// Holds: pages of one path, in the caller's mini-transaction. Threads: any,
// under the index latch. Fails: never.

#include "innodb_api/descent.h"

#include "innodb_api/scope.h"

namespace {

page_no_t child_page_no(const rec_t *rec, const dict_index_t *index) {
  Scratch_heap heap(srv_page_size / 4);
  const ulint *offsets = host::rec_offsets(rec, index, nullptr, &heap.get());
  return btr_node_ptr_get_child_page_no(rec, offsets);
}

}  // namespace

Savepoint latch_page(const Index_tree &tree, page_no_t page_no, mtr_t *mtr) {
  const ulint savepoint = mtr->get_savepoint();
  const page_id_t page_id(tree.index->space, page_no);
  buf_block_t *block = host::page_get_s_latched(page_id, tree.page_size, mtr);
  return {savepoint, block};
}

void release_pages(std::vector<Savepoint> *savepoints, mtr_t *mtr) {
  for (const auto &[savepoint, block] : *savepoints) {
    mtr->release_block_at_savepoint(savepoint, block);
  }
  savepoints->clear();
}

page_cur_t cursor_on(const buf_block_t *block, const Index_tree &tree) {
  page_cur_t cursor{};
  cursor.index = tree.index;
  page_cur_set_before_first(block, &cursor);
  return cursor;
}

bool position_on_node(page_cur_t *cursor, const dtuple_t *key, bool include) {
  if (key == nullptr) {
    page_cur_set_before_first(page_cur_get_block(cursor), cursor);
    page_cur_move_to_next(cursor);
    return !page_cur_is_after_last(cursor);
  }
  page_cur_search(page_cur_get_block(cursor), cursor->index, key,
                  include ? PAGE_CUR_L : PAGE_CUR_G, cursor);
  if (!include && !page_cur_is_before_first(cursor)) {
    page_cur_move_to_prev(cursor);
  }
  if (page_cur_is_before_first(cursor)) page_cur_move_to_next(cursor);
  return !page_cur_is_after_last(cursor);
}

bool position_on_leaf(page_cur_t *cursor, const dtuple_t *key, bool include) {
  if (key == nullptr) {
    page_cur_set_before_first(page_cur_get_block(cursor), cursor);
  } else {
    page_cur_search(page_cur_get_block(cursor), cursor->index, key,
                    include ? PAGE_CUR_GE : PAGE_CUR_G, cursor);
  }
  if (page_cur_is_before_first(cursor)) page_cur_move_to_next(cursor);
  return !page_cur_is_after_last(cursor);
}

page_cur_t start_of_range(const Index_tree &tree, page_no_t page_no, mtr_t *mtr,
                          const dtuple_t *key, bool include,
                          std::vector<Savepoint> *savepoints) {
  for (;;) {
    savepoints->push_back(latch_page(tree, page_no, mtr));
    const buf_block_t *block = savepoints->back().second;
    page_cur_t cursor = cursor_on(block, tree);
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
    page_no = child_page_no(page_cur_get_rec(&cursor), tree.index);
  }
}

bool is_one_page(const Index_tree &tree) {
  Read_mtr mtr;
  const buf_block_t *root =
      latch_page(tree, tree.index->page, mtr.start()).second;
  return page_is_leaf(buf_block_get_frame(root));
}
