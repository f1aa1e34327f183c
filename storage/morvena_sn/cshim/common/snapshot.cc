// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Snapshots: a cursor's transaction reads through a copy of the donor's view.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <new>
#include <thread>

#include "common.h"
#include "common/counters.h"
#include "host.h"
#include "host/innodb.h"
#include "host/read_view.h"

#include "ha_innodb.h"
#include "lock0guards.h"
#include "read0read.h"
#include "srv0srv.h"
#include "trx0sys.h"
#include "trx0trx.h"

namespace {

// thd_to_trx() gives a session that never used InnoDB its InnoDB part; from
// another session's thread that must not happen.
trx_t *transaction_of(THD *donor) {
  if (thd_get_ha_data(donor, innodb_hton) == nullptr) return nullptr;
  return thd_to_trx(donor);
}

bool has_transaction(const THD *thd) {
  trx_sys_mutex_enter();
  const trx_t *trx = UT_LIST_GET_FIRST(trx_sys->mysql_trx_list);
  while (trx != nullptr && trx->mysql_thd != thd) {
    trx = UT_LIST_GET_NEXT(mysql_trx_list, trx);
  }
  trx_sys_mutex_exit();
  return trx != nullptr;
}

// Donors of our own, which the server's list of sessions does not have.
std::mutex donors_mutex;
std::map<uint32_t, THD *> own_donors;  // under donors_mutex

// While the donor reads system tables, the dictionary's above all, the server
// puts a temporary transaction into the session's InnoDB slot. Its snapshot is
// a different one, and it is freed without the donor's mutex: never copy it.
// The slot is emptied before the session's flag is set, and has the donor's own
// transaction again before the flag is cleared. So what the slot holds before
// and after the flag was seen cleared is the donor's own, if it is the same.
// @return whether the donor can be asked; *trx is its own transaction, null if
// it has none
bool find_own_transaction(THD *donor, trx_t **trx) {
  *trx = transaction_of(donor);
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (donor->is_attachable_transaction_active()) return false;
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (transaction_of(donor) != *trx) return false;
  return *trx != nullptr || !has_transaction(donor);
}

// While trx_sys->mutex is held, nobody removes the donor's view, opens it anew,
// or closes it by the path that takes the mutex. But a statement can close it
// without the mutex, or take it up again if it is still current. So look at the
// view again after copying, and withdraw the copy if the donor has closed it.
// @return whether the transaction has a copy; throws without memory for one
bool copy_view(trx_t *trx, trx_t *donor) {
  const locksys::Global_exclusive_latch_guard latch{UT_LOCATION_HERE};
  trx_sys_mutex_enter();
  trx_mutex_enter(donor);
  const ReadView *view = nullptr;
  const bool open = donor->state.load() == TRX_STATE_ACTIVE &&
                    host::find_open_view(donor->read_view, &view);
  if (open) {
    if (trx->read_view != nullptr) {
      trx_sys->mvcc->view_close(trx->read_view, true);
    }
    trx->read_view = host::clone_read_view(view);
  }
  trx_mutex_exit(donor);
  const bool copied = open && trx->read_view != nullptr;
  if (copied) {
    host::insert_view_after(trx_sys->mvcc, trx->read_view, view);
    const ReadView *again = nullptr;
    if (!host::find_open_view(donor->read_view, &again) || again != view) {
      trx_sys->mvcc->view_close(trx->read_view, true);
    }
  }
  trx_sys_mutex_exit();
  if (open && !copied) throw std::bad_alloc();
  return copied && trx->read_view != nullptr;
}

void withdraw_copy(trx_t *trx) {
  trx_sys_mutex_enter();
  trx_sys->mvcc->view_close(trx->read_view, true);
  trx_sys_mutex_exit();
}

// From here on nobody copies the donor's view. @return its session, null if the
// id names none of ours
THD *take_own_donor(uint32_t id) {
  const std::lock_guard<std::mutex> lock(donors_mutex);
  const auto found = own_donors.find(id);
  if (found == own_donors.end()) return nullptr;
  THD *thd = found->second;
  own_donors.erase(found);
  return thd;
}

// What came of asking a donor for its view.
enum class Answer { COPIED, HAS_NO_VIEW, IS_UNKNOWN, READS_SYSTEM_TABLES };

Answer copy_of(trx_t *trx, trx_t *donor) {
  return copy_view(trx, donor) ? Answer::COPIED : Answer::HAS_NO_VIEW;
}

// A donor of our own cannot end meanwhile: that takes the mutex.
Answer ask_own_donor(trx_t *trx, uint32_t id) {
  const std::lock_guard<std::mutex> lock(donors_mutex);
  const auto found = own_donors.find(id);
  if (found == own_donors.end()) return Answer::IS_UNKNOWN;
  return copy_of(trx, transaction_of(found->second));
}

Answer ask_client(trx_t *trx, uint32_t id) {
  Find_thd_with_id finder = host::find_by_id(id);
  // Holds the donor's mutex to the end: it cannot go away.
  THD_ptr donor = Global_THD_manager::get_instance()->find_thd(&finder);
  if (!donor) return Answer::IS_UNKNOWN;
  trx_t *donor_trx = nullptr;
  if (!find_own_transaction(donor.get(), &donor_trx)) {
    return Answer::READS_SYSTEM_TABLES;
  }
  return donor_trx != nullptr ? copy_of(trx, donor_trx) : Answer::HAS_NO_VIEW;
}

Answer ask_donor(trx_t *trx, uint32_t id) {
  const Answer own = ask_own_donor(trx, id);
  return own != Answer::IS_UNKNOWN ? own : ask_client(trx, id);
}

// Under READ UNCOMMITTED reads look at no view, though there may be one.
bool reads_under_view(const trx_t *trx) {
  return trx->isolation_level != TRX_ISO_READ_UNCOMMITTED &&
         MVCC::is_view_active(trx->read_view);
}

Snapshot assign_view(trx_t *trx) {
  const bool has_one = MVCC::is_view_active(trx->read_view);
  const ReadView *view = trx_assign_read_view(trx);
  if (!has_one && view != nullptr) counters::count(Tally::SNAPSHOTS_TAKEN);
  return reads_under_view(trx) ? Snapshot::OWN : Snapshot::NONE;
}

// Waits as long as for a lock, but for a second at the least: the donor rarely
// reads more than a few pages.
class Wait {
 public:
  /** Waits a little. @return whether it is enough; the error is raised then */
  bool is_over(const trx_t *trx) const {
    if (trx_is_interrupted(trx)) {
      my_error(ER_QUERY_INTERRUPTED, MYF(0));
      return true;
    }
    if (std::chrono::steady_clock::now() >= end_) {
      my_error(ER_LOCK_WAIT_TIMEOUT, MYF(0));
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return false;
  }

 private:
  const std::chrono::steady_clock::time_point end_ =
      std::chrono::steady_clock::now() +
      std::chrono::seconds(
          std::max(current_thd->variables.lock_wait_timeout, 1UL));
};

}  // namespace

Snapshot CommonApi::copy_or_assign_read_view(trx_t *trx,
                                             uint32_t snapshot_donor) {
  if (snapshot_donor == 0) return assign_view(trx);
  if (MVCC::is_view_active(trx->read_view)) return Snapshot::OWN;
  if (srv_read_only_mode) return Snapshot::NONE;
  const Wait wait;
  Answer answer = ask_donor(trx, snapshot_donor);
  while (answer == Answer::READS_SYSTEM_TABLES) {
    if (wait.is_over(trx)) return Snapshot::FAILED;
    answer = ask_donor(trx, snapshot_donor);
  }
  if (answer == Answer::IS_UNKNOWN) return Snapshot::UNKNOWN_DONOR;
  if (answer == Answer::HAS_NO_VIEW) return Snapshot::NONE;
  // A statement that checks whether it can reuse its last view briefly marks it
  // open, although purge may already have passed it.
  if (host::purge_has_passed(trx->read_view)) {
    withdraw_copy(trx);
    return Snapshot::NONE;
  }
  counters::count(Tally::SNAPSHOTS_COPIED);
  return reads_under_view(trx) ? Snapshot::DONORS : Snapshot::NONE;
}

Snapshot CommonApi::start_transaction(THD *thd, uint32_t snapshot_donor) {
  trx_t *trx = thd_to_trx(thd);
  host::start_read_transaction(trx);
  // An error that is there already would hide those of the steps to come.
  thd->clear_error();
  return copy_or_assign_read_view(trx, snapshot_donor);
}

bool CommonApi::has_snapshot(THD *thd) {
  const trx_t *trx = transaction_of(thd);
  return trx != nullptr && reads_under_view(trx);
}

uint32_t CommonApi::make_donor(THD *thd) {
  // Makes the transaction: the session has not used InnoDB.
  trx_t *trx = check_trx_exists(thd);
  host::start_read_transaction(trx);
  // A server that takes no changes has no views and needs none.
  if (trx_assign_read_view(trx) == nullptr && !srv_read_only_mode) {
    throw std::bad_alloc();
  }
  const std::lock_guard<std::mutex> lock(donors_mutex);
  own_donors.emplace(thd->thread_id(), thd);
  return thd->thread_id();
}

THD *CommonApi::drop_donor(uint32_t id) {
  THD *thd = take_own_donor(id);
  if (thd == nullptr) return nullptr;
  // Only its own session may end a transaction.
  thd_attach(thd, nullptr);
  // The server does not know of the transaction, since no statement began it,
  // and would not end it.
  trx_commit_for_mysql(transaction_of(thd));
  return thd;
}

std::vector<uint32_t> CommonApi::donors() {
  const std::lock_guard<std::mutex> lock(donors_mutex);
  std::vector<uint32_t> ids;
  for (const auto &[id, thd] : own_donors) ids.push_back(id);
  return ids;
}
