// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host/version.h
  Which host versions the code is built for. This is the only place that
  compares version numbers. How a host differs from others is not decided here:
  host.h and host/ ask the host's own declarations.

  HOST_VERSION_REMARK is a text that follows "MySQL 9.8.0 ", and is empty for a
  known version. tools/host.sh and the build inside a server tree print it.

  To make a version known: read what its sources changed in the operations that
  host.h and host/ wrap, run the tests on it, and extend the ranges below.
*/

#ifndef MORVENA_SN_HOST_VERSION_H
#define MORVENA_SN_HOST_VERSION_H

#include "mysql_version.h"

#define HOST_IS_FROM(first, last) \
  (MYSQL_VERSION_ID >= (first) && MYSQL_VERSION_ID <= (last))

// A release newer than the known ones is let in, of a known series or of a
// later one: it is more likely to fit than not, and the compiler, the check of
// the symbols and the tests show whether it does. The major number says little
// of the size of the step: 9.0 was the next release after 8.4.
#define HOST_IS_NEWER_THAN(known)                  \
  "is newer than the newest that is known, " known \
  "; building with what is known of it; the tests decide"

#if HOST_IS_FROM(80027, 80027) || HOST_IS_FROM(80030, 80030) || \
    HOST_IS_FROM(80032, 80045) || HOST_IS_FROM(90700, 90704)
#define HOST_VERSION_REMARK ""

#elif HOST_IS_FROM(80400, 80408)
#define HOST_VERSION_REMARK \
  "is known from its sources only and was never built; the tests decide"

#elif HOST_IS_FROM(80046, 80099)
#define HOST_VERSION_REMARK HOST_IS_NEWER_THAN("8.0.45")
#elif HOST_IS_FROM(80409, 80499)
#define HOST_VERSION_REMARK HOST_IS_NEWER_THAN("8.4.8")
#elif MYSQL_VERSION_ID >= 90705
#define HOST_VERSION_REMARK HOST_IS_NEWER_THAN("9.7.4")

// 8.0.28, 8.0.29 and 8.0.31 were not seen, nor the series between 8.0 and 8.4
// and between 8.4 and 9.7: there the host changed, in steps that nobody read.
#else
#error "morvena_sn: not built for this MySQL version; see cshim/host/version.h"
#endif

#endif  // MORVENA_SN_HOST_VERSION_H
