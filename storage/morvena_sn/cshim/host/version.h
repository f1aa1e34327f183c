// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host/version.h
  Which MySQL versions the code is built for, and the facts in which they
  differ. This is the only place that compares version numbers.

  A fact is a macro that is 1 or 0 and names one difference; host.h and host/
  choose by facts alone. The compiler and the check of the symbols show a fact
  that is wrong for a host: the forms do not fit each other.

  HOST_VERSION_REMARK is a text that follows "MySQL 9.8.0 ", and is empty for a
  known version. tools/host.sh and the build inside a server tree print it.

  To make a version known: read what its sources changed in the operations that
  host.h and host/ wrap, add a fact where one differs, run the tests on it, and
  extend the ranges below.
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

// --- Facts ---

// A change came to 8.0 in one release and to 8.4 in another; 9.7 has them all.
// Of what changed between 8.0.27 and 8.0.30 no release between them was seen.
#define HOST_SINCE(in_8_0, in_8_4)                          \
  (MYSQL_VERSION_ID >= 80400 ? MYSQL_VERSION_ID >= (in_8_4) \
                             : MYSQL_VERSION_ID >= (in_8_0))

// Headers that have moved, or are there at all.
#define HOST_HAS_MY_DECIMAL_IN_SQL_COMMON HOST_SINCE(80400, 80400)
#define HOST_HAS_M_CTYPE_IN_MYSQL_STRINGS HOST_SINCE(80400, 80400)
#define HOST_HAS_MYSQLD_CS_H HOST_SINCE(80400, 80400)

// The search for a session by its id takes a word on daemon sessions.
#define HOST_FINDER_TAKES_DAEMONS HOST_SINCE(80032, 80400)

// key_cmp() takes a fourth argument, about reading a multi-valued index
// backward.
#define HOST_KEY_CMP_TAKES_DIRECTION HOST_SINCE(80042, 80405)

// Field::store_timestamp() takes a my_timeval, not a timeval.
#define HOST_HAS_MY_TIMEVAL HOST_SINCE(80030, 80400)

// Times and dates have types of their own, Time_val and Date_val; Field has no
// val_time_temporal().
#define HOST_HAS_TIME_VAL (MYSQL_VERSION_ID >= 90700)

// What takes a place in the code as a ut::Location. Before, latches, heaps,
// offsets and page fetches were macros or took a file and a line.
#define HOST_LATCH_TAKES_LOCATION HOST_SINCE(80030, 80400)
#define HOST_HEAP_TAKES_LOCATION HOST_SINCE(80030, 80400)
#define HOST_OFFSETS_TAKE_LOCATION HOST_SINCE(80030, 80400)
#define HOST_PAGE_FETCH_TAKES_LOCATION HOST_SINCE(80030, 80400)

// What takes the mini-transaction, or the transaction, beside the rest.
#define HOST_PAGE_LEVEL_TAKES_MTR (!HOST_SINCE(80030, 80400))
#define HOST_KEY_CONVERSION_TAKES_TRX (!HOST_SINCE(80030, 80400))
#define HOST_ROW_REFERENCE_TAKES_TRX (!HOST_SINCE(80030, 80400))

// The fields of a record are found with its index, not by offsets alone.
#define HOST_RECORD_FIELDS_TAKE_INDEX HOST_SINCE(80030, 80400)

// Columns are added and dropped instantly by row versions.
#define HOST_HAS_ROW_VERSIONS HOST_SINCE(80030, 80400)

// Virtual columns are computed for a table, not for an index.
#define HOST_COMPUTES_FOR_TABLE HOST_SINCE(80043, 80406)

// Rectangles are compared by mbr_equal_physically(), without their reference
// system.
#define HOST_HAS_MBR_EQUAL_PHYSICALLY HOST_SINCE(80041, 80404)

// An index keeps its statistics in a structure.
#define HOST_HAS_STATISTICS_STRUCTURE (MYSQL_VERSION_ID >= 90700)

#endif  // MORVENA_SN_HOST_VERSION_H
