// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables and indexes in InnoDB's dictionary.

#include "common/dictionary.h"

#include "host.h"

#include "dict0dd.h"
#include "dict0dict.h"
#include "ha_innodb.h"
#include "ha_prototypes.h"

bool has_one_tree(const TABLE *table) {
  return table->s->db_type() == innodb_hton && table->part_info == nullptr;
}

Dictionary_table::Dictionary_table(const TABLE *table) {
  char name[FN_REFLEN];
  normalize_table_name(name, table->s->normalized_path.str);
  table_ = dd_table_open_on_name(table->in_use, nullptr, name, false, 0);
}

Dictionary_table::~Dictionary_table() {
  if (table_ != nullptr) dd_table_close(table_, nullptr, nullptr, false);
}

dict_index_t *Dictionary_table::find_index(const char *name) const {
  if (table_ == nullptr) return nullptr;
  const auto is_it = [name](const dict_index_t *index) {
    return name == nullptr ? index->is_clustered()
                           : innobase_strcasecmp(index->name, name) == 0;
  };
  dict_index_t *index = table_->first_index();
  while (index != nullptr && !is_it(index)) index = index->next();
  return index;
}
