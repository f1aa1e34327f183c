// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/failure.h
  Why a call failed, as its caller gets it, and the lines of the log.
*/

#ifndef MORVENA_SN_COMMON_FAILURE_H
#define MORVENA_SN_COMMON_FAILURE_H

#include <atomic>
#include <cstddef>
#include <mutex>

class THD;

/** Our own error number beside the server's: a callback ended its read. */
constexpr unsigned int er_callback_stopped = 10135;

/** Write a line with a time stamp to standard error. */
void write_to_log(const char *text);

/**
  The error of a handle's last call. Of several failures in one call, those of
  several workers perhaps, the first stays.
*/
class Failure {
 public:
  static constexpr size_t text_bytes = 512;

  Failure() = default;
  ~Failure() { delete[] text_; }
  Failure(const Failure &) = delete;
  Failure &operator=(const Failure &) = delete;

  /** A call begins. */
  void clear();
  void set(unsigned int code, const char *text);
  /** The same with a line in the log. */
  void raise(unsigned int code, const char *text);
  /** The call was killed or cancelled. */
  void set_interrupted();
  bool is_interruption() const;
  /** An argument is missing or impossible. */
  void set_wrong_argument(const char *what);
  /** Take over what a session's statement has reported. @return whether it has
      reported an error */
  bool take_from(const THD *thd);

  /** Count it for SHOW GLOBAL STATUS: as a kill, a refusal or a failure. A read
      that its callback has stopped is none of them. */
  void count() const;

  bool is_set() const { return code() != 0; }
  unsigned int code() const { return code_.load(std::memory_order_acquire); }
  /** Until clear(); empty without a failure. */
  const char *text() const;
  /** The handle is closed: free the text. */
  void end();

 private:
  std::mutex mutex_;
  std::atomic<unsigned int> code_{0};  // set under mutex_, after text_
  char *text_ = nullptr;  // made by the first failure; under mutex_ until then
};

#endif  // MORVENA_SN_COMMON_FAILURE_H
