// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/row_version.h
  One row, as the reading of a unit hands it to a batch.
*/

#ifndef MORVENA_SN_INNODB_API_ROW_VERSION_H
#define MORVENA_SN_INNODB_API_ROW_VERSION_H

#include "host/innodb.h"
#include "innodb_api/record_layout.h"

/** A record, or an earlier version of it, that the read may see. What it points
    to stays valid until the sink has taken the row. */
struct Row_version {
  const rec_t *rec;             // null: there is none
  ulint *offsets;               // of rec; null: see fields
  const Located_field *fields;  // of rec, one for each column of the plan; if
                                // not null, they replace the offsets
  lob::undo_vers_t *lob_undo;   // partial updates to undo in its large values
};

#endif  // MORVENA_SN_INNODB_API_ROW_VERSION_H
