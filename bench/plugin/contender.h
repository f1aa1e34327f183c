// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file contender.h
  The contenders that run inside the server. Each does the same with the columns
  that it reads: it adds up integers and decimals, keeps the latest date and
  datetime, and counts the bytes of strings. The SQL contenders compute the
  same.

  Each throws std::runtime_error when it cannot be run.
*/

#ifndef MORVENA_SN_BENCH_CONTENDER_H
#define MORVENA_SN_BENCH_CONTENDER_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

using Wide = __int128;

enum class Type { integer, decimal, date, datetime, string };

struct Column {
  std::string name;
  Type type;
};

/** What to read. Tables are those of the schema "bench". */
struct Request {
  std::string table;
  std::string index;  ///< none: the whole table in its own order
  bool index_only = false;
  std::vector<Column> columns;
  uint32_t donor = 0;  ///< whose snapshot is read, 0 for one of its own
  size_t threads = 0;
  uint64_t count = 0;  ///< of point reads, or of parallel reads, 0 for one
  uint64_t keys = 0;   ///< the table's highest key
  int64_t low = 0;     ///< bounds of a range, of the first key part;
  int64_t high = 0;    ///< both belong to it
};

struct Answer {
  int64_t ns = 0;
  uint64_t rows = 0;
  std::vector<std::string>
      totals;  ///< of the columns, or as the contender says
};

/** The time since it was made. */
class Watch {
 public:
  int64_t ns() const {
    return std::chrono::nanoseconds(clock::now() - start_).count();
  }

 private:
  using clock = std::chrono::steady_clock;
  const clock::time_point start_ = clock::now();
};

/** The plug-in: the whole table or index by several threads, including opening
    and closing the cursor. */
Answer parallel_read(const Request &request);

/** The same with an open cursor: only the read. */
Answer parallel_read_alone(const Request &request);

/** The plug-in: a range of the index, row by row, including opening and closing
    the cursor. */
Answer cursor_range(const Request &request);

/** The plug-in: point reads through one cursor. */
Answer cursor_points(const Request &request);

/** The plug-in: point reads, each with a cursor of its own. */
Answer cursor_openings(const Request &request);

/** The memory of one parallel read. The totals are, in bytes: the most that was
    allocated, the growth of the process, and the size of a row. */
Answer parallel_memory(const Request &request);

/** The server's handler: a range of an index row by row, or the whole table. */
Answer handler_loop(const Request &request);

/** The server's handler: its own parallel scan, which converts whole rows. */
Answer handler_parallel_scan(const Request &request);

/** The floor: reads every byte of the index's leaf pages once. The totals are
    the pages and their bytes. */
Answer touch_pages(const Request &request);

}  // namespace bench

#endif  // MORVENA_SN_BENCH_CONTENDER_H
