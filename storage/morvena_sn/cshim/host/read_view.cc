// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Copies of read views. The members that the copy needs are private in InnoDB;
// an explicit template instantiation may name them.

#include "host/read_view.h"

#include "host.h"
#include "host/innodb.h"

#include "read0read.h"
#include "trx0purge.h"
#include "trx0sys.h"
#include "trx0trx.h"
#include "ut0new.h"

namespace {

template <class Tag, auto Pointer>
struct Expose {
  friend constexpr auto member(Tag) { return Pointer; }
};

#define EXPOSE(TAG, POINTER)           \
  struct TAG {                         \
    friend constexpr auto member(TAG); \
  };                                   \
  template struct Expose<TAG, POINTER>

EXPOSE(View_closed, &ReadView::m_closed);
EXPOSE(View_low_limit_id, &ReadView::m_low_limit_id);
EXPOSE(View_up_limit_id, &ReadView::m_up_limit_id);
EXPOSE(View_creator, &ReadView::m_creator_trx_id);
EXPOSE(View_ids, &ReadView::m_ids);
EXPOSE(View_low_limit_no, &ReadView::m_low_limit_no);
EXPOSE(Ids_assign, &ReadView::ids_t::assign);
EXPOSE(Ids_pointer, &ReadView::ids_t::m_ptr);
EXPOSE(Ids_size, &ReadView::ids_t::m_size);
EXPOSE(Mvcc_free, &MVCC::m_free);
EXPOSE(Mvcc_views, &MVCC::m_views);

#undef EXPOSE

// InnoDB keeps unused views, and at shutdown it frees them with its own
// allocator: a copy comes from there, or is made by that allocator.
ReadView *take_unused_view() {
  auto &unused = trx_sys->mvcc->*member(Mvcc_free{});
  ReadView *view = UT_LIST_GET_FIRST(unused);
  if (view != nullptr) {
    UT_LIST_REMOVE(unused, view);
    return view;
  }
  return ut::new_withkey<ReadView>(UT_NEW_THIS_FILE_PSI_KEY);
}

}  // namespace

namespace host {

bool find_open_view(ReadView *tagged, const ReadView **open) {
  if (tagged == nullptr || !MVCC::is_view_active(tagged)) return false;
  *open = tagged;
  return !(tagged->*member(View_closed{}));
}

ReadView *clone_read_view(const ReadView *from) {
  ReadView *copy = take_unused_view();
  if (copy == nullptr) return nullptr;
  // Debug builds of 8.0 and 8.4 keep a further number, m_view_low_limit_no, for
  // a status variable alone; the copy leaves it.
  const auto &ids = from->*member(View_ids{});
  const trx_id_t *first = ids.*member(Ids_pointer{});
  (copy->*member(View_ids{}).*member(Ids_assign{}))(
      first, first + ids.*member(Ids_size{}));
  copy->*member(View_low_limit_id{}) = from->*member(View_low_limit_id{});
  copy->*member(View_up_limit_id{}) = from->*member(View_up_limit_id{});
  copy->*member(View_low_limit_no{}) = from->*member(View_low_limit_no{});
  copy->*member(View_creator{}) = from->*member(View_creator{});
  copy->*member(View_closed{}) = false;
  return copy;
}

void insert_view_after(MVCC *mvcc, ReadView *view, const ReadView *after) {
  UT_LIST_INSERT_AFTER(mvcc->*member(Mvcc_views{}),
                       const_cast<ReadView *>(after), view);
}

bool purge_has_passed(const ReadView *view) {
  host::s_lock(&purge_sys->latch, 0);
  // Of two views the later one has the higher numbers. low_limit_no() alone is
  // not enough: purge keeps it back while it waits for transactions' names to
  // be written.
  const ReadView &purges = purge_sys->view;
  const bool passed = view->low_limit_no() < purges.low_limit_no() ||
                      view->low_limit_id() < purges.low_limit_id();
  host::s_unlock(&purge_sys->latch, 0);
  return passed;
}

}  // namespace host
