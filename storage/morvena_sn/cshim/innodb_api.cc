// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The parallel reader's face, and what it registers with the host at load.

#include "innodb_api.h"

#include "host.h"

#include "univ.i"

#ifdef UNIV_PFS_THREAD
// Pool threads are plain ones: the key is counted, not used.
mysql_pfs_key_t parallel_thread_key;
#endif

ParallelIndexReader::ParallelIndexReader(Call_state *state)
    : state_(state != nullptr ? state : &own_state_),
      range_(std::make_shared<Iter>(), std::make_shared<Iter>()) {}

ParallelIndexReader *ParallelIndexReader::open(TABLE *table,
                                               const char *index_name,
                                               bool indexonly_scan,
                                               Call_state *state) {
  std::unique_ptr<ParallelIndexReader> reader(new ParallelIndexReader(state));
  reader->plan_ = Read_plan::open(table, index_name, indexonly_scan,
                                  &reader->state_->failure);
  return reader->plan_ != nullptr ? reader.release() : nullptr;
}

void ParallelIndexReader::set_range_scan(const key_range *start,
                                         const key_range *end) {
  range_ = range_between(*plan_, start, end);
}
