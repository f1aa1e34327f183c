// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// open: may this index be read in parallel?
// In: an open, locked table and an index name. Out: a plan, or a refusal in
// words; the cursor's transaction has a view. Holds: the dictionary table,
// until the plan's end. Threads: the caller's. Fails: no such index, an index
// that cannot be scanned in parallel, no memory for a view.

#include <string>

#include "common/counters.h"
#include "common/dictionary.h"
#include "common/failure.h"
#include "host.h"
#include "innodb_api/plan.h"

#include "srv0srv.h"

namespace {

// A virtual column has no stored value. In the clustered index it matters only
// if it is read. The read set is looked up by InnoDB's number of the column.
bool has_virtual_field(const dict_index_t *index, const TABLE *table) {
  for (ulint i = 0; i < dict_index_get_n_fields(index); ++i) {
    const dict_col_t *col = index->get_field(i)->col;
    if (!col->is_virtual()) continue;
    if (!index->is_clustered() ||
        bitmap_is_set(table->read_set, static_cast<uint>(col->ind))) {
      return true;
    }
  }
  return false;
}

struct Refusal {
  unsigned int code;  // 0: none
  const char *text;
};

// @return why the index cannot be scanned.
Refusal refusal(const dict_index_t *index, const TABLE *table,
                const trx_t *trx) {
  if (dict_table_is_discarded(index->table) || index->table->ibd_file_missing) {
    return {ER_TABLESPACE_DISCARDED,
            "Cannot do parallel scan on table without its tablespace"};
  }
  if ((index->type & DICT_FTS) != 0) {
    return {ER_CHECK_NOT_IMPLEMENTED,
            "Cannot do parallel scan on full-text index"};
  }
  if (dict_index_is_spatial(index)) {
    return {ER_CHECK_NOT_IMPLEMENTED,
            "Cannot do parallel scan on spatial index"};
  }
  if (index->is_corrupted())
    return {ER_INDEX_CORRUPT, "Cannot do parallel scan on corrupted index"};
  if (!index->is_usable(trx)) {
    return {ER_TABLE_DEF_CHANGED,
            "Cannot do parallel scan on index newer than the snapshot"};
  }
  if (has_virtual_field(index, table)) {
    return {ER_CHECK_NOT_IMPLEMENTED,
            "Cannot do parallel scan on index with virtual field"};
  }
  return {0, nullptr};
}

// If the donor gave no view, the cursor takes one of its own at its first read
// and keeps it, as it does when it reads row by row. A read-only server has no
// views: nothing changes there, so every read sees the same rows.
// @return false if a view is needed and cannot be made
bool take_snapshot(trx_t *trx) {
  if (srv_read_only_mode) return true;
  if (trx->isolation_level == TRX_ISO_READ_UNCOMMITTED) return true;
  if (MVCC::is_view_active(trx->read_view)) return true;
  counters::count(Tally::SNAPSHOTS_TAKEN);
  host::start_read_transaction(trx);
  return trx_assign_read_view(trx) != nullptr;
}

}  // namespace

std::unique_ptr<const Read_plan> Read_plan::open(TABLE *table,
                                                 const char *index_name,
                                                 bool indexonly_scan,
                                                 Failure *failure) {
  if (!has_one_tree(table)) {
    failure->raise(ER_CHECK_NOT_IMPLEMENTED,
                   "Cannot do parallel scan on table without a single B-tree");
    return nullptr;
  }
  Dictionary_table dict_table(table);
  dict_index_t *index = dict_table.find_index(index_name);
  if (index == nullptr) {
    const std::string name = index_name != nullptr ? index_name : "";
    failure->raise(ER_KEY_DOES_NOT_EXITS,
                   ("Cannot find a index \"" + name + "\".").c_str());
    return nullptr;
  }
  trx_t *trx = thd_to_trx(current_thd);
  if (!take_snapshot(trx)) {
    failure->raise(ER_OOM, "Cannot take a snapshot for a parallel scan");
    return nullptr;
  }
  const Refusal why = refusal(index, table, trx);
  if (why.code != 0) {
    failure->raise(why.code, why.text);
    return nullptr;
  }
  return std::unique_ptr<const Read_plan>(
      new Read_plan(table, &dict_table, index, indexonly_scan, trx));
}
