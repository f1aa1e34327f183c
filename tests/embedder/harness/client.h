// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file client.h
  A client connection to the server that the cases run in, over its socket.
  Cases use such clients as donors, writers, lockers and killers, and to run the
  SQL that gives the expected values.
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
  A client connection with a thread of its own. The client library uses the
  network code of the server that it runs in, and that code looks at the calling
  thread's current session. On the thread of a case, that is the session of a
  cursor.
*/
class Client {
 public:
  /** Connects as root. Throws std::runtime_error when that fails.
      @param seconds  the time limit; a server that is shutting down accepts
      connections and does not answer them */
  explicit Client(unsigned int seconds = 60);
  ~Client();
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  /** The connection id; a cursor takes it as its donor. */
  uint32_t id() const;

  /** Run a statement; throws std::runtime_error with the server's error. */
  void exec(const std::string &sql) { query(sql); }
  Rows query(const std::string &sql);
  /** The single value of a result of one row and one column. */
  Value value(const std::string &sql);
  std::string text(const std::string &sql);
  int64_t number(const std::string &sql);

  /** Run a statement that may fail. */
  Reply attempt(const std::string &sql);
  /** Start a statement without waiting for its result. A statement that follows
      starts when this one has ended. */
  std::future<Reply> send(const std::string &sql);

  /** Close the connection. After this, the object can only be destroyed. */
  void disconnect();

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_CLIENT_H
