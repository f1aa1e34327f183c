// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file parallel_test.h
  Reads in parallel into standard types, and compares the rows with SQL for
  every number of threads.
*/

#ifndef MORVENA_SN_TESTS_PARALLEL_TEST_H
#define MORVENA_SN_TESTS_PARALLEL_TEST_H

#include <cstdint>
#include <functional>
#include <ios>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cursor_test.h"

struct dict_index_t;
struct dict_table_t;

namespace harness {

/** The numbers of threads that the reads of a case ask for. The last number is
    more than the process allows. */
extern const std::vector<size_t> thread_counts;

/** Columns to read from each row, in any order. */
using Columns = std::vector<unsigned int>;

/** A number from a variable in the server's environment, which sets how long a
    case runs. If the variable is not set, the result is otherwise. */
size_t setting(const char *name, size_t otherwise);

/** The positions 0 to n - 1. */
Columns first_columns(size_t n);

/** A batch, usable inside the callback. Reads of NULL give no value. */
class Batch {
 public:
  Batch(uint64_t batch_handle, uint64_t worker)
      : handle(batch_handle), thread(worker), batch_(batch_handle, worker) {}

  size_t size() const { return batch_.size(); }
  std::optional<long long> read_int(unsigned int column,
                                    unsigned int nr) const {
    return batch_.get<long long>(column, nr);
  }
  std::optional<double> read_real(unsigned int column, unsigned int nr) const {
    return batch_.get<double>(column, nr);
  }
  std::optional<std::string> read_text(unsigned int column,
                                       unsigned int nr) const {
    return batch_.get<std::string>(column, nr);
  }
  std::optional<Decimal> read_decimal(unsigned int column,
                                      unsigned int nr) const {
    return batch_.get<Decimal>(column, nr);
  }
  std::optional<int32_t> read_date(unsigned int column, unsigned int nr) const {
    return days_of(batch_[nr], column);
  }
  std::optional<int64_t> read_time(unsigned int column, unsigned int nr) const {
    return usecs_of_time(batch_[nr], column);
  }
  std::optional<int64_t> read_datetime(unsigned int column,
                                       unsigned int nr) const {
    return usecs_of_datetime(batch_[nr], column);
  }
  Row row(const Columns &columns, unsigned int nr) const;

  const uintptr_t handle;
  const uint64_t thread;

 private:
  morvena_sn::Batch batch_;
};

/** A sequential scan; its opening may fail. */
class Scan {
 public:
  explicit Scan(const Open &open = {});

  bool is_open() const { return handle != 0; }
  void close();
  void set_columns(const std::vector<uint32_t> &positions);
  std::vector<std::string> output_columns() const;

 private:
  morvena_sn::Result<morvena_sn::Sequential_scan> scan_;

 public:
  const Open opened;  // what the scan was opened on; a scan ignores the index
  uintptr_t handle = 0;
  unsigned int error = 0;
  std::string message;
};

/** Takes a batch. Returning true stops the read. Runs on several threads. */
using On_batch = std::function<bool(const Batch &)>;

/** How many workers must deliver rows when a read asks for more than one. */
enum class Workers {
  /** More than one worker, or the case fails. The first worker waits at the end
      of a page for a second one: otherwise one worker reads all of a small
      table before another thread wakes up. Only one such read can run at a
      time. */
  several,
  /** Any number: for ranges of a page or two, if no threads are available, or
      if other reads run at the same time. */
  any
};

/** @return the result of the reading function */
bool read_parallel(const Cursor &cursor, size_t threads, const On_batch &take,
                   Workers workers = Workers::several);
bool read_parallel(const Scan &scan, size_t threads, const On_batch &take,
                   Workers workers = Workers::several);

/** How many reads received rows from more than one worker. */
size_t reads_by_several();

/** The rows that a read delivered. */
struct Delivered {
  bool complete = false;
  Rows rows;                                        // sorted
  std::map<uint64_t, std::vector<size_t>> batches;  // sizes, by worker
};

template <class Reader>
Delivered collect(const Reader &reader, size_t threads, const Columns &columns,
                  Workers workers = Workers::several);

/** One column of integers, sorted. */
template <class Reader>
std::vector<long long> collect_ints(const Reader &reader, size_t threads,
                                    unsigned int column,
                                    Workers workers = Workers::several);

/** The definition of a column pad that takes the given number of bytes in every
    row, so that few rows fill a page. INSERT statements need not name it. */
std::string filler(size_t bytes);

/** InnoDB's own view of an index in db. */
class Index_watch {
 public:
  explicit Index_watch(const char *table = "t", const char *index = "PRIMARY");
  ~Index_watch();
  Index_watch(const Index_watch &) = delete;
  Index_watch &operator=(const Index_watch &) = delete;

  /** Run f while holding the index latch exclusively. This waits until the
      reads release the latch. */
  void with_latch(const std::function<void()> &f) const;
  /** Whether a writer waits for the index latch; while it waits, no new thread
      gets the latch. */
  bool has_waiting_writer() const;
  /** Whether other threads wait behind that writer. */
  bool has_waiters_behind() const;
  /** How many threads hold the index latch in shared mode. */
  size_t latch_holders() const;
  /** The height of the tree, its leaf level included. */
  size_t levels() const;
  size_t root_records() const;

 private:
  template <class F>
  size_t of_root(F f) const;

  dict_table_t *table_ = nullptr;
  dict_index_t *index_ = nullptr;
};

size_t tree_levels(const char *table = "t", const char *index = "PRIMARY");

/** The server's error log, which receives the server's standard output and
    standard error. */
class Server_log {
 public:
  explicit Server_log(Client &sql);
  /** What was written since this object was made. */
  std::string text() const;
  /** How often a word occurs in that text. */
  size_t count(const std::string &word) const;

 private:
  std::string path_;
  std::streamoff from_;
};

/** A failure shows the two sizes and the first difference only, not all
    rows. */
void expect_rows(const Rows &delivered, const Rows &expected);

class Parallel_test : public Cursor_test {
 protected:
  Parallel_test();

  /** Begin the donor's transaction and take its snapshot. */
  void take_snapshot();
  /** Fill a table from a SELECT over n (i), where i runs from 1 to n_rows. */
  void fill(const std::string &table, size_t n_rows,
            const std::string &columns_of_i);
  /** The rows that the donor sees, sorted. */
  Rows donor_rows(const std::string &select);
  /** For every number of threads, read the table by a sequential scan and, if
      it has a primary key, by a cursor on it. Expect the rows that the donor
      sees.
      @param select  the query for the expected rows; if empty, all columns,
      including invisible ones */
  void expect_whole_table(const std::string &select = "",
                          Workers workers = Workers::several);
  /** For every number of threads, read a range by an index cursor. */
  void expect_range(const Open &open, const Range &range,
                    const Columns &columns, const std::string &select,
                    Workers workers = Workers::several);
  /** Wait until purge has removed deleted rows from their pages. */
  void wait_for_purge();

  Client donor;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_PARALLEL_TEST_H
