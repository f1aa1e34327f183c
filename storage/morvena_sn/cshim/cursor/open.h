/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file cursor/open.h
  Opening a cursor of any kind: session, table, lock, cursor, and everything
  back in reverse order when a step fails.
*/

#ifndef MORVENA_SN_CURSOR_OPEN_H
#define MORVENA_SN_CURSOR_OPEN_H

#include <functional>

#include "cursor/handles.h"

/** What to open. */
struct Open_request {
  const char *db_name;
  const char *table_name;
  int timeout_sec;
};

/** Where an opening reports; either pointer may be null. */
struct Open_report {
  unsigned int *error;
  char *message;
};

/** Makes a cursor's wrapper on a locked table in an attached session; null when
    there is no such cursor. May throw. */
using Make_wrapper = std::function<CursorWrapper *(void *thd, void *table)>;

/** @return the handle, 0 on failure. Throws nothing. */
uintptr_t open_handle(const Open_request &request, const Make_wrapper &make,
                      const Open_report &report);

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
