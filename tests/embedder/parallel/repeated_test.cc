// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Many reads in one server leave no memory, threads, locks or sessions behind.
// READS in the server's environment sets how many reads a case makes.

#include <dlfcn.h>
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "common.h"
#include "common/pool.h"
#include "parallel_test.h"
#include "process.h"

namespace {

using namespace harness;

size_t attribute(const std::string &text, const std::string &element) {
  const size_t at = text.rfind(element);
  if (at == std::string::npos) return 0;
  return std::stoul(text.substr(text.find("size=\"", at) + 6));
}

/** The bytes that are allocated and not freed. Each allocator reports them in
    its own way. */
size_t bytes_allocated() {
  if (const auto of_sanitizer = reinterpret_cast<size_t (*)()>(
          dlsym(RTLD_DEFAULT, "__sanitizer_get_current_allocated_bytes")))
    return of_sanitizer();
  size_t bytes = 0;
  if (const auto of_tcmalloc =
          reinterpret_cast<int (*)(const char *, size_t *)>(
              dlsym(RTLD_DEFAULT, "MallocExtension_GetNumericProperty"))) {
    of_tcmalloc("generic.current_allocated_bytes", &bytes);
    return bytes;
  }
  char *text = nullptr;
  FILE *const out = open_memstream(&text, &bytes);
  malloc_info(0, out);
  fclose(out);
  // The totals over all arenas, which stand at the end of the text.
  const std::string info(text, bytes);
  free(text);
  return attribute(info, "<system type=\"current\"") +
         attribute(info, "<total type=\"mmap\"") -
         attribute(info, "<total type=\"fast\"") -
         attribute(info, "<total type=\"rest\"");
}

class ParallelRepeated : public Parallel_test {
 protected:
  ParallelRepeated() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, w VARCHAR(100), c TEXT,"
        " x INT AS (v + 1) VIRTUAL, " +
        filler(100) + ", KEY by_v (v, pad), KEY by_x (x))");
    fill("t (id, v, w, c)", 9000,
         "i, i % 100, CONCAT('w', i), IF(i % 200, NULL, REPEAT('c', 20000))");
    sql.exec(
        "CREATE TABLE p (id INT PRIMARY KEY) PARTITION BY HASH (id)"
        " PARTITIONS 2");
  }

  /** Read number i: the numbers go through every kind of read and every
      outcome. */
  void read(size_t i) {
    const auto stop = [](const Batch &) { return true; };
    const auto fail = [](const Batch &) -> bool { throw 5; };
    const size_t threads = thread_counts[i % thread_counts.size()];
    switch (i % 6) {
      case 0:
        EXPECT_EQ(collect(Scan(), threads, {0, 1, 2, 3}).rows.size(), 9000u);
        break;
      case 1:
        EXPECT_EQ(collect(Cursor({.index = "by_v", .index_only = true}),
                          threads, {0, 1})
                      .rows.size(),
                  9000u);
        break;
      case 2: {
        Cursor cursor({.index = "by_v"});
        cursor.set_range({Keys().number(20), Keys().number(40)});
        EXPECT_TRUE(collect(cursor, threads, {0, 2}).complete);
        break;
      }
      case 3:
        EXPECT_FALSE(read_parallel(Scan(), threads % 2, stop));
        break;
      case 4:
        EXPECT_FALSE(read_parallel(Cursor(), threads % 2, fail));
        break;
      default:
        EXPECT_FALSE(read_parallel(Cursor({.index = "by_x"}), threads, stop));
        EXPECT_FALSE(read_parallel(Scan({.table = "p"}), threads, stop));
    }
  }

  /** Allows of_each bytes for each read. The server's own threads allocate too,
      but not with every read. */
  static void expect_no_leak(size_t before, size_t reads, size_t of_each) {
    const size_t after = bytes_allocated();
    const size_t kept = after > before ? after - before : 0;
    fprintf(stderr, "repeated: %zu bytes kept by %zu reads\n", kept, reads);
    EXPECT_LT(kept, reads * of_each);
  }

  int64_t status(const std::string &name) {
    return std::stoll(
        *sql.query("SHOW GLOBAL STATUS LIKE '" + name + "'")[0][1]);
  }
};

TEST_F(ParallelRepeated, NothingIsLeftBehind) {
  const size_t reads = setting("READS", 300);
  // First let every kind of read run and the pool of sessions fill up.
  for (size_t i = 0; i < 84; ++i) read(i);
  // Threads outside the pool end a moment after their read.
  const auto threads_settle = [] {
    const size_t n = of_process("Threads");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return of_process("Threads") == n;
  };
  EXPECT_TRUE(wait_until(threads_settle));
  const size_t threads = of_process("Threads");
  const size_t bytes = bytes_allocated();
  const int64_t locks = metadata_locks(), tables = status("Open_tables");
  for (size_t i = 0; i < reads && !HasFailure(); ++i) {
    SCOPED_TRACE("read " + std::to_string(i));
    read(i);
  }
  EXPECT_TRUE(wait_until([&] { return of_process("Threads") <= threads; }))
      << of_process("Threads");
  // The plug-in remembers closed handles, so that it can recognise them, and it
  // may keep the keys of a bound.
  expect_no_leak(bytes, reads, 2048);
  EXPECT_EQ(metadata_locks(), locks);
  EXPECT_EQ(status("Open_tables"), tables);
  EXPECT_EQ(CommonApi::sessions_in_use(), 0u);
  EXPECT_EQ(ThreadBudget::s_active_threads.load(), 0u);
}

TEST_F(ParallelRepeated, OnOneCursor) {
  const Scan scan;
  const size_t reads = setting("READS", 300);
  for (size_t i = 0; i < 40; ++i) collect(scan, i % 5, {0, 3});
  const size_t bytes = bytes_allocated();
  for (size_t i = 0; i < reads && !HasFailure(); ++i)
    EXPECT_EQ(collect(scan, i % 5, {0, 3}).rows.size(), 9000u);
  expect_no_leak(bytes, reads, 512);
}

}  // namespace
