// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor/open.h
  Opening a cursor of any kind: session, table, lock, snapshot, cursor. When a
  step fails, everything is given back in reverse order.
*/

#ifndef MORVENA_SN_CURSOR_OPEN_H
#define MORVENA_SN_CURSOR_OPEN_H

#include <memory>

#include "common/thread_row.h"
#include "cursor.h"
#include "cursor/handles.h"

/** What to open. */
struct Open_request {
  const char *db_name;
  const char *table_name;
  const char *index_name;   // null: the whole table
  bool index_only;          // of a cursor on an index
  uint32_t snapshot_donor;  // 0: none
  int timeout_sec;
};

/** Where an opening reports; either pointer may be null. */
struct Open_report {
  unsigned int *error;
  char *message;
};

/** Makes a cursor's wrapper; null when there is no such cursor, with the reason
    in the session's diagnostics area. May throw. */
using Make_wrapper = std::unique_ptr<CursorWrapper> (*)(
    const Open_request &request, const Opened &opened);

/** @return the handle, 0 on failure. Throws nothing. */
[[nodiscard]] uintptr_t open_handle(const Open_request &request,
                                    Make_wrapper make,
                                    const Open_report &report);

/** Open a snapshot: a session of ours that is a donor.
    @return the id to name it by, 0 on failure. Throws nothing. */
[[nodiscard]] uint32_t open_donor(const Open_report &report);
/** Nothing for an id that names no such donor. */
void close_donor(uint32_t id);

/** Read a cursor of either kind in parallel. @return whether the read is
    complete */
template <class Cursor>
bool read_in_parallel(CursorWrapper *wrapper, Cursor *cursor, size_t n_threads,
                      Parallel_load_func fn, void *argument) {
  Call call(wrapper);
  if (!call) return false;
  const thread_row::Reading row(wrapper->thd);
  if (fn == nullptr) {
    wrapper->state.failure.set_wrong_argument("a callback");
    return false;
  }
  return call.run(
      false, [&] { return cursor->advance_parallel(n_threads, fn, argument); });
}

/** Run a function that may throw; what it throws becomes the failure result. */
template <class Result, class Function>
Result guarded(Result failure, Function function) {
  try {
    return function();
  } catch (...) {
    return failure;
  }
}

#endif  // MORVENA_SN_CURSOR_OPEN_H
