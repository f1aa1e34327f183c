// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only
/**
  @file fault.h
  Memory and threads that run out when a case says so. The code under test is
  linked into the plug-in of these cases, and the linker sends each allocation
  and each start of a thread through the functions of fault.cc.
*/

#ifndef MORVENA_SN_TESTS_FAULT_H
#define MORVENA_SN_TESTS_FAULT_H

#include <cstddef>

namespace fault {

/** While it lives the n-th allocation of any thread fails; the first is 1. */
class Failing_allocation {
 public:
  explicit Failing_allocation(size_t n);
  ~Failing_allocation();
  Failing_allocation(const Failing_allocation &) = delete;
  Failing_allocation &operator=(const Failing_allocation &) = delete;
};

/** Whether there were n allocations, so that one failed. */
bool has_failed();
/** The number of places in the code that have failed, over all cases. */
size_t places();

/** While it lives no thread starts after the first n. */
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
