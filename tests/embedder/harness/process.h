// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file process.h
  What the server's process uses, as the kernel tells it.
*/

#ifndef MORVENA_SN_TESTS_PROCESS_H
#define MORVENA_SN_TESTS_PROCESS_H

#include <cstddef>
#include <string>

namespace harness {

/** A number of the process's status, such as Threads; those of memory are in
   KB. 0 when there is none of that name. */
size_t of_process(const std::string &name);

/** What the process holds, in KB, once the allocator has given its reserve of
    freed pages back: how large that is depends on how reads met. */
size_t memory_in_use();

}  // namespace harness

#endif  // MORVENA_SN_TESTS_PROCESS_H
