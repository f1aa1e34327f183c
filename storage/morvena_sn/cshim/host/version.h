/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file host/version.h
  The host versions that the code knows, turned into named facts. This is the
  only place that compares version numbers; host.h bridges what they name.

  To add a version: read what its headers and sources changed in the operations
  that host.h and host/ wrap, extend the range below, add a fact where one
  differs, and run the tests on it.
*/

#ifndef MORVENA_SN_HOST_VERSION_H
#define MORVENA_SN_HOST_VERSION_H

#include "mysql_version.h"

#if !(MYSQL_VERSION_ID >= 80027 && MYSQL_VERSION_ID <= 80045) && \
    !(MYSQL_VERSION_ID >= 90700 && MYSQL_VERSION_ID < 90800)
#error \
    "morvena_sn: unknown MySQL version; see cshim/host/version.h for how to add one"
#endif

/** Code locations travel as ut::Location, not as file and line; row and record
    routines take the index and no transaction. Seen in 8.0.30 and later, not in
    8.0.27. */
#define HOST_TAKES_LOCATION (MYSQL_VERSION_ID > 80027)

/** key_cmp() takes a fourth argument. Seen in 8.0.42 and later, not in 8.0.41. */
#define HOST_KEY_CMP_TAKES_MULTI_VALUED (MYSQL_VERSION_ID > 80041)

/** Rectangles are compared by mbr_equal_physically(), and not by mbr_equal_cmp()
    in their reference system. Seen in 8.0.41 and later, not in 8.0.40. */
#define HOST_HAS_MBR_EQUAL_PHYSICALLY (MYSQL_VERSION_ID > 80040)

/** Virtual columns are computed for a table and not for an index. Seen in 8.0.43
    and later, not in 8.0.42. */
#define HOST_COMPUTES_FOR_TABLE (MYSQL_VERSION_ID > 80042)

/** TIME values are a Time_val, and Field has no val_time_temporal(). Seen in
    9.7. */
#define HOST_HAS_TIME_VAL (MYSQL_VERSION_ID >= 90000)

/** Debug builds keep ReadView::m_view_low_limit_no. Seen in 8.0. */
#define HOST_DEBUG_VIEW_LOW_LIMIT_NO (MYSQL_VERSION_ID < 90000)

#endif  // MORVENA_SN_HOST_VERSION_H
