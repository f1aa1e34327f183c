/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// record_layout: what has to be known of an index to find fields in its
// records. In: an index and the wanted fields. Out: a step for each
// field up to the last of them. Threads: the caller's; read only afterwards.

#include "innodb_api/record_layout.h"

#include <algorithm>

void Record_layout::init(const dict_index_t *index,
                         const std::vector<ulint> &wanted) {
  const dict_table_t *table = index->table;
  if (!dict_table_is_comp(table)) return;
  if (index->is_clustered() && host::has_instant_columns(table)) return;
  ulint n_steps = 0;
  for (const ulint field_no : wanted) {
    if (field_no == ULINT_UNDEFINED) return;
    n_steps = std::max(n_steps, field_no + 1);
  }
  null_bytes_ = UT_BITS_IN_BYTES(index->n_nullable);
  for (ulint i = 0; i < n_steps; ++i) {
    const dict_field_t *field = index->get_field(i);
    steps_.push_back({static_cast<uint16_t>(field->fixed_len),
                      (field->col->prtype & DATA_NOT_NULL) == 0,
                      DATA_BIG_COL(field->col) != 0, -1});
  }
  for (size_t slot = 0; slot < wanted.size(); ++slot) {
    // A field has one slot: the second of two that want it would stay empty.
    int32_t &taken = steps_[wanted[slot]].slot;
    if (taken >= 0) return;
    taken = static_cast<int32_t>(slot);
  }
  usable_ = true;
}
