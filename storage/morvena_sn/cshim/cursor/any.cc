// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The exported functions for handles of every kind, and for snapshots.

#include "common.h"
#include "cursor.h"
#include "cursor/open.h"
#include "host.h"

namespace {

// Not beside a parallel read, which may be taking its snapshot.
using Any_use = Handle_use<CursorWrapper, Use::ALONE>;

constexpr unsigned int no_handle = ER_WRONG_ARGUMENTS;

unsigned int tell(const char **message, unsigned int code, const char *text) {
  if (message != nullptr) *message = text;
  return code;
}

}  // namespace

unsigned int cursor_error(uintptr_t handle, const char **message) {
  const CursorWrapper *wrapper = wrapper_of<CursorWrapper>(handle);
  if (wrapper == nullptr) return tell(message, no_handle, "Not a cursor");
  if (!wrapper->open) return tell(message, no_handle, "The cursor is closed");
  const Failure &failure = wrapper->state.failure;
  return tell(message, failure.code(), failure.text());
}

void cursor_cancel(uintptr_t handle) {
  CursorWrapper *wrapper = wrapper_of<CursorWrapper>(handle);
  if (wrapper != nullptr && wrapper->open) wrapper->calls->cancel();
}

bool cursor_progress(uintptr_t handle, uint64_t *rows, uint64_t *pages,
                     uint64_t *pages_estimated) {
  const CursorWrapper *wrapper = wrapper_of<CursorWrapper>(handle);
  if (wrapper == nullptr || !wrapper->open) return false;
  const Progress &progress = wrapper->state.progress;
  if (rows != nullptr) *rows = progress.rows;
  if (pages != nullptr) *pages = progress.pages;
  if (pages_estimated != nullptr) *pages_estimated = progress.pages_estimated;
  return true;
}

int cursor_snapshot(uintptr_t cursor) {
  const Any_use use(cursor);
  if (!use) return 0;
  if (use->first_snapshot == Snapshot::DONORS) return 1;
  return CommonApi::has_snapshot(use->thd) ? 2 : 0;
}

uint32_t open_snapshot(unsigned int *error, char *message) {
  return open_donor({error, message});
}

void close_snapshot(uint32_t donor) { close_donor(donor); }

const char *morvena_sn_version(void) { return MORVENA_SN_VERSION; }
