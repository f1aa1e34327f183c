// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_reader.hpp
  What both kinds of cursor have in common. Include cursor.hpp; this file is a
  part of it.
*/

#ifndef MORVENA_SN_CURSOR_READER_HPP
#define MORVENA_SN_CURSOR_READER_HPP

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cursor.h"
#include "cursor_batch.hpp"
#include "cursor_error.hpp"
#include "cursor_value.hpp"

namespace morvena_sn {

/** How a cursor opens. */
struct Options {
  /** Connection id of the session whose snapshot is read, or
      Snapshot::donor(); 0: the cursor takes a snapshot of its own. */
  uint32_t donor = 0;
  /** Read the index's own columns from the index alone. A parallel read of a
      secondary index is exact only so. */
  bool index_only = false;
  /** The most that each wait of the opening may take. Negative: for ever. */
  std::chrono::seconds timeout{10};
};

/** What cursor_progress() tells. */
struct Progress {
  uint64_t rows = 0;
  uint64_t pages = 0;
  uint64_t pages_estimated = 0;  ///< of the whole index
};

namespace detail {

/** Calls `open` with where the C functions put an error.
    @return the handle, or the error that it left */
template <class F>
[[nodiscard]] auto opened_by(F open)
    -> Result<decltype(open(nullptr, nullptr))> {
  unsigned int error = 0;
  char message[MORVENA_SN_MESSAGE_BYTES] = "";
  const auto handle = open(&error, static_cast<char *>(message));
  if (handle == 0) return Error(error, message);
  return handle;
}

[[nodiscard]] inline int seconds_of(std::chrono::seconds timeout) {
  constexpr std::chrono::seconds most(std::numeric_limits<int>::max());
  return static_cast<int>(
      std::clamp(timeout, std::chrono::seconds(-1), most).count());
}

/** @return names that `write` writes, `count` of them */
template <class F>
[[nodiscard]] std::vector<std::string> names_of(uint64_t count, F write) {
  std::vector<const char *> names(static_cast<size_t>(count));
  write(names.data());
  return {names.begin(), names.end()};
}

/** @return whether two names are one, the case of ASCII letters ignored */
[[nodiscard]] inline bool same_name(const std::string &a,
                                    const std::string &b) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

/** What differs between the two kinds of cursor. */
struct Index_functions {
  static constexpr auto close = close_index_cursor;
  static constexpr auto column_count = cursor_output_col_num;
  static constexpr auto column_names = cursor_output_col_names;
  static constexpr auto set_readset = cursor_set_readset;
  static constexpr auto advance_parallel = cursor_advance_parallel;

  static std::optional<uint32_t> find_column(uintptr_t cursor,
                                             const std::string &name) {
    const uint32_t position = cursor_col_fieldnr(cursor, name.c_str());
    if (position == 0) return std::nullopt;
    return position - 1;
  }
};

struct Scan_functions {
  static constexpr auto close = close_seqscan_cursor;
  static constexpr auto column_count = seqscan_cursor_output_col_num;
  static constexpr auto column_names = seqscan_cursor_output_col_names;
  static constexpr auto set_readset = seqscan_cursor_set_readset;
  static constexpr auto advance_parallel = seqscan_cursor_advance_parallel;

