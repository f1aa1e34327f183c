// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/stop.h
  What ends a read before its time: the first failure of a worker, or a kill.

  Each step of a read returns its result, and stops when that is not DB_SUCCESS.
  The worker that runs the steps records the failure here. The other workers
  check it between rows.
*/

#ifndef MORVENA_SN_INNODB_API_STOP_H
#define MORVENA_SN_INNODB_API_STOP_H

#include <atomic>

#include "host/innodb.h"

class Read_stop {
 public:
  /** @param trx  the transaction of the cursor's session */
  explicit Read_stop(const trx_t *trx) : trx_(trx) {}
  Read_stop(const Read_stop &) = delete;
  Read_stop &operator=(const Read_stop &) = delete;

  dberr_t get_error() const { return error_.load(); }
  /** Record a failure; the first one stays. If the session is killed, record
      the kill instead, because it causes the other failures. */
  void set_error(dberr_t err) {
    if (trx_is_interrupted(trx_)) err = DB_INTERRUPTED;
    dberr_t none = DB_SUCCESS;
    error_.compare_exchange_strong(none, err);
  }
  /** @return DB_SUCCESS if the read goes on */
  [[nodiscard]] dberr_t reason_to_stop() const {
    return trx_is_interrupted(trx_) ? DB_INTERRUPTED : get_error();
  }

 private:
  const trx_t *const trx_;
  std::atomic<dberr_t> error_{DB_SUCCESS};
};

#endif  // MORVENA_SN_INNODB_API_STOP_H
