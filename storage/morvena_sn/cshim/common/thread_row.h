// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/thread_row.h
  Sessions as rows of performance_schema.threads.

  A session is no thread, but the server files what is waited for and locked
  under the row that is bound to the calling thread. So each session has a row,
  which is bound while the session opens and closes its table, and during a
  parallel read. Metadata locks lead to it by their OWNER_THREAD_ID.

  Steps and typed reads leave the caller's row in place: binding one costs
  system calls, since the server names the thread after it.

  Without performance_schema a session has no row, and all of this does nothing.
*/

#ifndef MORVENA_SN_COMMON_THREAD_ROW_H
#define MORVENA_SN_COMMON_THREAD_ROW_H

#include <cstdint>

struct PSI_thread;
class THD;

/** Whom a session serves; the row's name says it. */
enum class Session_role { CURSOR, WORKER };

namespace thread_row {

/** What a row says its session does: PROCESSLIST_STATE. Meanwhile the server
    says what it waits for. */
enum class State { OPENING, OPEN, READING, CLOSING };

/** @return a row, null without performance_schema */
PSI_thread *create(Session_role role);

/** The row ends; its session is gone. */
void destroy(PSI_thread *row);

/** Binds a row to the calling thread for as long as it lives; then the row that
    was bound before is bound again. A null row changes nothing. */
class Bound {
 public:
  explicit Bound(PSI_thread *row);
  /** The row of a session; the session may be null. */
  explicit Bound(const THD *session);
  ~Bound();
  Bound(const Bound &) = delete;
  Bound &operator=(const Bound &) = delete;

  /** Make this the row of a session: the row gets the session's id. */
  void give_to(THD *session) const;
  /** What the session works on, until it is idle. Null names are left out. */
  void tell(const char *db_name, const char *info) const;
  void enter(State state) const;
  /** The session waits for its next user. */
  void become_idle() const;

 private:
  static constexpr int name_bytes = 16;  // as Linux limits a thread's name

  PSI_thread *const row_;
  PSI_thread *previous_ = nullptr;
  bool rebinds_ = false;
  char thread_name_[name_bytes] = "";
};

/** Binds the row of a cursor's session for a parallel read. */
class Reading {
 public:
  explicit Reading(const THD *session) : row_(session) {
    row_.enter(State::READING);
  }
  ~Reading() { row_.enter(State::OPEN); }
  Reading(const Reading &) = delete;
  Reading &operator=(const Reading &) = delete;

 private:
  const Bound row_;
};

}  // namespace thread_row

#endif  // MORVENA_SN_COMMON_THREAD_ROW_H
