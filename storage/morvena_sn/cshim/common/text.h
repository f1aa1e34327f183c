// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/text.h
  Texts that may not fit where they go. Needs no server.
*/

#ifndef MORVENA_SN_COMMON_TEXT_H
#define MORVENA_SN_COMMON_TEXT_H

#include <cstddef>

/** Copy a text into a buffer of so many bytes, terminating zero included. A
   text that does not fit, or fills the buffer because it was cut before, ends
   with its last whole character of UTF-8. */
void copy_text(char *to, size_t bytes, const char *text);

#endif  // MORVENA_SN_COMMON_TEXT_H
