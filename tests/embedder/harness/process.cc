/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

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
