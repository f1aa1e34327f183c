// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_value.hpp
  The C++ types of a column's value, and the reads that give them. Include
  cursor.hpp; this file is a part of it.

  Row::get<T>() and Batch::get<T>() take one of these types:

    int64_t, long long  the value as a signed integer
    uint64_t            the same bits, unsigned: right for BIGINT UNSIGNED
    double
    std::string         a copy of the value's bytes
    std::string_view    the bytes where they are, until the next read of a text
                        from the same cursor or batch, or its next row
    Decimal             exact, a copy
    Date                the day, for DATE, DATETIME and TIMESTAMP
    Duration            for TIME; may be negative and longer than a day
    Datetime            day and time of day, for DATETIME and TIMESTAMP
*/

#ifndef MORVENA_SN_CURSOR_VALUE_HPP
#define MORVENA_SN_CURSOR_VALUE_HPP

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <ratio>
#include <string>
#include <string_view>
#include <type_traits>

#include "cursor.h"

namespace morvena_sn {

/** An integer of 128 bits, for exact sums of decimals. */
__extension__ typedef __int128 Int128;

/** Whole days. It is std::chrono::days in C++20. */
using Days = std::chrono::duration<int64_t, std::ratio<86400>>;

/** A day. It is std::chrono::sys_days in C++20. */
using Date = std::chrono::time_point<std::chrono::system_clock, Days>;

/** A TIME. */
using Duration = std::chrono::duration<int64_t, std::micro>;

/**
  A day and a time of day, as the column shows them: no time zone is applied. A
  TIMESTAMP shows the time in the server's global time zone.
*/
using Datetime = std::chrono::time_point<std::chrono::system_clock, Duration>;

// Both are hidden: as symbols of the whole process they would keep a plug-in
// from being unloaded.

/** 2000-01-01, from which the C functions count. */
[[gnu::visibility("hidden")]] inline constexpr Date epoch{Days(10957)};

/** What the zero date reads as, and every column without a date. */
[[gnu::visibility("hidden")]] inline constexpr Date no_date{
    epoch.time_since_epoch() - Days(730517)};

/** @return a number times 10^-scale as text, such as -12.50 for -1250 and 2 */
[[nodiscard]] inline std::string to_text(Int128 number,
                                         unsigned int scale = 0) {
  const bool negative = number < 0;
  std::string digits;
  // The lowest number has no positive counterpart: take the digits one by one.
  do {
    const int digit = static_cast<int>(number % 10);
    digits += static_cast<char>('0' + (digit < 0 ? -digit : digit));
    number /= 10;
  } while (number != 0);
  if (digits.size() <= scale) digits.append(scale + 1 - digits.size(), '0');
  std::reverse(digits.begin(), digits.end());
  if (scale > 0) digits.insert(digits.size() - scale, 1, '.');
  return negative ? "-" + digits : digits;
}

/**
  An exact decimal number, a copy of its own.

  It holds words of nine decimal digits: those before the point, then those
  after it, each from the most significant on.
*/
class Decimal {
 public:
  /** The most words that a decimal has. */
  static constexpr int32_t max_words = 9;

  /** Zero. */
  Decimal() = default;

  /** From the outputs of cursor_read_field_decimal(). Words beyond max_words
      are dropped; the server has none. */
  Decimal(bool negative, int32_t intg, int32_t frac, const int32_t *words)
      : negative_(negative),
        intg_(std::clamp(intg, 0, max_words)),
        frac_(std::clamp(frac, 0, max_words - intg_)) {
    std::copy(words, words + intg_ + frac_, words_.begin());
  }

  [[nodiscard]] bool is_negative() const noexcept { return negative_; }
  /** Words before the point, and behind it. */
  [[nodiscard]] int32_t integer_words() const noexcept { return intg_; }
  [[nodiscard]] int32_t fraction_words() const noexcept { return frac_; }
  /** Word i of both together, 0 to 999999999. */
  [[nodiscard]] int32_t word(int32_t i) const {
    return words_.at(static_cast<size_t>(i));
  }

