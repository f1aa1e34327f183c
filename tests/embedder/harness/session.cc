// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "session.h"

#include "my_config.h"

#include "sql/current_thd.h"
#include "sql/protocol_classic.h"
#include "sql/sql_class.h"
#include "sql/sql_error.h"

namespace harness {

namespace {
THD *thd_of(void *session) { return static_cast<THD *>(session); }
}  // namespace

void *current_session() { return current_thd; }

Client_session::Client_session() : session_(new THD(true)) {
  THD *thd = thd_of(session_);
  thd->get_protocol_classic()->init_net(nullptr);
  thd->set_new_thread_id();
  thd->thread_stack = reinterpret_cast<char *>(this);
  thd->store_globals();
}

Client_session::~Client_session() {
  THD *thd = thd_of(session_);
  thd->store_globals();
  thd->get_protocol_classic()->end_net();
  thd->release_resources();
  delete thd;
}

void restore_session(void *session) { thd_of(session)->store_globals(); }

bool is_of_this_thread(void *session) {
  return my_thread_equal(thd_of(session)->real_id, my_thread_self());
}

uint32_t session_id(void *session) { return thd_of(session)->thread_id(); }

void kill_session(void *session) {
  THD *thd = thd_of(session);
  mysql_mutex_lock(&thd->LOCK_thd_data);
  thd->awake(THD::KILL_QUERY);
  mysql_mutex_unlock(&thd->LOCK_thd_data);
}

void start_statement(void *session) { thd_of(session)->set_time(); }

void age_statement(void *session, long seconds) {
  thd_of(session)->start_time.tv_sec -= seconds;
}

unsigned long lock_wait_timeout(void *session) {
  return thd_of(session)->variables.lock_wait_timeout;
}

std::string session_state(void *session) {
  const char *state = thd_of(session)->proc_info();
  return state != nullptr ? state : "";
}

size_t warnings(void *session) {
  return thd_of(session)->get_stmt_da()->current_statement_cond_count();
}

Session_error session_error(void *session) {
  const Diagnostics_area *da = thd_of(session)->get_stmt_da();
  if (!da->is_error()) return {0, ""};
  return {da->mysql_errno(), da->message_text()};
}

}  // namespace harness
