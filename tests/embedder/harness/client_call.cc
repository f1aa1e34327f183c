// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "client_call.h"

#include <map>
#include <mutex>
#include <utility>

#include "session.h"

namespace harness {

namespace {

std::mutex mu;
std::map<std::string, std::function<void()>> calls;  // under mu
int last_number = 0;                                 // under mu

}  // namespace

std::future<Reply> call_on_client_thread(Client &client,
                                         std::function<void()> f,
                                         const std::string &hint) {
  std::string number;
  {
    const std::lock_guard<std::mutex> lock(mu);
    number = std::to_string(++last_number);
    calls[number] = std::move(f);
  }
  return client.send("SELECT " + hint + " morvena_test('--call " + number +
                     "')");
}

void make_client_call(const std::string &number) {
  std::function<void()> f;
  {
    const std::lock_guard<std::mutex> lock(mu);
    const auto found = calls.find(number);
    if (found == calls.end()) return;
    f = std::move(found->second);
    calls.erase(found);
  }
  void *const session = current_session();
  f();
  restore_session(session);
}

}  // namespace harness
