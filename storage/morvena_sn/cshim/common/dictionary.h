// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/dictionary.h
  An open table as InnoDB knows it.
*/

#ifndef MORVENA_SN_COMMON_DICTIONARY_H
#define MORVENA_SN_COMMON_DICTIONARY_H

#include <utility>

struct TABLE;
struct dict_index_t;
struct dict_table_t;

/** Whether a table is InnoDB's and has one B-tree for each index. A partitioned
    table has one for each partition, and no dictionary table of its own name.
 */
[[nodiscard]] bool has_one_tree(const TABLE *table);

/** InnoDB's own object of an open table that has one tree, kept open until the
    end of the scope. */
class Dictionary_table {
 public:
  explicit Dictionary_table(const TABLE *table);
  ~Dictionary_table();
  Dictionary_table(const Dictionary_table &) = delete;
  Dictionary_table &operator=(const Dictionary_table &) = delete;

  /** Null if it cannot be opened. */
  dict_table_t *get() const { return table_; }
  /** The caller closes it. */
  dict_table_t *release() { return std::exchange(table_, nullptr); }

  /** @param name  in any case of its letters; null: the clustered index
      @return null if there is none */
  [[nodiscard]] dict_index_t *find_index(const char *name) const;

 private:
  dict_table_t *table_;
};

#endif  // MORVENA_SN_COMMON_DICTIONARY_H
