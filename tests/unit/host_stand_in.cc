// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "host_stand_in.h"

#include <thread>

#include "univ.i"

#include "gtest/gtest.h"
#include "my_thread.h"
#include "ut0dbg.h"

std::atomic<int> threads_set_up{0};
std::atomic<int> threads_ever_set_up{0};
std::atomic<bool> threads_are_held{false};

bool my_thread_init() {
  while (threads_are_held) std::this_thread::yield();
  ++threads_set_up;
  ++threads_ever_set_up;
  return false;
}

void my_thread_end() { --threads_set_up; }

[[noreturn]] void ut_dbg_assertion_failed(const char *expr, const char *,
                                          uint64_t) {
  throw Assertion(expr);
}

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
