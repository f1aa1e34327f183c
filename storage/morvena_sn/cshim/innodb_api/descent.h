// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/descent.h
  From a page of an index down to a leaf, by key. The caller holds the index
  latch, which is not asked for here: a request that waits exclusively lets no
  new shared one through, so a reader that asked again would wait for the
  writer, the writer for the read, and the read for the reader.
*/

#ifndef MORVENA_SN_INNODB_API_DESCENT_H
#define MORVENA_SN_INNODB_API_DESCENT_H

#include <utility>
#include <vector>

#include "host/innodb.h"
#include "innodb_api/plan.h"

/** A page latched in a mini-transaction, and where in it. */
using Savepoint = std::pair<ulint, buf_block_t *>;

/** Latch a page of the index, shared. */
[[nodiscard]] Savepoint latch_page(const Index_tree &tree, page_no_t page_no,
                                   mtr_t *mtr);
void release_pages(std::vector<Savepoint> *savepoints, mtr_t *mtr);

/** A cursor before the first record of a page. */
[[nodiscard]] page_cur_t cursor_on(const buf_block_t *block,
                                   const Index_tree &tree);

/** Move a cursor to the node pointer under which a range begins.
    @param key  null: no bound
    @return whether there is one */
bool position_on_node(page_cur_t *cursor, const dtuple_t *key, bool include);

/** Move a cursor to the first record of a leaf that belongs to a range.
    @param key  null: no bound
    @return whether the page holds it */
bool position_on_leaf(page_cur_t *cursor, const dtuple_t *key, bool include);

/** Descend to the first record at (or after, if not include) a key, which may
    lie beyond the subtree's; null: the first of the subtree. After the last of
    its page if there is none.
    @param[out] savepoints  the pages of the path, the last of them the leaf */
[[nodiscard]] page_cur_t start_of_range(const Index_tree &tree,
                                        page_no_t page_no, mtr_t *mtr,
                                        const dtuple_t *key, bool include,
                                        std::vector<Savepoint> *savepoints);

/** Whether the root is a leaf. Others may add pages at any time. */
[[nodiscard]] bool is_one_page(const Index_tree &tree);

#endif  // MORVENA_SN_INNODB_API_DESCENT_H
