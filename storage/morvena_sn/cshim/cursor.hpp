// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor.hpp
  cursor.h in C++17: objects that close themselves, ranges that read like the
  language, typed values, and errors as exceptions. Header only; it calls the
  functions of cursor.h and includes no server header. What cursor.h promises
  and asks for (threads, snapshots, callbacks, shutdown) holds here, too.

    morvena_sn::Cursor orders("shop", "orders", "PRIMARY", {donor});
    const auto [amount] = orders.select("amount");
    for (const auto row : orders.range(morvena_sn::between(100, 199)))
      sum += row.get<int64_t>(amount).value_or(0);

  What holds for everything here
  ------------------------------
  Errors.  A function that can fail throws Error. Each has a twin that returns a
    Result instead: open(), try_range(), try_next(), try_read_in_parallel(),
    Snapshot::take(). Both may throw std::bad_alloc as well.
  No value.  get<T>() gives std::nullopt for NULL, and also for what cursor.h
    treats like it: no such column, a column that was not read, no current row.
  Columns.  A column number is the 0-based position in the table. Look it up
    once, before the loop: each look-up by name compares names.
  Lifetimes.  Objects move and do not copy. A moved-from object is like a closed
    one: its reads fail with 1210, and closing it does nothing. A Row or a Batch
    refers to its cursor or its read and must not outlive it.
  Threads.  One thread at a time uses an object, except for cancel() and
    progress(), which any thread may call while the object lives. Opening and
    reading leave the cursor's session on the thread: on a client's thread use
    Session_keeper of cursor_session.hpp.
*/

#ifndef MORVENA_SN_CURSOR_HPP
#define MORVENA_SN_CURSOR_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cursor.h"
#include "cursor_batch.hpp"
#include "cursor_error.hpp"
#include "cursor_range.hpp"
#include "cursor_reader.hpp"
#include "cursor_value.hpp"

namespace morvena_sn {

/** The current row of a cursor, until the cursor's next step. */
class Row {
 public:
  explicit Row(uintptr_t cursor) : row_{cursor} {}

  /** @tparam T  one of the types that cursor_value.hpp lists */
  template <class T>
  [[nodiscard]] std::optional<T> get(uint32_t column) const {
    return detail::get<T>(row_, column);
  }

  /** The same by name, for which get() looks each time; throws Error 1054 for
      a name that the table does not have. */
  template <class T>
  [[nodiscard]] std::optional<T> get(const std::string &name) const {
    const uint32_t position = cursor_col_fieldnr(row_.cursor, name.c_str());
    if (position == 0)
      throw Error(MORVENA_SN_ERROR_NO_COLUMN, "no column " + name);
    return get<T>(position - 1);
  }

 private:
  detail::Cursor_row row_;
};

/**
  Reads an index: row by row in the order of its keys, or in parallel.

  Without a range it reads the whole index.
*/
class Cursor : public detail::Reader<detail::Index_functions> {
 public:
  /**
    Open a cursor. Throws Error: open_index_cursor() lists the numbers.

    @param index  its name, in any case; PRIMARY is the primary key's
  */
  Cursor(const std::string &db, const std::string &table,
         const std::string &index = "PRIMARY", const Options &options = {})
      : Cursor(open(db, table, index, options).value()) {}

  /** The same with the error in the result. */
  static Result<Cursor> open(const std::string &db, const std::string &table,
                             const std::string &index = "PRIMARY",
                             const Options &options = {}) {
    const auto handle =
        detail::opened_by([&](unsigned int *error, char *message) {
          return open_index_cursor(db.c_str(), table.c_str(), index.c_str(),
                                   options.index_only, options.donor,
                                   detail::seconds_of(options.timeout), error,
                                   message);
        });
    if (!handle.has_value()) return handle.error();
    return Cursor(handle.value());
  }

  /** @return the names of the index's columns, as cursor_idx_col_names() */
  [[nodiscard]] std::vector<std::string> index_column_names() const {
    return detail::names_of(cursor_idx_col_num(handle()), [&](const char **to) {
      cursor_idx_col_names(handle(), to);
    });
  }
  /** @return how many key parts a bound of this index can give */
  [[nodiscard]] uint64_t key_parts() const noexcept {
    return cursor_idx_user_col_num(handle());
  }

  /**
    Set the range to read, from its first row on. Throws Error if it cannot be
    read; a range without a row is no error.

    @return the cursor, for a loop over its rows
  */
  Cursor &range(const Range &range) & {
    try_range(range).value();
    return *this;
  }

