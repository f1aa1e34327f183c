// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Sessions as rows of performance_schema.threads.

#include "common/thread_row.h"

#include <pthread.h>

#include <cstring>
#include <ctime>

#include "host.h"

#include "mysql/psi/mysql_stage.h"
#include "mysql/psi/mysql_thread.h"

namespace thread_row {
namespace {

constexpr char category[] = "morvena_sn";
constexpr char user[] = "morvena_sn";

constexpr size_t n_roles = 2;
constexpr size_t n_states = 4;

struct Instruments {
  Instruments() {
    PSI_thread_info threads[n_roles] = {
        {&roles[0], "cursor", "sn_cursor", 0, 0, "The session of a cursor"},
        {&roles[1], "worker", "sn_worker", 0, 0,
         "The session of a parallel read's worker"}};
    mysql_thread_register(category, threads, n_roles);
    PSI_stage_info *infos[n_states] = {&states[0], &states[1], &states[2],
                                       &states[3]};
    mysql_stage_register(category, infos, n_states);
  }

  PSI_thread_key roles[n_roles] = {};
  PSI_stage_info states[n_states] = {{0, "opening", 0, ""},
                                     {0, "open", 0, ""},
                                     {0, "reading in parallel", 0, ""},
                                     {0, "closing", 0, ""}};
};

// The server keeps what was registered. When the plug-in is loaded again, the
// same names get the same keys.
const Instruments &instruments() {
  static const Instruments registered;
  return registered;
}

}  // namespace

PSI_thread *create(Session_role role) {
  const auto n = static_cast<size_t>(role);
  return PSI_THREAD_CALL(new_thread)(instruments().roles[n], 0, nullptr, 0);
}

void destroy(PSI_thread *row) {
  if (row == nullptr) return;
  // The Bound that bound it puts back the row before it.
  if (PSI_THREAD_CALL(get_thread)() == row) {
    PSI_THREAD_CALL(set_thread)(nullptr);
  }
  PSI_THREAD_CALL(delete_thread)(row);
}

Bound::Bound(PSI_thread *row) : row_(row) {
  if (row_ == nullptr) return;
  previous_ = PSI_THREAD_CALL(get_thread)();
  if (previous_ == row_) return;
  rebinds_ = true;
  pthread_getname_np(pthread_self(), thread_name_, sizeof thread_name_);
  PSI_THREAD_CALL(set_thread)(row_);
  PSI_THREAD_CALL(set_thread_os_id)(row_);
}

Bound::Bound(const THD *session)
    : Bound(session != nullptr ? session->get_psi() : nullptr) {}

Bound::~Bound() {
  if (!rebinds_) return;
  PSI_THREAD_CALL(set_thread)(previous_);
  // Binding a row names the thread after it; binding none leaves that name.
  pthread_setname_np(pthread_self(), thread_name_);
}

void Bound::give_to(THD *session) const {
  if (row_ == nullptr) return;
  session->set_psi(row_);
  PSI_THREAD_CALL(set_thread_id)(row_, session->thread_id());
  PSI_THREAD_CALL(set_thread_user)(user, sizeof user - 1);
}

void Bound::tell(const char *db_name, const char *info) const {
  if (row_ == nullptr) return;
  const size_t db_bytes = db_name != nullptr ? strnlen(db_name, NAME_LEN) : 0;
  const size_t info_bytes = info != nullptr ? strlen(info) : 0;
  PSI_THREAD_CALL(set_thread_command)(COM_DAEMON);
  PSI_THREAD_CALL(set_thread_start_time)(time(nullptr));
  PSI_THREAD_CALL(set_thread_db)
  (db_bytes > 0 ? db_name : "", static_cast<int>(db_bytes));
  PSI_THREAD_CALL(set_thread_info)
  (info_bytes > 0 ? info : "", static_cast<uint>(info_bytes));
}

void Bound::enter(State state) const {
  if (row_ == nullptr) return;
  const auto n = static_cast<size_t>(state);
  mysql_set_stage(instruments().states[n].m_key);
}

void Bound::become_idle() const {
  if (row_ == nullptr) return;
  tell(nullptr, nullptr);
  mysql_end_stage();
  PSI_THREAD_CALL(set_thread_command)(COM_SLEEP);
}

}  // namespace thread_row
