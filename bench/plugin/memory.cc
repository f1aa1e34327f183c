// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Measures the memory of one parallel read, from inside its callback.

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "common.h"
#include "contender.h"
#include "cursors.h"
#include "my_config.h"
#include "table_session.h"

namespace bench {

namespace {

/** The bytes that the process has allocated and not freed. The server may use
    tcmalloc instead of the C library's allocator; tcmalloc has a function that
    returns this number. */
int64_t allocated_bytes() {
  using Property = int (*)(const char *, size_t *);
  static const auto property = reinterpret_cast<Property>(
      dlsym(RTLD_DEFAULT, "MallocExtension_GetNumericProperty"));
  size_t bytes = 0;
  if (property != nullptr &&
      property("generic.current_allocated_bytes", &bytes) != 0)
    return static_cast<int64_t>(bytes);
  const struct mallinfo2 info = mallinfo2();
  return static_cast<int64_t>(info.uordblks + info.hblkhd);
}

/** Pages of the process that lie in memory, in bytes. */
int64_t resident_bytes() {
  long pages = 0;
  FILE *file = fopen("/proc/self/statm", "r");
  if (file == nullptr) return 0;
  if (fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
  fclose(file);
  return pages * sysconf(_SC_PAGESIZE);
}

void raise(std::atomic<int64_t> *most, int64_t value) {
  int64_t seen = *most;
  while (seen < value && !most->compare_exchange_weak(seen, value)) continue;
}

struct Most {
  std::atomic<int64_t> allocated{0};
  std::atomic<int64_t> resident{0};
  std::atomic<uint64_t> rows{0};
};

uint64_t row_bytes(const Request &request) {
  const Table_session session(request.table);
  return session.table()->s->reclength;
}

}  // namespace

Answer parallel_memory(const Request &request) {
  Answer answer;
  const uint64_t bytes_of_row = row_bytes(request);
  Most most;
  const int64_t allocated = allocated_bytes();
  const int64_t resident = resident_bytes();
  const Watch watch;
  with_reader(request, [&](auto &reader, const auto &) {
    reader.read_in_parallel(request.threads,
                            [&](const morvena_sn::Batch &batch) {
                              raise(&most.allocated, allocated_bytes());
                              raise(&most.resident, resident_bytes());
                              most.rows += batch.size();
                            });
  });
  answer.ns = watch.ns();
  answer.rows = most.rows;
  for (const int64_t bytes :
       {most.allocated - allocated, most.resident - resident,
        static_cast<int64_t>(bytes_of_row)})
    answer.totals.push_back(std::to_string(bytes));
  return answer;
}

}  // namespace bench