  static std::optional<uint32_t> find_column(uintptr_t cursor,
                                             const std::string &name) {
    const auto names = names_of(column_count(cursor), [&](const char **to) {
      column_names(cursor, to);
    });
    for (uint32_t i = 0; i < names.size(); ++i)
      if (same_name(names[i], name)) return i;
    return std::nullopt;
  }
};

/** An open handle of one of the two kinds, and what both can do. */
template <class Functions>
class Reader {
 public:
  Reader(Reader &&other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  Reader &operator=(Reader &&other) noexcept {
    if (this != &other) {
      close();
      handle_ = std::exchange(other.handle_, 0);
    }
    return *this;
  }

  /** Give back the table, its locks, the snapshot and the session. The
      destructor does it, too. */
  void close() noexcept { Functions::close(std::exchange(handle_, 0)); }

  [[nodiscard]] bool is_open() const noexcept { return handle_ != 0; }
  /** @return what the C functions take; 0 when closed */
  [[nodiscard]] uintptr_t handle() const noexcept { return handle_; }

  /** @return the names of the columns that can be read: all of the table's, or
      the index's for an index-only cursor */
  [[nodiscard]] std::vector<std::string> column_names() const {
    return names_of(Functions::column_count(handle_),
                    [this](const char **names) {
                      Functions::column_names(handle_, names);
                    });
  }

  /** @return the position of a column; the case of ASCII letters is ignored */
  [[nodiscard]] std::optional<uint32_t> find_column(
      const std::string &name) const {
    return Functions::find_column(handle_, name);
  }

  /** The same; throws Error 1054 if the table has no such column. */
  [[nodiscard]] uint32_t column(const std::string &name) const {
    const std::optional<uint32_t> position = find_column(name);
    if (!position) throw Error(MORVENA_SN_ERROR_NO_COLUMN, "no column " + name);
    return *position;
  }

  /**
    Read the columns of these names and no others, as set_columns() does; throws
    as column() does.

    @return their positions, in the order of the names
  */
  template <class... Names>
  std::array<uint32_t, sizeof...(Names)> select(const Names &...names) {
    const std::array<uint32_t, sizeof...(Names)> columns{column(names)...};
    set_columns({columns.begin(), columns.end()});
    return columns;
  }
  std::vector<uint32_t> select(const std::vector<std::string> &names) {
    std::vector<uint32_t> columns;
    for (const std::string &name : names) columns.push_back(column(name));
    set_columns(columns);
    return columns;
  }

  /**
    Read these columns and no others: from the next range on, in parallel from
    the next read on.

    @param columns  positions in the table; those beyond its columns are skipped
  */
  void set_columns(const std::vector<uint32_t> &columns) {
    std::vector<uint32_t> copy(columns);
    Functions::set_readset(handle_, copy.size(), copy.data());
  }

  /** Why the last call failed, which may have been one of the C functions;
      none if it did not. */
  [[nodiscard]] std::optional<Error> failure() const {
    const char *text = "";
    const unsigned int code = cursor_error(handle_, &text);
    if (code == 0) return std::nullopt;
    return Error(code, text);
  }

  /** End the call that is under way, or else the next one: it fails with 1317.
      Any thread. */
  void cancel() const noexcept { cursor_cancel(handle_); }

  /** How far the read has come; none for a closed cursor. Any thread. */
  [[nodiscard]] std::optional<Progress> progress() const noexcept {
    Progress so_far;
    if (!cursor_progress(handle_, &so_far.rows, &so_far.pages,
                         &so_far.pages_estimated))
      return std::nullopt;
    return so_far;
  }

  /** @return MORVENA_SN_SNAPSHOT_...: whose snapshot is read */
  [[nodiscard]] int snapshot() const noexcept {
    return cursor_snapshot(handle_);
  }

  /**
    Read with several threads: an index cursor's last range (the whole index if
    none was set), or a scan's whole table.

    @param threads   how many; cursor_advance_parallel() says when it is fewer
    @param callable  called as callable(const Batch &) on several threads at a
                     time. It returns nothing, or Then.
    @retval true   everything was read and given to the callable
    @retval false  the callable stopped the read

    Throws what the callable has thrown, the first exception of several, once
    all workers have ended; else Error if the read failed.
  */
  template <class F>
  bool read_in_parallel(size_t threads, F &&callable) {
    return try_read_in_parallel(threads, callable).value();
  }

  /** The same with the read's failure in the result. What the callable throws
      is thrown all the same. */
  template <class F>
  Result<bool> try_read_in_parallel(size_t threads, F &&callable) {
    using Call = Parallel_call<std::remove_reference_t<F>>;
    Call call(callable);
    const bool complete =
        Functions::advance_parallel(handle_, threads, Call::take, &call);
    if (call.was_stopped()) return false;
    if (complete) return true;
    return last_failure();
  }

 protected:
  explicit Reader(uintptr_t handle) : handle_(handle) {}
  ~Reader() { close(); }

  [[nodiscard]] Error last_failure() const {
    return failure().value_or(
        Error(MORVENA_SN_ERROR_UNKNOWN, "the read failed"));
  }

 private:
  uintptr_t handle_;
};

}  // namespace detail

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_READER_HPP
