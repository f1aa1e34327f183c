// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file process.h
  What the server's process uses, as the kernel reports it.
*/

#ifndef MORVENA_SN_TESTS_PROCESS_H
#define MORVENA_SN_TESTS_PROCESS_H

#include <cstddef>
#include <string>

namespace harness {

/** A number from /proc/self/status, such as Threads. Memory is in KB. 0 if
    there is no entry of that name. */
size_t of_process(const std::string &name);

/** The resident memory of the process in KB, after the allocator has returned
    its freed pages to the kernel. How many freed pages the allocator keeps
    depends on how reads overlap. */
size_t memory_in_use();

}  // namespace harness

#endif  // MORVENA_SN_TESTS_PROCESS_H
