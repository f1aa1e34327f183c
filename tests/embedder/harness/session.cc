/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

#include "session.h"

#include "my_config.h"

#include "sql/current_thd.h"
#include "sql/sql_class.h"
#include "sql/sql_error.h"

namespace harness {

namespace {
THD *thd_of(void *session) { return static_cast<THD *>(session); }
}  // namespace

void *current_session() { return current_thd; }

uint32_t session_id(void *session) { return thd_of(session)->thread_id(); }

void kill_session(void *session) {
  THD *thd = thd_of(session);
  mysql_mutex_lock(&thd->LOCK_thd_data);
  thd->awake(THD::KILL_QUERY);
  mysql_mutex_unlock(&thd->LOCK_thd_data);
}

unsigned long lock_wait_timeout(void *session) {
  return thd_of(session)->variables.lock_wait_timeout;
}

std::string session_state(void *session) {
  const char *state = thd_of(session)->proc_info();
  return state != nullptr ? state : "";
}

Session_error session_error(void *session) {
  const Diagnostics_area *da = thd_of(session)->get_stmt_da();
  if (!da->is_error()) return {0, ""};
  return {da->mysql_errno(), da->message_text()};
}

}  // namespace harness
