// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file read.h
  One read through the plug-in, in one of the ways that it offers, with a
  callback that may misbehave and a session that may be killed.
*/

#ifndef MORVENA_SN_TESTS_SOAK_READ_H
#define MORVENA_SN_TESTS_SOAK_READ_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cursor.hpp"
#include "tables.h"

namespace soak {

enum class Access {
  SCAN,              // a sequential scan
  PARALLEL_KEY,      // the primary key, in parallel
  PARALLEL_ENTRIES,  // by_v alone, in parallel
  PARALLEL_ROWS,     // rows along by_v, in parallel: not exact, see cursor.h
  KEY,               // the primary key, row by row
  ROWS,              // rows along by_v, row by row
  ENTRIES            // by_v alone, row by row
};

enum class Fault { NONE, SLEEP, STOP, THROW };

/** What to read, and which fault to cause. */
struct Plan {
  const Table *table;
  Access access;
  bool reverse = false;
  bool bounded = false;  // low < key <= high
  unsigned int low = 0;
  unsigned int high = 0;
  size_t threads = 0;
  Fault fault = Fault::NONE;
  unsigned int fault_at = 1;  // batch, or row, number

  bool is_parallel() const;
  bool is_by_v() const;
  bool is_entries_only() const;
  bool is_exact() const { return access != Access::PARALLEL_ROWS; }
  /** A short name, for the tally. */
  std::string kind() const;
  /** The full description. */
  std::string text() const;
  /** The statement that gives the same rows; for a row-by-row read also in the
      same order. */
  std::string select() const;
};

Plan random_plan(Random &random);

/** The result of the read. */
struct Delivery {
  bool complete = false;
  Rows rows;
};

/** An open cursor on a plan's table. */
class Open_read {
 public:
  Open_read(World &world, const Plan &plan, uint32_t donor);
  ~Open_read();
  Open_read(const Open_read &) = delete;
  Open_read &operator=(const Open_read &) = delete;

  bool is_open() const { return cursor_ || scan_; }
  bool has_donors_snapshot() const;
  Delivery read();
  void close();
  bool was_killed() const { return killed_; }
  unsigned int error() const { return error_; }

 private:
  /** Keep the opened cursor, or the reason why it did not open. */
  template <class Reader>
  void keep(morvena_sn::Result<Reader> opened, std::optional<Reader> *reader);
  std::vector<std::string> column_names() const;
  morvena_sn::Range range() const;
  Delivery read_rows();
  Delivery read_in_parallel();

  World &world_;
  const Plan &plan_;
  std::atomic<bool> killed_{false};
  void *session_ = nullptr;
  std::optional<morvena_sn::Cursor> cursor_;
  std::optional<morvena_sn::Sequential_scan> scan_;
  unsigned int error_ = 0;
  std::vector<uint32_t> columns_;
};

}  // namespace soak

#endif  // MORVENA_SN_TESTS_SOAK_READ_H
