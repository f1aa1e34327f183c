/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// Looks into the trees that the cases read.

#include <strings.h>

#include "host/innodb.h"
#include "parallel_test.h"

namespace harness {

int tree_levels(const char *table, const char *index_name) {
  // The dictionary wants a current session: the cursor's.
  const Scan scan({.table = table});
  const std::string name = std::string("db/") + table;
  dict_table_t *dict_table =
      dd_table_open_on_name(current_thd, nullptr, name.c_str(), false, 0);
  if (dict_table == nullptr) return 0;
  const dict_index_t *index = dict_table->first_index();
  while (index != nullptr && strcasecmp(index->name(), index_name) != 0)
    index = index->next();
  int levels = 0;
  if (index != nullptr) {
    mtr_t mtr;
    mtr.start();
    buf_block_t *root =
        host::page_get_s_latched(page_id_t(index->space, index->page),
                                 dict_table_page_size(dict_table), &mtr);
    levels = 1 + static_cast<int>(host::page_level(root->frame, &mtr));
    mtr.commit();
  }
  dd_table_close(dict_table, nullptr, nullptr, false);
  return levels;
}

}  // namespace harness
