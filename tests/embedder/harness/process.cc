// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "process.h"

#include <dlfcn.h>
#include <malloc.h>

#include <fstream>

namespace harness {

size_t of_process(const std::string &name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word)
    if (word == name + ":") {
      size_t value;
      status >> value;
      return value;
    }
  return 0;
}

size_t memory_in_use() {
  using Release = void (*)();
  if (const auto release_of_tcmalloc = reinterpret_cast<Release>(
          dlsym(RTLD_DEFAULT, "MallocExtension_ReleaseFreeMemory"))) {
    release_of_tcmalloc();
  } else {
    malloc_trim(0);
  }
  return of_process("VmRSS");
}

}  // namespace harness
