// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file client.h
  A client connection of the very server that the cases run in, over its socket:
  the donors, writers, lockers and killers of the cases, and the SQL that their
  expected values come from.
*/

#ifndef MORVENA_SN_TESTS_CLIENT_H
#define MORVENA_SN_TESTS_CLIENT_H

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace harness {

using Value = std::optional<std::string>;
using Row = std::vector<Value>;
using Rows = std::vector<Row>;

/** What the server answered to one statement. */
struct Reply {
  unsigned int error = 0;
  std::string message;
  Rows rows;
};

/**
  A connection with a thread of its own: the network layer of the server, which
  it shares, looks at the calling thread's current session, and a case's thread
  has the cursors' for that.
*/
class Client {
 public:
  /** Connects as root. Throws std::runtime_error when that fails.
      @param seconds  how long it may take; a server that shuts down takes
                      connections and does not answer them */
  explicit Client(unsigned int seconds = 60);
  ~Client();
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  /** The connection id, which is what a cursor takes as its donor. */
  uint32_t id() const;

  /** Run a statement; throws std::runtime_error with the server's error. */
  void exec(const std::string &sql) { query(sql); }
  Rows query(const std::string &sql);
  /** The one value of the one row. */
  Value value(const std::string &sql);
  std::string text(const std::string &sql);
  int64_t number(const std::string &sql);

  /** Run a statement that may fail. */
  Reply attempt(const std::string &sql);
  /** Start a statement and go on; it ends before the next one starts. */
  std::future<Reply> send(const std::string &sql);

  /** Close the connection; only the destructor may follow. */
  void disconnect();

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_CLIENT_H
