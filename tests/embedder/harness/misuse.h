// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file misuse.h
  Calls the exported functions in a random order, on random handles and with
  random arguments. The same seed gives the same calls.
*/

#ifndef MORVENA_SN_TESTS_MISUSE_H
#define MORVENA_SN_TESTS_MISUSE_H

#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "cursor.h"
#include "my_config.h"
#include "mysql_time.h"

namespace harness {

/** The statements that create the tables of db for these calls. */
std::vector<std::string> misuse_tables();

/** The handles that several callers share. */
class Shared_handles {
 public:
  struct Handle {
    uintptr_t value = 0;
    bool is_scan = false;
    bool was_closed = false;  // some caller called close on it
    bool is_closed = false;   // that close cannot have been refused
  };

  void add(uintptr_t value, bool is_scan);
  /** A handle from the list, or a null handle if the list is empty. */
  Handle pick(std::mt19937 &engine) const;
  void mark_closed(uintptr_t value, bool for_certain);
  size_t count_open() const;
  /** Close all handles. No other thread may use them during this call. */
  void close_all();

 private:
  mutable std::mutex mu_;
  std::vector<Handle> handles_;  // under mu_
};

/** A checksum that reads every byte of the text. */
uint64_t sum_of(const char *text, size_t size);

class Misuser {
 public:
  /** @param alone  true if no other thread uses the handles. The calls then
      include those whose misuse cannot be recognised beside other threads, and
      the results of a seed repeat. */
  Misuser(uint32_t seed, bool alone, Shared_handles &handles,
          const std::vector<uint32_t> &donors);

  Misuser(const Misuser &) = delete;
  Misuser &operator=(const Misuser &) = delete;
  ~Misuser();

  /** Make one random call. */
  void call();
  /** A digest of all results. If alone, a seed always gives the same digest. */
  uint64_t digest() const { return digest_; }

  /** How many calls were made on handles that were open. */
  size_t valid_calls() const { return valid_calls_; }

  /** The calls that a callback makes, on any thread. */
  static bool misuse_batch(uint64_t batch, uint64_t thread, void *argument);

 private:
  using Handle = Shared_handles::Handle;
  class Bound;

  uint32_t below(uint32_t n) { return static_cast<uint32_t>(engine_() % n); }
  bool once_in(uint32_t n) { return below(n) == 0; }
  uint32_t random_column();
  const char *random_name(const std::vector<const char *> &names);
  Handle random_handle();
  bool is_usable(const Handle &handle, bool as_scan);
  void note(uint64_t result);

  void open();
  void close();
  void set_columns();
  void set_range();
  void advance();
  void read_value();
  void count_columns();
  void name_columns();
  void read_in_parallel();
  void ask();
  void take_snapshot();

  std::mt19937 engine_;
  const bool alone_;
  Shared_handles &handles_;
  std::vector<uint32_t> donors_;
  std::vector<uint32_t> snapshots_;  // some of them are closed
  uint64_t digest_ = 14695981039346656037U;
  size_t valid_calls_ = 0;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_MISUSE_H
