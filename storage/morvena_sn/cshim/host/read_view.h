// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host/read_view.h
  What InnoDB does not offer for read views: making a copy of one that is open
  in another transaction, and linking it into the list of open views, so that
  purge keeps what the copy sees.
*/

#ifndef MORVENA_SN_HOST_READ_VIEW_H
#define MORVENA_SN_HOST_READ_VIEW_H

class MVCC;
class ReadView;

namespace host {

/** Whether a transaction's view pointer leads to an open view; *open is the
    view then. Without the mutex, closing tags the pointer and sets the view's
    flag in two steps: the view counts as closed if either is set. The caller
    holds the mutex of the transaction system. */
[[nodiscard]] bool find_open_view(ReadView *tagged, const ReadView **open);

/**
  Copy an open view, with the same creator: the creator's own changes are
  visible through the copy, which is not in the list of open views yet. The
  caller holds the mutex of the transaction system. @return the copy, null
  without memory
*/
[[nodiscard]] ReadView *clone_read_view(const ReadView *from);

/** Link a copy directly after the view it was made from, which keeps the list's
    order. The caller holds the mutex of the transaction system. */
void insert_view_after(MVCC *mvcc, ReadView *view, const ReadView *after);

/** Whether purge has removed what a linked view needs. The caller holds no
   mutex of the transaction system and no lock-system latch. */
[[nodiscard]] bool purge_has_passed(const ReadView *view);

}  // namespace host

#endif  // MORVENA_SN_HOST_READ_VIEW_H
