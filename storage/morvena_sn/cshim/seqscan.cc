// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Sequential-scan cursor.

#include "seqscan.h"

#include <memory>

#include "common.h"
#include "innodb_api.h"

std::unique_ptr<SeqScanCursor> SeqScanCursor::open(TABLE *table) {
  return std::unique_ptr<SeqScanCursor>(new SeqScanCursor(table));
}

bool SeqScanCursor::advance_parallel(size_t n_threads, Parallel_load_func fn,
                                     void *argument) {
  const KEY *primary = CommonApi::find_key(table_, "PRIMARY");
  const char *index_name = primary != nullptr ? primary->name : nullptr;
  const std::unique_ptr<ParallelIndexReader> reader(
      ParallelIndexReader::open(table_, index_name, true, state_));
  if (reader == nullptr) return false;
  reader->set_load_cb(fn, argument);
  reader->set_range_scan(nullptr, nullptr);
  return reader->run(n_threads);
}

void SeqScanCursor::get_col_names(std::vector<const char *> &columns) {
  CommonApi::get_table_field_names(table_, columns);
}

void SeqScanCursor::set_readset(size_t ncols, const uint32_t *fields) {
  CommonApi::set_readset(table_, ncols, fields);
}
