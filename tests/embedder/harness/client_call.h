// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file client_call.h
  Runs code of a case on the server's thread for a client, inside one of the
  client's statements. The SQL function of an embedder runs in the same way.
*/

#ifndef MORVENA_SN_TESTS_CLIENT_CALL_H
#define MORVENA_SN_TESTS_CLIENT_CALL_H

#include <functional>
#include <future>
#include <string>

#include "client.h"

namespace harness {

/** Run f on the server's thread for the client. The client's session is the
    thread's current session before and after the call.
    @param hint  an optimizer hint for the SELECT, with its comment signs */
std::future<Reply> call_on_client_thread(Client &client,
                                         std::function<void()> f,
                                         const std::string &hint = "");

/** Called by the runner: make the call with that number. */
void make_client_call(const std::string &number);

}  // namespace harness

#endif  // MORVENA_SN_TESTS_CLIENT_CALL_H
