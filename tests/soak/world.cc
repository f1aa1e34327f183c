// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "world.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "session.h"

namespace soak {

namespace {
constexpr unsigned int connect_seconds = 2;
}  // namespace

bool is_lost(unsigned int error) {
  // The server has gone away, the connection is lost or was not made; the
  // server shuts down, the connection was killed.
  return error == 2006 || error == 2013 || error == 2055 || error == 1 ||
         error == 1053 || error == 3169;
}

void Targets::add(const std::string &role, uint32_t id) {
  const std::lock_guard<std::mutex> lock(mu_);
  connections_[id] = role;
}

void Targets::remove(uint32_t id) {
  const std::lock_guard<std::mutex> lock(mu_);
  connections_.erase(id);
}

uint32_t Targets::pick(Random &random, std::string *role) const {
  const std::lock_guard<std::mutex> lock(mu_);
  if (connections_.empty()) return 0;
  const auto n = static_cast<uint32_t>(connections_.size());
  const auto picked = std::next(connections_.begin(), random.below(n));
  *role = picked->second;
  return picked->first;
}

void Targets::add_session(void *session, std::atomic<bool> *killed) {
  const std::lock_guard<std::mutex> lock(mu_);
  sessions_[session] = killed;
}

void Targets::remove_session(void *session) {
  const std::lock_guard<std::mutex> lock(mu_);
  sessions_.erase(session);
}

// Kills under the mutex, so that the session's reader cannot close it
// meanwhile.
bool Targets::kill_a_session(Random &random) {
  const std::lock_guard<std::mutex> lock(mu_);
  if (sessions_.empty()) return false;
  const auto n = static_cast<uint32_t>(sessions_.size());
  const auto picked = std::next(sessions_.begin(), random.below(n));
  *picked->second = true;
  harness::kill_session(picked->first);
  return true;
}

void World::pause(unsigned int milliseconds) const {
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::milliseconds(milliseconds);
  while (!stop && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::min(milliseconds, 20U)));
}

bool Connection::connect() {
  if (client_) return true;
  try {
    client_ = std::make_unique<Client>(connect_seconds);
    if (may_be_killed()) world_.targets.add(role_, client_->id());
    // A statement that waits must give up, so that the others go on.
    client_->exec(
        "SET lock_wait_timeout = 1, innodb_lock_wait_timeout = 1,"
        " cte_max_recursion_depth = 1000000");
    client_->exec("USE soak");
    return true;
  } catch (const std::runtime_error &) {
    drop();
    return false;
  }
}

// If a statement that builds an index is killed, the server leaves a page fixed
// and aborts at its shutdown. This happens without any reader, too.
bool Connection::may_be_killed() const {
  return role_ == "donor" || role_ == "writer";
}

void Connection::drop() {
  if (client_) world_.targets.remove(client_->id());
  client_.reset();
}

std::future<Reply> Connection::send(const std::string &sql) {
  return client_->send(sql);
}

Reply Connection::attempt(const std::string &sql) {
  if (!client_) return {2006, "not connected", {}};
  Reply reply = client_->attempt(sql);
  if (is_lost(reply.error)) drop();
  return reply;
}

}  // namespace soak
