// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_session.hpp
  What an embedder does to the server's threads and sessions around its reads.
  Unlike cursor.hpp it needs the server's headers.
*/

#ifndef MORVENA_SN_CURSOR_SESSION_HPP
#define MORVENA_SN_CURSOR_SESSION_HPP

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include "cursor.h"
#include "cursor_error.hpp"
#include "my_thread.h"
#include "sql/current_thd.h"
#include "sql/sql_class.h"

// A shared object has this state to itself: without the attribute the loader
// would merge the states of two embedders in one server.
#define MORVENA_SN_OWN_STATE [[gnu::visibility("hidden")]]

namespace morvena_sn {

/**
  Gives the thread its own session back. Make one on a client's thread before
  the first cursor, and have it live longer than the last: cursors leave their
  sessions on the thread.
*/
class [[nodiscard]] Session_keeper {
 public:
  Session_keeper() : own_(current_thd) {}
  ~Session_keeper() {
    if (own_ != nullptr) own_->store_globals();
  }
  Session_keeper(const Session_keeper &) = delete;
  Session_keeper &operator=(const Session_keeper &) = delete;

 private:
  THD *const own_;
};

/** Has the server know a thread that you made. Make one on that thread before
    the first cursor, and have it live longer than the last. */
class [[nodiscard]] Server_thread {
 public:
  /** Throws std::runtime_error if the server cannot take the thread. */
  Server_thread() {
    if (my_thread_init()) throw std::runtime_error("my_thread_init() failed");
  }
  ~Server_thread() { my_thread_end(); }
  Server_thread(const Server_thread &) = delete;
  Server_thread &operator=(const Server_thread &) = delete;
};

/**
  Call f on a thread that is made for it, and wait for its end.

  @return what f returns; throws what f throws, std::system_error if no thread
          can be made, std::runtime_error if the server cannot take it
*/
template <class F>
auto on_own_thread(F f) -> std::invoke_result_t<F &> {
  using Answer = std::invoke_result_t<F &>;
  std::conditional_t<std::is_void_v<Answer>, char, std::optional<Answer>>
      answer{};
  std::exception_ptr thrown;
  std::thread([&] {
    try {
      const Server_thread known;
      if constexpr (std::is_void_v<Answer>)
        f();
      else
        answer.emplace(f());
    } catch (...) {
      thrown = std::current_exception();
    }
  }).join();
  if (thrown) std::rethrow_exception(thrown);
  if constexpr (!std::is_void_v<Answer>) return std::move(*answer);
}

namespace detail {

/** Whether the plug-in of this shared object runs, and who reads. */
class MORVENA_SN_OWN_STATE Embedder {
 public:
  void start() {
    const std::lock_guard<std::mutex> lock(mu_);
    runs_ = true;
  }
  /** No reading begins any more; waits for those that have. */
  void stop() {
    std::unique_lock<std::mutex> lock(mu_);
    runs_ = false;
    changed_.wait(lock, [this] { return readings_ == 0; });
  }
  bool enter() {
    const std::lock_guard<std::mutex> lock(mu_);
    if (!runs_) return false;
    ++readings_;
    return true;
  }
  void leave() {
    const std::lock_guard<std::mutex> lock(mu_);
    --readings_;
    changed_.notify_all();
  }
  bool runs() const { return runs_; }

 private:
  std::mutex mu_;
  std::condition_variable changed_;  // with mu_
  std::atomic<bool> runs_{false};    // set under mu_
  int readings_ = 0;                 // under mu_
};

MORVENA_SN_OWN_STATE inline Embedder embedder;

}  // namespace detail

/**
  Held while cursors are open. When the server shuts down, the clean-up of
  MORVENA_SN_PLUGIN waits until no Reading lives: the cursor of a reader that is
  under way must not be closed by another thread. Make one before the first
  cursor, and have it live longer than the last.
*/
class [[nodiscard]] MORVENA_SN_OWN_STATE Reading {
 public:
  /** Throws Error 3168 before the plug-in has started and once the server shuts
      down. */
  Reading() {
    if (!detail::embedder.enter())
      throw Error(MORVENA_SN_ERROR_SERVER_NOT_READY,
                  "the plug-in does not run");
  }
  ~Reading() { detail::embedder.leave(); }
  Reading(const Reading &) = delete;
  Reading &operator=(const Reading &) = delete;

  /** @return whether the server waits for this reader: end the read. Any
      thread, also in the callable of a parallel read. */
  [[nodiscard]] bool must_stop() const { return !detail::embedder.runs(); }
};

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_SESSION_HPP
