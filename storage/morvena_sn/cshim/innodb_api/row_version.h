// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/row_version.h
  What a unit's reading hands to a batch, row by row.
*/

#ifndef MORVENA_SN_INNODB_API_ROW_VERSION_H
#define MORVENA_SN_INNODB_API_ROW_VERSION_H

#include "host/innodb.h"
#include "innodb_api/record_layout.h"

/** A record, or an earlier version of it, that the read may see. Whatever it
    points to holds until the row has been taken. */
struct Row_version {
  const rec_t *rec;             // null: there is none
  ulint *offsets;               // of rec; null: see fields
  const Located_field *fields;  // of rec, a column of the plan each, in place
                                // of the offsets when not null
  lob::undo_vers_t *lob_undo;   // partial updates to take back from its large
                                // values
};

#endif  // MORVENA_SN_INNODB_API_ROW_VERSION_H
