// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file reader.h
  What reader.cc offers to other sources of the same shared object.
*/

#ifndef MORVENA_EXAMPLE_READER_H
#define MORVENA_EXAMPLE_READER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cursor.h"

namespace example {

/**
  Held while a cursor is open. A cursor belongs to one thread at a time, so the
  clean-up asks the readers to close theirs and waits, instead of closing a
  cursor under the feet of its reader.
*/
class Reading {
 public:
  Reading();
  ~Reading();
  Reading(const Reading &) = delete;
  Reading &operator=(const Reading &) = delete;

  /** False: the example has not started, or the server shuts down. */
  bool allowed() const { return allowed_; }

  /** Any thread: true once the reader is to close its cursor. */
  bool must_stop() const;

 private:
  bool allowed_;
};

/** What to read. The bounds are text of the index's first key part. */
struct Range_read {
  std::string db, table, index;
  std::vector<std::string> columns;      ///< names, in the order of `fields`
  std::optional<std::string> low, high;  ///< none: unbounded
  bool low_included = true;
  bool high_included = true;
  bool backward = false;
  bool index_only = false;
  uint32_t donor = 0;  ///< connection id; 0: a snapshot of the read's own
};

/** How it ended. `error` is 0 or the server's number, `message` its text. */
struct Outcome {
  unsigned int error = 0;
  std::string message;
  uint64_t rows = 0;
};

/** A bound on the first key part, as text: that fits a column of any type. */
struct Bound {
  explicit Bound(std::optional<std::string> &text) {
    if (!text) return;
    len = static_cast<int32_t>(text->size());
    value = text->data();
    given = &arg;
  }
  Bound(const Bound &) = delete;
  Bound &operator=(const Bound &) = delete;

  int32_t len = 0;
  void *value = nullptr;
  char type = 3;
  field_arg arg{1, &len, &value, &type};
  field_arg *given = nullptr;  ///< null: no bound
};

/** Called for each row; `fields` are the positions of Range_read::columns. Must
    not throw: nothing above it on the thread catches. */
using Row_function =
    std::function<void(uintptr_t cursor, const std::vector<uint32_t> &fields)>;

/**
  Read the rows of a range in its order.

  Threads: those that the server made or that called my_thread_init(). Leaves
  the thread with a session that is not its own; on_row runs so, too.
*/
Outcome read_range(Range_read read, const Row_function &on_row);

/** The same on a client's thread, which has its session back afterwards. */
Outcome read_range_on_client_thread(const Range_read &read,
                                    const Row_function &on_row);

/** The same on a thread that is made for it; waits for its end. */
Outcome read_range_on_own_thread(const Range_read &read,
                                 const Row_function &on_row);

}  // namespace example

#endif  // MORVENA_EXAMPLE_READER_H