  /** @return how many digits behind the point the number needs; the column may
      have more, which are zeros */
  [[nodiscard]] unsigned int scale() const noexcept {
    int32_t words = frac_;
    while (words > 0 && at(intg_ + words - 1) == 0) --words;
    if (words == 0) return 0;
    auto digits = static_cast<unsigned int>(words) * 9;
    for (int32_t last = at(intg_ + words - 1); last % 10 == 0; last /= 10)
      --digits;
    return digits;
  }

  /**
    @param scale  how many of the digits behind the point to give
    @return the number times 10^scale. None if that does not fit into 128 bits
            or if digits other than zero would be lost: take scale() or more.
  */
  [[nodiscard]] std::optional<Int128> scaled(
      unsigned int scale) const noexcept {
    const auto words = static_cast<int32_t>((scale + 8) / 9);
    // Four words always fit.
    if (words > 4 || intg_ + words > 4) return scaled_digit_by_digit(scale);
    if (words <= frac_ && scale < this->scale()) return std::nullopt;
    Int128 number = 0;
    for (int32_t i = 0; i < intg_ + words; ++i)
      number = number * 1000000000 + (i < intg_ + frac_ ? at(i) : 0);
    // Of the last word only the first digits count; the rest is zeros.
    for (auto rest = 9 * static_cast<unsigned int>(words); rest > scale; --rest)
      number /= 10;
    return negative_ ? -number : number;
  }

  /** @return the number as text, without zeros at the end: -12.5 */
  [[nodiscard]] std::string text() const { return text(scale()); }

  /** @return the number as text with that many digits behind the point. Digits
      beyond them are cut off, not rounded. */
  [[nodiscard]] std::string text(unsigned int scale) const {
    std::string digits = digits_of(0, intg_);
    digits.erase(0, digits.find_first_not_of('0'));
    if (digits.empty()) digits = "0";
    std::string fraction = digits_of(intg_, intg_ + frac_);
    fraction.resize(scale, '0');
    if (scale > 0) digits += "." + fraction;
    const bool is_zero = digits.find_first_not_of("0.") == std::string::npos;
    return negative_ && !is_zero ? "-" + digits : digits;
  }

 private:
  int32_t at(int32_t i) const noexcept {
    return words_[static_cast<size_t>(i)];
  }

  std::string digits_of(int32_t first, int32_t last) const {
    std::string digits;
    for (int32_t i = first; i < last; ++i) {
      const std::string word = std::to_string(at(i));
      digits.append(9 - std::min<size_t>(word.size(), 9), '0') += word;
    }
    return digits;
  }

  /** Digit by digit, and as a negative number: the lowest number has no
      positive counterpart. */
  std::optional<Int128> scaled_digit_by_digit(
      unsigned int scale) const noexcept {
    if (scale < this->scale()) return std::nullopt;
    const unsigned int digits = 9 * static_cast<unsigned int>(intg_) + scale;
    Int128 number = 0;
    for (unsigned int i = 0; i < digits; ++i) {
      if (__builtin_mul_overflow(number, 10, &number) ||
          __builtin_sub_overflow(number, digit_at(i), &number))
        return std::nullopt;
    }
    if (negative_) return number;
    Int128 positive = 0;
    if (__builtin_sub_overflow(positive, number, &positive))
      return std::nullopt;
    return positive;
  }

  /** Digit i from the first word on, zero behind the last word. */
  int digit_at(unsigned int i) const noexcept {
    const auto word = static_cast<int32_t>(i / 9);
    if (word >= intg_ + frac_) return 0;
    int32_t digits = at(word);
    for (unsigned int rest = 8 - i % 9; rest > 0; --rest) digits /= 10;
    return digits % 10;
  }

