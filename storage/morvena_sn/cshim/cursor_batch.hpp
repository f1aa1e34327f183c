// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_batch.hpp
  What the callable of a parallel read gets and gives. Include cursor.hpp; this
  file is a part of it.
*/

#ifndef MORVENA_SN_CURSOR_BATCH_HPP
#define MORVENA_SN_CURSOR_BATCH_HPP

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

#include "cursor.h"
#include "cursor_value.hpp"

namespace morvena_sn {

/** What a callable of a parallel read returns, if it returns anything. */
enum class Then {
  go_on,
  stop  ///< end the whole read
};

/**
  Rows that a parallel read hands over, until the callable returns. The callable
  must copy what it needs and must not wait: Parallel_load_func says for what.
*/
class Batch {
 public:
  /** One of them. */
  class Row {
   public:
    Row(uintptr_t batch, uint32_t nr) : row_{batch, nr} {}

    template <class T>
    [[nodiscard]] std::optional<T> get(uint32_t column) const {
      return detail::get<T>(row_, column);
    }

   private:
    detail::Batch_row row_;
  };

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Row;
    using difference_type = std::ptrdiff_t;
    using pointer = const Row *;
    using reference = Row;

    Iterator(uintptr_t batch, uint32_t nr) : batch_(batch), nr_(nr) {}
    Row operator*() const { return {batch_, nr_}; }
    Iterator &operator++() {
      ++nr_;
      return *this;
    }
    void operator++(int) { ++nr_; }
    bool operator==(const Iterator &other) const { return nr_ == other.nr_; }
    bool operator!=(const Iterator &other) const { return nr_ != other.nr_; }

   private:
    uintptr_t batch_;
    uint32_t nr_;
  };

  Batch(uint64_t handle, uint64_t worker)
      : handle_(static_cast<uintptr_t>(handle)),
        worker_(static_cast<size_t>(worker)),
        size_(static_cast<uint32_t>(pread_n_tuples(handle_))) {}

  /** @return how many rows it has, 1 to 4096 */
  [[nodiscard]] uint32_t size() const noexcept { return size_; }
  /** @return the worker's number, from 0 and below the number of threads that
      the read was given, or 0 for a read on the calling thread */
  [[nodiscard]] size_t worker() const noexcept { return worker_; }
  /** @return what the pread_ functions take */
  [[nodiscard]] uintptr_t handle() const noexcept { return handle_; }

  /** @param nr  the row, 0 to size() - 1 */
  [[nodiscard]] Row operator[](uint32_t nr) const { return {handle_, nr}; }
  [[nodiscard]] Iterator begin() const { return {handle_, 0}; }
  [[nodiscard]] Iterator end() const { return {handle_, size_}; }

  template <class T>
  [[nodiscard]] std::optional<T> get(uint32_t column, uint32_t nr) const {
    return (*this)[nr].template get<T>(column);
  }

 private:
  uintptr_t handle_;
  size_t worker_;
  uint32_t size_;
};

/**
  A value for each worker of a parallel read, apart in memory: workers that
  write to neighbouring bytes slow each other down. Fill it in the callable by
  `values[batch]`, look at all of them after the read.
*/
template <class T>
class Per_worker {
  struct alignas(128) Slot {
    T value;
  };

 public:
  /** @param threads  as many as the read is given */
  explicit Per_worker(size_t threads, const T &initial = T())
      : slots_(std::max<size_t>(threads, 1), Slot{initial}) {}

  [[nodiscard]] T &operator[](const Batch &batch) {
    return slots_.at(batch.worker()).value;
  }

  /** Call f with each value. */
  template <class F>
  void for_each(F f) const {
    for (const Slot &slot : slots_) f(slot.value);
  }

 private:
  std::vector<Slot> slots_;
};

namespace detail {

/** What a parallel read is given: runs the caller's callable on the workers,
    and keeps the first exception that leaves it. */
template <class F>
class Parallel_call {
 public:
  explicit Parallel_call(F &callable) : callable_(callable) {}

  static bool take(uint64_t batch, uint64_t worker, void *self) {
    return static_cast<Parallel_call *>(self)->run(Batch(batch, worker));
  }

  /** After the read. Throws what the callable has thrown. */
  [[nodiscard]] bool was_stopped() const {
    if (thrown_) std::rethrow_exception(thrown_);
    return is_over_;
  }

 private:
  bool run(const Batch &batch) noexcept {
    // Another worker's callable has ended the read already.
    if (is_over_.load(std::memory_order_relaxed)) return true;
    try {
      using Answer = std::invoke_result_t<F &, const Batch &>;
      if constexpr (std::is_void_v<Answer>) {
        callable_(batch);
        return false;
      } else {
        static_assert(std::is_same_v<Answer, Then>,
                      "a callable returns nothing, Then::go_on or Then::stop");
        if (callable_(batch) == Then::go_on) return false;
      }
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mu_);
      if (!thrown_) thrown_ = std::current_exception();
    }
    is_over_ = true;
    return true;
  }

  F &callable_;
  std::atomic<bool> is_over_{false};
  std::mutex mu_;
  std::exception_ptr thrown_;  // under mu_ until the read is over
};

}  // namespace detail

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_BATCH_HPP
