// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file misuse.h
  Calls of the exported functions in a random order, on random handles, with
  random arguments. A seed repeats them.
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

/** The statements that make what the calls meet in db. */
std::vector<std::string> misuse_tables();

/** Handles that callers share. */
class Shared_handles {
 public:
  struct Handle {
    uintptr_t value = 0;
    bool is_scan = false;
    bool was_closed = false;  // its close was called
    bool is_closed = false;   // for certain
  };

  void add(uintptr_t value, bool is_scan);
  /** Any of them, a null one where there is none. */
  Handle pick(std::mt19937 &engine) const;
  void mark_closed(uintptr_t value, bool for_certain);
  size_t count_open() const;
  /** Close those that are open; nobody else calls. */
  void close_all();

 private:
  mutable std::mutex mu_;
  std::vector<Handle> handles_;  // under mu_
};

/** Every byte can be read. */
uint64_t sum_of(const char *text, size_t size);

class Misuser {
 public:
  /** @param alone  nobody else uses the handles: what cannot be recognised
                    beside others is called too, and results repeat */
  Misuser(uint32_t seed, bool alone, Shared_handles &handles,
          const std::vector<uint32_t> &donors);

  Misuser(const Misuser &) = delete;
  Misuser &operator=(const Misuser &) = delete;
  ~Misuser();

  /** One call. */
  void call();
  /** Of all results; for a seed always the same, if alone. */
  uint64_t digest() const { return digest_; }

  /** Calls on handles that were open. */
  size_t valid_calls() const { return valid_calls_; }

  /** A callback's calls, on any thread. */
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
  std::vector<uint32_t> snapshots_;  // open or not any more
  uint64_t digest_ = 14695981039346656037U;
  size_t valid_calls_ = 0;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_MISUSE_H
