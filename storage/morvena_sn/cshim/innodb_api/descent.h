// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/descent.h
  Searches by key, from a page of an index down to a leaf. The caller holds the
  index latch, so these functions do not request it. A second request could
  deadlock: an exclusive request that waits blocks new shared ones, so this
  thread would wait for the writer, the writer for the read, and the read for
  this thread.
*/

#ifndef MORVENA_SN_INNODB_API_DESCENT_H
#define MORVENA_SN_INNODB_API_DESCENT_H

#include <utility>
#include <vector>

#include "host/innodb.h"
#include "innodb_api/plan.h"

/** A savepoint of a mini-transaction, and the page that was latched there. */
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
    @return whether the page has one */
bool position_on_node(page_cur_t *cursor, const dtuple_t *key, bool include);

/** Move a cursor to the first record of a leaf that belongs to a range.
    @param key  null: no bound
    @return whether the page holds it */
bool position_on_leaf(page_cur_t *cursor, const dtuple_t *key, bool include);

/** Descend from a page to the first record at or after a key; if not include,
    to the first record after it. If no leaf below the page has such a record,
    go on to the leaves that follow.
    @param key  null: go to the first record below the page
    @param[out] savepoints  the latched pages of the path, the leaf last
    @return a cursor on that record; if there is none, after the last record of
    a page */
[[nodiscard]] page_cur_t start_of_range(const Index_tree &tree,
                                        page_no_t page_no, mtr_t *mtr,
                                        const dtuple_t *key, bool include,
                                        std::vector<Savepoint> *savepoints);

/** Whether the root is a leaf. A transaction may add pages at any time. */
[[nodiscard]] bool is_one_page(const Index_tree &tree);

#endif  // MORVENA_SN_INNODB_API_DESCENT_H
