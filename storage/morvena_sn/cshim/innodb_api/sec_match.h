// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/sec_match.h
  Whether a secondary entry belongs to a version of its row.
*/

#ifndef MORVENA_SN_INNODB_API_SEC_MATCH_H
#define MORVENA_SN_INNODB_API_SEC_MATCH_H

#include "host/innodb.h"

/**
  Compare the columns of a secondary entry with those of a clustered record, by
  their collations; a delete-marked clustered record matches nothing.

  @param[out] is_equal  whether every column matches
  @return DB_SUCCESS, or why a column's value could not be computed
*/
dberr_t row_sel_sec_rec_is_for_clust_rec(const rec_t *sec_rec,
                                         const dict_index_t *sec_index,
                                         const rec_t *clust_rec,
                                         const dict_index_t *clust_index,
                                         trx_t *trx, TABLE *mysql_table,
                                         bool &is_equal);

#endif  // MORVENA_SN_INNODB_API_SEC_MATCH_H
