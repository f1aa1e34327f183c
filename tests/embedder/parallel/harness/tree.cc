// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Looks into the trees of the indexes that the cases read.

#include <strings.h>

#include "host.h"
#include "host/innodb.h"
#include "parallel_test.h"

namespace harness {

Index_watch::Index_watch(const char *table, const char *index_name) {
  // To open a table, InnoDB's dictionary needs a current session on the thread.
  // The scan leaves its own session there.
  const Scan scan({.table = table});
  const std::string name = std::string("db/") + table;
  dict_table_t *dict_table =
      dd_table_open_on_name(current_thd, nullptr, name.c_str(), false, 0);
  table_ = dict_table;
  if (dict_table == nullptr) return;
  index_ = dict_table->first_index();
  while (index_ != nullptr && strcasecmp(index_->name(), index_name) != 0)
    index_ = index_->next();
}

Index_watch::~Index_watch() {
  if (table_ != nullptr) dd_table_close(table_, nullptr, nullptr, false);
}

void Index_watch::with_latch(const std::function<void()> &f) const {
  rw_lock_t *latch = dict_index_get_lock(index_);
  host::x_lock(latch);
  f();
  rw_lock_x_unlock(latch);
}

bool Index_watch::has_waiting_writer() const {
  return rw_lock_get_writer(dict_index_get_lock(index_)) == RW_LOCK_X_WAIT;
}

bool Index_watch::has_waiters_behind() const {
  return rw_lock_get_waiters(dict_index_get_lock(index_));
}

size_t Index_watch::latch_holders() const {
  return rw_lock_get_reader_count(dict_index_get_lock(index_));
}

template <class F>
size_t Index_watch::of_root(F f) const {
  if (index_ == nullptr) return 0;
  mtr_t mtr;
  mtr.start();
  buf_block_t *root =
      host::page_get_s_latched(page_id_t(index_->space, index_->page),
                               dict_table_page_size(table_), &mtr);
  const size_t result = f(root->frame, &mtr);
  mtr.commit();
  return result;
}

size_t Index_watch::levels() const {
  return of_root([](const page_t *root, mtr_t *mtr) {
    return 1 + host::page_level(root, mtr);
  });
}

size_t Index_watch::root_records() const {
  return of_root(
      [](const page_t *root, mtr_t *) { return page_get_n_recs(root); });
}

size_t tree_levels(const char *table, const char *index) {
  return Index_watch(table, index).levels();
}

}  // namespace harness
