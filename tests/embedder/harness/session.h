// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file session.h
  The server's side of a cursor's session, for cases that look at it or kill it.
*/

#ifndef MORVENA_SN_TESTS_SESSION_H
#define MORVENA_SN_TESTS_SESSION_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace harness {

/** The calling thread's current session; after a cursor function, the
    cursor's. */
void *current_session();

/** A client's, the calling thread's current session while it lives. */
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

/** Make it the calling thread's. */
void restore_session(void *session);

/** Whether it was bound to the calling thread last. */
bool is_of_this_thread(void *session);

/** Its connection id. */
uint32_t session_id(void *session);

/** End its statement, as KILL QUERY does with a client's. */
void kill_session(void *session);

/** Have its statement begin at this moment. */
void start_statement(void *session);

/** Have its statement have begun that many seconds earlier. */
void age_statement(void *session, long seconds);

/** The lock_wait_timeout that it waits with, in seconds. */
unsigned long lock_wait_timeout(void *session);

/** What it does, as the process list would say; "" for nothing. */
std::string session_state(void *session);

/** How many warnings its statement has. */
size_t warnings(void *session);

struct Session_error {
  unsigned int number;
  std::string text;
};

/** What its last statement reported; number 0 for nothing. */
Session_error session_error(void *session);

}  // namespace harness

#endif  // MORVENA_SN_TESTS_SESSION_H
