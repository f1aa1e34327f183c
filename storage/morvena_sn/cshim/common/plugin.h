/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

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
