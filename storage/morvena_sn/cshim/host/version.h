/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file host/version.h
  The host versions that the code knows. This is the only place that compares
  version numbers. How a host differs from others is not decided here: host.h
  and host/ ask the host's own declarations.

  To add a version: read what its sources changed in the operations that host.h
  and host/ wrap, extend the range below, and run the tests on it.
*/

#ifndef MORVENA_SN_HOST_VERSION_H
#define MORVENA_SN_HOST_VERSION_H

#include "mysql_version.h"

#if !(MYSQL_VERSION_ID >= 80027 && MYSQL_VERSION_ID <= 80045) && \
    !(MYSQL_VERSION_ID >= 90700 && MYSQL_VERSION_ID < 90800)
#error \
    "morvena_sn: unknown MySQL version; see cshim/host/version.h for how to add one"
#endif

#endif  // MORVENA_SN_HOST_VERSION_H
