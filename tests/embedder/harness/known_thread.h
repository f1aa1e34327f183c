// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file known_thread.h
  Threads that the server can tell apart.
*/

#ifndef MORVENA_SN_TESTS_KNOWN_THREAD_H
#define MORVENA_SN_TESTS_KNOWN_THREAD_H

namespace harness {

/** As long as it lives, the server knows this thread, and the performance
   schema lists what it holds: the metadata locks of a thread without an entry
   there are in none of its tables. */
class Known_thread {
 public:
  Known_thread();
  ~Known_thread();
  Known_thread(const Known_thread &) = delete;
  Known_thread &operator=(const Known_thread &) = delete;
};

/** @return the entry that the server files the calling thread's doings under,
    null for none */
const void *own_thread_row();

}  // namespace harness

#endif  // MORVENA_SN_TESTS_KNOWN_THREAD_H
