// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file lifecycle.h
  The embedder's start and clean-up, and its plug-in declaration.
*/

#ifndef MORVENA_SN_TESTS_LIFECYCLE_H
#define MORVENA_SN_TESTS_LIFECYCLE_H

namespace harness {

/** The pointer that the server passed to the plug-in's init function. */
void *plugin_handle();

/** Start the plug-in for this embedder and register a call that ends its use
    when the server stops. */
void start_embedding();

}  // namespace harness

#endif  // MORVENA_SN_TESTS_LIFECYCLE_H
