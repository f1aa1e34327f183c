// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/calls.h
  The calls on a session of ours, and how others end them: cursor_cancel(), the
  kill of the client for whom a call is made, and the server's shutdown.

  A call that waits (for a lock, for the disk) cannot look whether its client
  was killed. One thread for the process does that for all calls: it looks at
  their clients some twenty times a second and interrupts the session of a call
  whose client was killed.
*/

#ifndef MORVENA_SN_COMMON_CALLS_H
#define MORVENA_SN_COMMON_CALLS_H

#include <atomic>
#include <cstdint>

class THD;

/**
  The calls on one session, one at a time. Never destroyed once a handle leads
  to it, so that cancel() may come at any time.
*/
class Session_calls {
 public:
  /** @param owner  the client whose kill ends every call on the session,
                    whatever thread makes it; 0 for none */
  Session_calls(THD *thd, uint32_t owner) : thd_(thd), owner_(owner) {}
  Session_calls(const Session_calls &) = delete;
  Session_calls &operator=(const Session_calls &) = delete;

  /** From then on the session's calls can be ended. May throw. */
  void list();
  /** From then on nobody interrupts the session. */
  void unlist();

  /** A call begins on the calling thread, to which the session is bound.
      @param client  on whose thread, 0 for nobody's
      @return false if it is to end at once, having been cancelled before */
  bool begin(uint32_t client);
  /** The call ends.
      @param was_interrupted  it was to be ended, and did not do its work */
  void end(bool was_interrupted);

  /** End the call under way, or the next one. Any thread; nothing after
      unlist(). */
  void cancel();

  /** Interrupt the openings that are under way: a shutdown begins. */
  static void interrupt_openings();

  /** Mark the call under way as the opening of a handle. */
  void mark_opening(bool opening) { opening_ = opening; }

  /** End the thread that looks at clients. @param for_good  else it starts
      again when it is needed */
  static void stop_watching(bool for_good);

 private:
  friend class Watch;

  void clear_kill();

  THD *const thd_;
  const uint32_t owner_;
  // Odd while a call is under way. Stored before to_be_ended_ is looked at; the
  // watch stores to_be_ended_ before it looks at the number.
  std::atomic<uint64_t> number_{0};
  std::atomic<bool> to_be_ended_{false};  // its client or owner was killed
  std::atomic<uint32_t> client_{0};       // on whose thread the call runs
  std::atomic<bool> cancelled_{false};    // set under the watch's mutex
  std::atomic<bool> opening_{false};
};

#endif  // MORVENA_SN_COMMON_CALLS_H
