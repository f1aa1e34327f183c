// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file session.h
  The server's side of a cursor's session. Cases use it to look at the session
  or to kill it.
*/

#ifndef MORVENA_SN_TESTS_SESSION_H
#define MORVENA_SN_TESTS_SESSION_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace harness {

/** The calling thread's current session. After a call of a cursor function, it
    is the session of that cursor. */
void *current_session();

/** A client's session. It is the calling thread's current session while this
    object lives. */
class Client_session {
 public:
  Client_session();
  ~Client_session();
  Client_session(const Client_session &) = delete;
  Client_session &operator=(const Client_session &) = delete;
  void *get() const { return session_; }

 private:
  void *session_;
};

/** Make a session the calling thread's current session. */
void restore_session(void *session);

/** Whether the calling thread is the last one that the session was bound to. */
bool is_of_this_thread(void *session);

/** The session's connection id. */
uint32_t session_id(void *session);

/** End the session's statement, as KILL QUERY ends a client's. */
void kill_session(void *session);

/** Set the start of the session's statement to this moment. */
void start_statement(void *session);

/** Move the start of the session's statement that many seconds back. */
void age_statement(void *session, long seconds);

/** The session's lock_wait_timeout in seconds. */
unsigned long lock_wait_timeout(void *session);

/** The session's state, as the process list shows it; "" if it has none. */
std::string session_state(void *session);

/** How many warnings the session's statement has. */
size_t warnings(void *session);

struct Session_error {
  unsigned int number;
  std::string text;
};

/** The error that the session's last statement reported; number 0 if none. */
Session_error session_error(void *session);

}  // namespace harness

#endif  // MORVENA_SN_TESTS_SESSION_H
