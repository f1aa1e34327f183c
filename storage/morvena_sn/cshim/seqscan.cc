// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Sequential-scan cursor.

#include "seqscan.h"

#include <memory>

#include "common.h"
#include "common/dictionary.h"
#include "innodb_api.h"

SeqScanCursor *SeqScanCursor::open(TABLE *table, uint32_t snapshot_donor) {
  if (CommonApi::start_transaction(snapshot_donor) == nullptr) return nullptr;
  std::unique_ptr<SeqScanCursor> cursor(new SeqScanCursor(table));
  cursor->pkey_ = find_key_by_name(table, "primary");
  return cursor.release();
}

bool SeqScanCursor::advance_parallel(size_t nthreads, Parallel_load_func fn,
                                     void *argument) {
  const char *index_name = pkey_ != nullptr ? pkey_->name : nullptr;
  const std::unique_ptr<ParallelIndexReader> reader(
      ParallelIndexReader::open(table_, index_name, true, state_));
  if (reader == nullptr) return false;
  reader->set_load_cb(fn, argument);
  reader->set_range_scan(nullptr, nullptr);
  return reader->run(nthreads);
}

void SeqScanCursor::get_col_names(std::vector<const char *> &columns) {
  CommonApi::get_table_field_names(table_, columns);
}

void SeqScanCursor::set_readset(size_t ncols, const uint32_t *fields) {
  CommonApi::set_readset(table_, ncols, fields);
}
