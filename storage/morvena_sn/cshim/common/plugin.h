// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/plugin.h
  What the plug-in declaration shares with the shutdown guard.
*/

#ifndef MORVENA_SN_COMMON_PLUGIN_H
#define MORVENA_SN_COMMON_PLUGIN_H

/** The name under which the server knows the plug-in. */
#define MORVENA_SN_PLUGIN_NAME "MORVENA_SN"

/** Take the shutdown guard off the server's list, before the code that it calls
    can be unmapped. */
void release_shutdown_guard();

#endif  // MORVENA_SN_COMMON_PLUGIN_H