  /** The same; @return whether the range has a row */
  Result<bool> try_range(const Range &range) {
    has_range_ = true;
    if (range.set_on(handle())) return true;
    if (auto error = failure()) return std::move(*error);
    return false;
  }

  /**
    Step to the range's first row, then to the next one. What was read from the
    row before and refers to its bytes is gone.

    @return false at the end of the range; throws Error if the read failed
  */
  [[nodiscard]] bool next() { return try_next().value(); }

  /** The same with the error in the result. */
  Result<bool> try_next() {
    if (!has_range_) {
      Result<bool> first = try_range(all());
      if (!first.has_value() || !first.value()) return first;
    }
    if (!cursor_advance(handle())) return true;
    if (auto error = failure()) return std::move(*error);
    return false;
  }

  /** @return the current row */
  [[nodiscard]] Row row() const noexcept { return Row(handle()); }
  template <class T>
  [[nodiscard]] std::optional<T> get(uint32_t column) const {
    return row().get<T>(column);
  }
  template <class T>
  [[nodiscard]] std::optional<T> get(const std::string &name) const {
    return row().get<T>(name);
  }

  /** Goes through the rest of the range. Its steps throw as next() does. */
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Row;
    using difference_type = std::ptrdiff_t;
    using pointer = const Row *;
    using reference = Row;

    /** The end. */
    Iterator() = default;
    explicit Iterator(Cursor *cursor) : cursor_(cursor) { ++*this; }

    Row operator*() const { return cursor_->row(); }
    Iterator &operator++() {
      if (!cursor_->next()) cursor_ = nullptr;
      return *this;
    }
    void operator++(int) { ++*this; }
    bool operator==(const Iterator &other) const {
      return cursor_ == other.cursor_;
    }
    bool operator!=(const Iterator &other) const { return !(*this == other); }

   private:
    Cursor *cursor_ = nullptr;  // null at the end
  };

  [[nodiscard]] Iterator begin() { return Iterator(this); }
  [[nodiscard]] Iterator end() { return {}; }

 private:
  explicit Cursor(uintptr_t handle) : Reader(handle) {}

  bool has_range_ = false;
};

/** Reads a whole table in parallel, with or without a primary key. */
class Sequential_scan : public detail::Reader<detail::Scan_functions> {
 public:
  /** Open a scan. Throws Error: open_index_cursor() lists the numbers. */
  Sequential_scan(const std::string &db, const std::string &table,
                  const Options &options = {})
      : Sequential_scan(open(db, table, options).value()) {}

  /** The same with the error in the result. Options::index_only has no meaning
      here. */
  static Result<Sequential_scan> open(const std::string &db,
                                      const std::string &table,
                                      const Options &options = {}) {
    const auto handle =
        detail::opened_by([&](unsigned int *error, char *message) {
          return open_seqscan_cursor(db.c_str(), table.c_str(), options.donor,
                                     detail::seconds_of(options.timeout), error,
                                     message);
        });
    if (!handle.has_value()) return handle.error();
    return Sequential_scan(handle.value());
  }

 private:
  explicit Sequential_scan(uintptr_t handle) : Reader(handle) {}
};

/**
  One moment for cursors on any tables: give donor() to each opening. Cursors
  keep the snapshot that they have when this one ends.
*/
class Snapshot {
 public:
  /** Take it. Throws Error. */
  Snapshot() : Snapshot(take().value()) {}

  /** The same with the error in the result. */
  static Result<Snapshot> take() {
    const auto id = detail::opened_by([](unsigned int *error, char *message) {
      return open_snapshot(error, message);
    });
    if (!id.has_value()) return id.error();
    return Snapshot(id.value());
  }

  Snapshot(Snapshot &&other) noexcept
      : donor_(std::exchange(other.donor_, 0)) {}
  Snapshot &operator=(Snapshot &&other) noexcept {
    if (this != &other) {
      close();
      donor_ = std::exchange(other.donor_, 0);
    }
    return *this;
  }
  ~Snapshot() { close(); }

  /** End it, so that purge need not keep what it sees. The destructor does it,
      too. */
  void close() noexcept {
    if (donor_ != 0) close_snapshot(std::exchange(donor_, 0));
  }

  /** @return what Options::donor takes; 0 when closed */
  [[nodiscard]] uint32_t donor() const noexcept { return donor_; }

 private:
  explicit Snapshot(uint32_t donor) : donor_(donor) {}

  uint32_t donor_;
};

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_HPP
