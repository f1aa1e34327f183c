// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/visibility.h
  Which version of a record a read may see.
*/

#ifndef MORVENA_SN_INNODB_API_VISIBILITY_H
#define MORVENA_SN_INNODB_API_VISIBILITY_H

#include "innodb_api/plan.h"
#include "innodb_api/row_version.h"
#include "innodb_api/scope.h"

/** Build the key of the clustered record that a secondary record belongs to.
   The key is allocated in heap. */
[[nodiscard]] dtuple_t *build_row_ref(const Read_plan &plan,
                                      const rec_t *sec_rec, ulint *sec_offsets,
                                      mem_heap_t *heap);

/** Finds the visible versions of the records of one unit. */
class Visibility {
 public:
  explicit Visibility(const Read_plan &plan) : plan_(plan) {}
  ~Visibility() { lob_undo_.destroy(); }
  Visibility(const Visibility &) = delete;
  Visibility &operator=(const Visibility &) = delete;

  /**
    Find the visible version of a record of the scanned index, when that index
    supplies the row.

    @param[in,out] version  in: the record with its offsets, on a page that mtr
                            holds; out: the version to deliver, perhaps in heap;
                            its rec is null if there is none
    @param row_mtr  holds the clustered record's page afterwards, if that record
                    had to be looked up
  */
  [[nodiscard]] dberr_t check_visibility(Row_version *version,
                                         mem_heap_t *&heap, mtr_t *mtr,
                                         Read_mtr *row_mtr);

  /**
    Look up the clustered record of a secondary record.

    @param[out] version  the version to deliver; its rec is null if there is
    none
    @param row_mtr  holds the clustered record's page afterwards
  */
  [[nodiscard]] dberr_t lookup_cluster_rec(const rec_t *sec_rec,
                                           const dtuple_t *ref,
                                           Row_version *version,
                                           mem_heap_t *&heap,
                                           Read_mtr *row_mtr);

 private:
  dberr_t find_version(dict_index_t *index, ReadView *view,
                       Row_version *version, mem_heap_t **heap, mtr_t *mtr);

  const Read_plan &plan_;
  lob::undo_vers_t lob_undo_;  // of the current version
};

#endif  // MORVENA_SN_INNODB_API_VISIBILITY_H
