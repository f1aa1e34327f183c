// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file lifecycle.h
  The embedder's life: its plug-in declaration, its start and its clean-up.
*/

#ifndef MORVENA_SN_TESTS_LIFECYCLE_H
#define MORVENA_SN_TESTS_LIFECYCLE_H

namespace harness {

/** What the server handed to the plug-in's init function. */
void *plugin_handle();

/** Start the reading functions and have them stopped with the server. */
void start_embedding();

}  // namespace harness

#endif  // MORVENA_SN_TESTS_LIFECYCLE_H
