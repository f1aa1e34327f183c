// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file threads.h
  What the threads of a run do until it ends.
*/

#ifndef MORVENA_SN_TESTS_SOAK_THREADS_H
#define MORVENA_SN_TESTS_SOAK_THREADS_H

#include "world.h"

namespace soak {

/** Reads, each compared with what its donor's SQL gives: reader.cc. */
void run_reader(World &world, uint32_t number);
/** Statements that split and merge pages: writer.cc. */
void run_writer(World &world, uint32_t number);
/** Statements that change the tables under the readers: definer.cc. */
void run_definer(World &world);
/** Kills donors, writers and cursors' sessions: writer.cc. */
void run_killer(World &world);

}  // namespace soak

#endif  // MORVENA_SN_TESTS_SOAK_THREADS_H
