// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only
/**
  @file fault.h
  Memory and threads that run out when a case says so. The plug-in of these
  cases holds the code under test itself; its linker sends each allocation and
  each start of a thread by here.
*/

#ifndef MORVENA_SN_TESTS_FAULT_H
#define MORVENA_SN_TESTS_FAULT_H

#include <cstddef>

namespace fault {

/** From its making to its end the n-th allocation of any thread fails, the
    first being 1. */
class Failing_allocation {
 public:
  explicit Failing_allocation(size_t n);
  ~Failing_allocation();
  Failing_allocation(const Failing_allocation &) = delete;
  Failing_allocation &operator=(const Failing_allocation &) = delete;
};

/** Whether there were so many allocations that one failed. */
bool has_failed();
/** How many places in the code have failed, of all cases. */
size_t places();

/** From its making to its end no thread starts after the first n. */
class Failing_threads {
 public:
  explicit Failing_threads(size_t n);
  ~Failing_threads();
  Failing_threads(const Failing_threads &) = delete;
  Failing_threads &operator=(const Failing_threads &) = delete;
};

/** How many starts were refused. */
size_t threads_refused();

}  // namespace fault

#endif  // MORVENA_SN_TESTS_FAULT_H
