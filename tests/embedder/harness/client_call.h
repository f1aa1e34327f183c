// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file client_call.h
  Code of a case on the thread of a client, inside a statement of its own: as an
  SQL function of an embedder runs.
*/

#ifndef MORVENA_SN_TESTS_CLIENT_CALL_H
#define MORVENA_SN_TESTS_CLIENT_CALL_H

#include <functional>
#include <future>
#include <string>

#include "client.h"

namespace harness {

/** Run f on the client's thread. Its session is the thread's before, and again
    afterwards. @param hint  of the SELECT, in comment signs */
std::future<Reply> call_on_client_thread(Client &client,
                                         std::function<void()> f,
                                         const std::string &hint = "");

/** For the runner: make the call of that number. */
void make_client_call(const std::string &number);

}  // namespace harness

#endif  // MORVENA_SN_TESTS_CLIENT_CALL_H
