// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursors.h
  Cursors of this system, as the contenders use them.
*/

#ifndef MORVENA_SN_BENCH_CURSORS_H
#define MORVENA_SN_BENCH_CURSORS_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "contender.h"
#include "cursor.h"

namespace bench {

/** An index cursor, or a scan of the whole table where no index is named.
    Closed at the end of its scope. */
class Cursor {
 public:
  explicit Cursor(const Request &request);
  ~Cursor();
  Cursor(const Cursor &) = delete;
  Cursor &operator=(const Cursor &) = delete;

  uintptr_t handle() const { return handle_; }
  /** The columns' positions. */
  std::vector<uint32_t> fields_of(const std::vector<Column> &columns) const;
  void set_readset(std::vector<uint32_t> fields) const;
  bool read_in_parallel(size_t threads, Parallel_load_func load,
                        void *argument) const;

 private:
  const bool is_scan_;
  uintptr_t handle_ = 0;
};

/** A bound on the first key part, an integer. */
class Bound {
 public:
  explicit Bound(int64_t key) : key_(key) {}
  Bound(const Bound &) = delete;
  Bound &operator=(const Bound &) = delete;

  field_arg *get() { return &arg_; }

 private:
  int64_t key_;
  int32_t bytes_ = sizeof key_;
  void *value_ = &key_;
  char type_ = 1;
  field_arg arg_{1, &bytes_, &value_, &type_};
};

/** The current row of an index cursor. */
struct Cursor_row {
  bool integer(uint32_t field, long long *value) const {
    return cursor_read_field_int(cursor, field, value);
  }
  bool decimal(uint32_t field, bool *negative, int32_t *intg, int32_t *frac,
               int32_t **words) const {
    return cursor_read_field_decimal(cursor, field, negative, intg, frac,
                                     words);
  }
  bool date(uint32_t field, int32_t *days) const {
    return cursor_read_field_date(cursor, field, days);
  }
  bool datetime(uint32_t field, int64_t *usecs) const {
    return cursor_read_field_datetime(cursor, field, usecs);
  }
  bool string(uint32_t field, char **bytes, size_t *size) const {
    return cursor_read_field_str(cursor, field, bytes, size);
  }

  uintptr_t cursor;
};

/** A row of a parallel read's batch. */
struct Batch_row {
  bool integer(uint32_t field, long long *value) const {
    return pread_field_int(batch, field, nr, value);
  }
  bool decimal(uint32_t field, bool *negative, int32_t *intg, int32_t *frac,
               int32_t **words) const {
    return pread_field_decimal(batch, field, nr, negative, intg, frac, words);
  }
  bool date(uint32_t field, int32_t *days) const {
    return pread_field_date(batch, field, nr, days);
  }
  bool datetime(uint32_t field, int64_t *usecs) const {
    return pread_field_datetime(batch, field, nr, usecs);
  }
  bool string(uint32_t field, char **bytes, size_t *size) const {
    return pread_field_str(batch, field, nr, bytes, size);
  }

  uintptr_t batch;
  uint32_t nr;
};

}  // namespace bench

#endif  // MORVENA_SN_BENCH_CURSORS_H
