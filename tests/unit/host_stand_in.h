// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file host_stand_in.h
  Stands in for the server functions that the pool calls, and counts the calls.
*/

#ifndef MORVENA_SN_TESTS_HOST_STAND_IN_H
#define MORVENA_SN_TESTS_HOST_STAND_IN_H

#include <atomic>
#include <stdexcept>

/** The threads that were set up and not yet taken down. */
extern std::atomic<int> threads_set_up;
/** All threads that were ever set up. */
extern std::atomic<int> threads_ever_set_up;

/** While it is true, threads that begin wait before they do anything. */
extern std::atomic<bool> threads_are_held;

/** An InnoDB assertion, which would stop a server. */
struct Assertion : std::logic_error {
  using std::logic_error::logic_error;
};

#endif  // MORVENA_SN_TESTS_HOST_STAND_IN_H
