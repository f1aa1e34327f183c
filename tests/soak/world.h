// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file world.h
  What the threads of a run share: its settings, its end, its tally, and the
  connections and sessions that the killer may kill.
*/

#ifndef MORVENA_SN_TESTS_SOAK_WORLD_H
#define MORVENA_SN_TESTS_SOAK_WORLD_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "client.h"
#include "tally.h"

namespace soak {

using harness::Client;
using harness::Reply;
using harness::Row;
using harness::Rows;

/** The client's and the server's errors for a connection that is gone. */
bool is_lost(unsigned int error);

class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}
  /** 0 to n - 1 */
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(engine_() % n); }
  bool once_in(uint32_t n) { return below(n) == 0; }

 private:
  std::mt19937 engine_;
};

/** Connections and cursors' sessions that may be killed at any moment. */
class Targets {
 public:
  void add(const std::string &role, uint32_t id);
  void remove(uint32_t id);
  /** The id of a connection of any role; 0 if there is none. */
  uint32_t pick(Random &random, std::string *role) const;

  /** @param killed  set before the session is killed */
  void add_session(void *session, std::atomic<bool> *killed);
  void remove_session(void *session);
  /** @return whether there was one */
  bool kill_a_session(Random &random);

 private:
  mutable std::mutex mu_;
  std::map<uint32_t, std::string> connections_;     // under mu_
  std::map<void *, std::atomic<bool> *> sessions_;  // under mu_
};

struct Settings {
  unsigned int seconds = 60;
  uint32_t seed = 1;
  unsigned int readers = 6;
  unsigned int writers = 3;
  bool builds_indexes = true;
};

struct World {
  Settings settings;
  std::atomic<bool> stop{false};
  Tally tally;
  Targets targets;

  /** Sleep; wake up early if the run ends. */
  void pause(unsigned int milliseconds) const;
};

/** A connection that the killer knows. It is made again when it is lost. */
class Connection {
 public:
  Connection(World &world, const std::string &role)
      : world_(world), role_(role) {}
  ~Connection() { drop(); }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  /** Connect if there is no connection. @return whether there is one */
  bool connect();
  /** Close it abruptly, as a client does that vanishes. */
  void drop();
  Reply attempt(const std::string &sql);
  std::future<Reply> send(const std::string &sql);
  uint32_t id() const { return client_ ? client_->id() : 0; }
  bool is_alive() { return client_ && attempt("DO 1").error == 0; }

 private:
  bool may_be_killed() const;

  World &world_;
  const std::string role_;
  std::unique_ptr<Client> client_;
};

}  // namespace soak

#endif  // MORVENA_SN_TESTS_SOAK_WORLD_H