  bool negative_ = false;
  int32_t intg_ = 0;
  int32_t frac_ = 0;
  std::array<int32_t, max_words> words_{};
};

namespace detail {

/** The current row of a cursor, as the C functions read it. */
struct Cursor_row {
  bool integer(uint32_t column, long long *value) const noexcept {
    return cursor_read_field_int(cursor, column, value);
  }
  bool real(uint32_t column, double *value) const noexcept {
    return cursor_read_field_real(cursor, column, value);
  }
  bool bytes(uint32_t column, char **text, size_t *size) const noexcept {
    return cursor_read_field_str(cursor, column, text, size);
  }
  bool decimal(uint32_t column, bool *negative, int32_t *intg, int32_t *frac,
               int32_t **words) const noexcept {
    return cursor_read_field_decimal(cursor, column, negative, intg, frac,
                                     words);
  }
  bool date(uint32_t column, int32_t *days) const noexcept {
    return cursor_read_field_date(cursor, column, days);
  }
  bool time(uint32_t column, int64_t *usecs) const noexcept {
    return cursor_read_field_time(cursor, column, usecs);
  }
  bool datetime(uint32_t column, int64_t *usecs) const noexcept {
    return cursor_read_field_datetime(cursor, column, usecs);
  }

  uintptr_t cursor;
};

/** A row of a batch, as the C functions read it. */
struct Batch_row {
  bool integer(uint32_t column, long long *value) const noexcept {
    return pread_field_int(batch, column, nr, value);
  }
  bool real(uint32_t column, double *value) const noexcept {
    return pread_field_real(batch, column, nr, value);
  }
  bool bytes(uint32_t column, char **text, size_t *size) const noexcept {
    return pread_field_str(batch, column, nr, text, size);
  }
  bool decimal(uint32_t column, bool *negative, int32_t *intg, int32_t *frac,
               int32_t **words) const noexcept {
    return pread_field_decimal(batch, column, nr, negative, intg, frac, words);
  }
  bool date(uint32_t column, int32_t *days) const noexcept {
    return pread_field_date(batch, column, nr, days);
  }
  bool time(uint32_t column, int64_t *usecs) const noexcept {
    return pread_field_time(batch, column, nr, usecs);
  }
  bool datetime(uint32_t column, int64_t *usecs) const noexcept {
    return pread_field_datetime(batch, column, nr, usecs);
  }

  uintptr_t batch;
  uint32_t nr;
};

template <class T>
inline constexpr bool is_integer =
    std::is_same_v<T, long long> || std::is_same_v<T, long> ||
    std::is_same_v<T, unsigned long long> || std::is_same_v<T, unsigned long>;

template <class T>
inline constexpr bool is_text =
    std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>;

template <class T>
inline constexpr bool is_value =
    (is_integer<T> && sizeof(T) == 8) || is_text<T> ||
    std::is_same_v<T, double> || std::is_same_v<T, Decimal> ||
    std::is_same_v<T, Date> || std::is_same_v<T, Duration> ||
    std::is_same_v<T, Datetime>;

/** @return the value of a column; none where the C function has none */
template <class T, class Row>
[[nodiscard]] std::optional<T> get(const Row &row, uint32_t column) {
  static_assert(is_value<T>,
                "cursor_value.hpp lists the types of a value; integers are "
                "read with 64 bits");
  if constexpr (is_integer<T>) {
    long long value = 0;
    if (row.integer(column, &value)) return std::nullopt;
    return static_cast<T>(value);
  } else if constexpr (std::is_same_v<T, double>) {
    double value = 0;
    if (row.real(column, &value)) return std::nullopt;
    return value;
  } else if constexpr (is_text<T>) {
    char *text = nullptr;
    size_t size = 0;
    if (row.bytes(column, &text, &size)) return std::nullopt;
    return T(text, size);
  } else if constexpr (std::is_same_v<T, Decimal>) {
    bool negative = false;
    int32_t intg = 0, frac = 0, *words = nullptr;
    if (row.decimal(column, &negative, &intg, &frac, &words))
      return std::nullopt;
    return Decimal(negative, intg, frac, words);
  } else if constexpr (std::is_same_v<T, Date>) {
    int32_t days = 0;
    if (row.date(column, &days)) return std::nullopt;
    return epoch + Days(days);
  } else if constexpr (std::is_same_v<T, Duration>) {
    int64_t usecs = 0;
    if (row.time(column, &usecs)) return std::nullopt;
    return Duration(usecs);
  } else {
    int64_t usecs = 0;
    if (row.datetime(column, &usecs)) return std::nullopt;
    return epoch + Duration(usecs);
  }
}

}  // namespace detail

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_VALUE_HPP
