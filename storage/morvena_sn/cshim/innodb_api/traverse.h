// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/traverse.h
  Reads one unit, page by page, and hands its visible rows to a sink.

  A sink has two functions:

    [[nodiscard]] dberr_t process_row(const Row_version &version);
        takes a row, or fails the unit. What the version points to is valid
        during the call only.
    void end_page();
        is called when the sink has got all rows of a page.
*/

#ifndef MORVENA_SN_INNODB_API_TRAVERSE_H
#define MORVENA_SN_INNODB_API_TRAVERSE_H

#include <utility>
#include <vector>

#include "innodb_api/latch.h"
#include "innodb_api/leaves.h"
#include "innodb_api/plan.h"
#include "innodb_api/range.h"
#include "innodb_api/row_version.h"
#include "innodb_api/scope.h"
#include "innodb_api/stop.h"
#include "innodb_api/visibility.h"

template <class Sink>
class Traversal {
 public:
  Traversal(const Read_plan &plan, const Read_stop &stop, Index_latch *latch,
            const Range &range, Sink *sink);
  Traversal(const Traversal &) = delete;
  Traversal &operator=(const Traversal &) = delete;

  /** Read the unit to its end. The read holds the index latch, and the thread
      is in the tree. If another worker has failed, return its failure. */
  [[nodiscard]] dberr_t traverse();

 private:
  // A secondary record of the current page, and the key of its clustered
  // record.
  using Pending_pair = std::pair<const rec_t *, dtuple_t *>;

  dberr_t read_page();
  void start_page();
  dberr_t handle_record();
  bool is_visible_in_place(const rec_t *rec);
  dberr_t read_index_only(const rec_t *rec, ulint *offsets);
  dberr_t look_up_pending();
  dberr_t end_page();

  const Read_plan &plan_;
  const Read_stop &stop_;
  dict_index_t *const index_;
  const Range range_;
  const Iter &end_;
  Sink *const sink_;
  Leaf_walk leaves_;
  Visibility visibility_;
  Read_mtr row_mtr_;
  Scratch_heap heap_;  // emptied at a page's end
  Record_offsets offsets_;
  std::vector<Pending_pair> pairs_;
  ReadView *const view_;       // null: the record layout is not used
  bool check_end_ = true;      // whether the unit may end on the current page
  bool page_visible_ = false;  // the view sees all of a secondary index's page
  std::vector<Located_field> located_;
};

#endif  // MORVENA_SN_INNODB_API_TRAVERSE_H
