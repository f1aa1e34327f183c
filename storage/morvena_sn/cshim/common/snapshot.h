// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/snapshot.h
  What came of asking for a snapshot.
*/

#ifndef MORVENA_SN_COMMON_SNAPSHOT_H
#define MORVENA_SN_COMMON_SNAPSHOT_H

/** What a transaction reads under once it has asked for a snapshot. */
enum class Snapshot {
  DONORS,  // a copy of the donor's read view
  OWN,     // a read view of its own
  NONE,    // no read view; the first read takes one, unless the server is
           // read-only or the isolation level is READ UNCOMMITTED
  UNKNOWN_DONOR,  // the same, and no session has the donor's id
  FAILED          // the donor could not be asked; the error is raised
};

#endif  // MORVENA_SN_COMMON_SNAPSHOT_H
