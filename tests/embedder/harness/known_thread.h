// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file known_thread.h
  Threads that are registered with the performance schema.
*/

#ifndef MORVENA_SN_TESTS_KNOWN_THREAD_H
#define MORVENA_SN_TESTS_KNOWN_THREAD_H

namespace harness {

/** Registers the calling thread with the performance schema, as long as this
    object lives. Only then do the tables of the performance schema show the
    metadata locks that the thread holds. */
class Known_thread {
 public:
  Known_thread();
  ~Known_thread();
  Known_thread(const Known_thread &) = delete;
  Known_thread &operator=(const Known_thread &) = delete;
};

/** @return the calling thread's entry in the performance schema, null if it has
    none */
const void *own_thread_row();

}  // namespace harness

#endif  // MORVENA_SN_TESTS_KNOWN_THREAD_H
