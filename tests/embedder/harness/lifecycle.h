/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

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
