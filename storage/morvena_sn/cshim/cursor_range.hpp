// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_range.hpp
  Key ranges that read like the language. Include cursor.hpp; this file is a
  part of it.

    equal(17)                        one key
    between(100, 199)                both ends belong to the range
    at_least(100).less_than(200)     ends of your choice
    greater_than("M").reversed()     from the end downwards
    equal(2024, "north")             the leading key parts
    between(Bound(2024, "a"), Bound(2024, "k"))

  A value is an integer, a floating-point number, text, a Date, a Datetime, a
  Duration, a Decimal, a std::optional of these, or nullptr for NULL. Text fits
  a column of any type: it is converted as the column does.
*/

#ifndef MORVENA_SN_CURSOR_RANGE_HPP
#define MORVENA_SN_CURSOR_RANGE_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "cursor.h"
#include "cursor_value.hpp"

namespace morvena_sn {

namespace detail {

template <class T>
struct Is_optional : std::false_type {};
template <class T>
struct Is_optional<std::optional<T>> : std::true_type {};

/** @return hh:mm:ss.uuuuuu of a time that is not negative */
inline std::string text_of_time(int64_t usecs) {
  const int64_t seconds = usecs / 1000000;
  char text[48];
  snprintf(text, sizeof text, "%02lld:%02d:%02d.%06d",
           static_cast<long long>(seconds / 3600),
           static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60),
           static_cast<int>(usecs % 1000000));
  return text;
}

/** @return the start of the day that a moment lies in */
inline Date day_of(Datetime time) { return std::chrono::floor<Days>(time); }

/** @return yyyy-mm-dd in the Gregorian calendar; the zero date for no_date */
inline std::string text_of_date(Date date) {
  if (date <= no_date) return "0000-00-00";
  // Count from March of year 0, so that the leap day is the last of its year.
  const int64_t days = (date.time_since_epoch() + Days(719468)).count();
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t of_era = days - era * 146097;
  const int64_t year_of_era =
      (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
  const int64_t of_year =
      of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int64_t month_from_march = (5 * of_year + 2) / 153;
  const int64_t month = month_from_march + (month_from_march < 10 ? 3 : -9);
  const int64_t day = of_year - (153 * month_from_march + 2) / 5 + 1;
  const int64_t year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
  char text[48];
  snprintf(text, sizeof text, "%04lld-%02d-%02d", static_cast<long long>(year),
           static_cast<int>(month), static_cast<int>(day));
  return text;
}

}  // namespace detail

/**
  The values of the leading key parts, in the index's order. It owns them.

  An index has at most 16 key parts; further values are dropped, as the index
  would ignore them. Making one throws std::bad_alloc, and std::length_error for
  a value of 2 GB.
*/
class Bound {
 public:
  /** Without a value: it bounds nothing. */
  Bound() = default;

  template <
      class First, class... Rest,
      class = std::enable_if_t<!std::is_base_of_v<Bound, std::decay_t<First>>>>
  explicit Bound(const First &first, const Rest &...rest) {
    add(first);
    (add(rest), ...);
  }

  /**
    Give the next key part its value.

    Integers beyond 2^53 become text, since cursor.h converts integers through
    double. A BIT column does not read such text as a number: give it bytes.
  */
  template <class T>
  Bound &add(const T &value) {
    if constexpr (std::is_same_v<T, std::nullptr_t> ||
                  std::is_same_v<T, std::nullopt_t>) {
      return add_raw(MORVENA_SN_TEXT, nullptr, -1);
    } else if constexpr (detail::Is_optional<T>::value) {
      return value ? add(*value) : add(nullptr);
    } else if constexpr (std::is_integral_v<T>) {
      static_assert(!std::is_same_v<T, char>, "a char is text or a number");
      return add_integer(value);
    } else if constexpr (std::is_floating_point_v<T>) {
      const auto number = static_cast<double>(value);
      return add_raw(MORVENA_SN_DOUBLE, &number, sizeof number);
    } else if constexpr (std::is_same_v<T, Decimal>) {
      return add_text(value.text());
    } else if constexpr (std::is_convertible_v<const T &, Date>) {
      return add_text(detail::text_of_date(value));
    } else if constexpr (std::is_convertible_v<const T &, Datetime>) {
      return add_datetime(value);
    } else if constexpr (std::is_convertible_v<const T &, Duration>) {
      return add_duration(value);
    } else {
      static_assert(std::is_convertible_v<const T &, std::string_view>,
                    "cursor_range.hpp lists the types of a bound's value");
      return add_text(value);
    }
  }

  /**
    Give the next key part a value in one of the forms that field_arg lists, for
    those that have no C++ type here: MYSQL_TIME, struct timeval.

    @param type    one of the MORVENA_SN_... value types
    @param value   `bytes` bytes, copied by this call; null if bytes is negative
    @param bytes   its size; negative: the part is NULL
  */
  Bound &add_raw(int type, const void *value, int32_t bytes) {
    if (parts_.size() == max_parts) return *this;
    const size_t size = bytes < 0 ? 0 : static_cast<size_t>(bytes);
    const size_t at = (bytes_.size() + alignment - 1) / alignment * alignment;
    bytes_.resize(at + size + 1);  // never empty: each value has an address
    if (size > 0) memcpy(bytes_.data() + at, value, size);
    parts_.push_back({at, bytes, static_cast<char>(type)});
    return *this;
  }

  [[nodiscard]] bool is_empty() const noexcept { return parts_.empty(); }

  /**
    Call f with the bound as cursor.h takes it: a field_arg pointer, null for a
    bound without a value.

    Lifetime: the pointer, until f returns.
    @return what f returns
  */
  template <class F>
  auto with_arg(F &&f) const {
    std::array<int32_t, max_parts> lengths;
    std::array<void *, max_parts> values;
    std::array<char, max_parts> types;
    for (size_t i = 0; i < parts_.size(); ++i) {
      lengths[i] = parts_[i].bytes;
      // The C interface takes the values without const and never writes them.
      values[i] = const_cast<char *>(bytes_.data()) + parts_[i].at;
      types[i] = parts_[i].type;
    }
    field_arg arg{static_cast<uint32_t>(parts_.size()), lengths.data(),
                  values.data(), types.data()};
    return std::forward<F>(f)(is_empty() ? nullptr : &arg);
  }

 private:
  static constexpr size_t max_parts = 16;
  static constexpr size_t alignment = alignof(std::max_align_t);

  struct Part {
    size_t at;  // in bytes_
    int32_t bytes;
    char type;
  };

  template <class T>
  Bound &add_integer(T value) {
    constexpr int64_t exact = int64_t{1} << 53;
    if constexpr (std::is_signed_v<T>) {
      if (value < -exact || value > exact)
        return add_text(std::to_string(value));
    } else {
      if (value > static_cast<uint64_t>(exact))
        return add_text(std::to_string(value));
    }
    const auto number = static_cast<int64_t>(value);
    return add_raw(MORVENA_SN_INT64, &number, sizeof number);
  }

  Bound &add_text(std::string_view text) {
    if (text.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
      throw std::length_error("a key bound of 2 GB");
    return add_raw(MORVENA_SN_TEXT, text.data(),
                   static_cast<int32_t>(text.size()));
  }

  Bound &add_datetime(Datetime time) {
    const Date day = detail::day_of(time);
    return add_text(detail::text_of_date(day) + " " +
                    detail::text_of_time((time - day).count()));
  }

  Bound &add_duration(Duration time) {
    const int64_t usecs = time.count();
    return add_text(usecs < 0 ? "-" + detail::text_of_time(-usecs)
                              : detail::text_of_time(usecs));
  }

  std::vector<Part> parts_;
  std::vector<char> bytes_;  // from operator new: aligned for any value
};

/**
  A range of an index's keys: what cursor_set_read_range() takes.

  NULL is below every value, so a range without a lower end begins with the rows
  of NULL. Start with at_least(), less_than() and so on, add the other end by a
  member of the same name. A later end replaces an earlier one.
*/
class Range {
 public:
  /** The whole index. */
  Range() = default;

  /** The lower end; rows that are equal to it belong to the range. */
  template <class... Values>
  Range &&at_least(const Values &...values) && {
    return std::move(set_low(Bound(values...), true));
  }
  /** The lower end; rows that are equal to it do not belong to the range. */
  template <class... Values>
  Range &&greater_than(const Values &...values) && {
    return std::move(set_low(Bound(values...), false));
  }
  /** The upper end; rows that are equal to it belong to the range. */
  template <class... Values>
  Range &&at_most(const Values &...values) && {
    return std::move(set_high(Bound(values...), true));
  }
  /** The upper end; rows that are equal to it do not belong to the range. */
  template <class... Values>
  Range &&less_than(const Values &...values) && {
    return std::move(set_high(Bound(values...), false));
  }

  /**
    From the upper end downwards, row by row. Rows equal to the lower end are
    left out even if they belong to the range: cursor_set_read_range() says what
    else holds for reverse reads. A parallel read has no order.
  */
  Range &&reversed() && {
    reverse_ = true;
    return std::move(*this);
  }

  /** Set the lower end to a bound, an empty one for none. */
  Range &set_low(Bound bound, bool belongs) {
    if (is_point_) high_ = std::move(low_);
    is_point_ = false;
    low_ = std::move(bound);
    low_belongs_ = belongs;
    return *this;
  }
  /** Set the upper end to a bound, an empty one for none. */
  Range &set_high(Bound bound, bool belongs) {
    is_point_ = false;
    high_ = std::move(bound);
    high_belongs_ = belongs;
    return *this;
  }
  /** Set both ends to one bound, which belongs to the range. */
  Range &set_point(Bound bound) {
    set_low(std::move(bound), true);
    high_belongs_ = true;
    is_point_ = true;
    return *this;
  }
  Range &set_reverse(bool reverse) {
    reverse_ = reverse;
    return *this;
  }

  /** cursor_set_read_range() with this range; its result. */
  [[nodiscard]] bool set_on(uintptr_t cursor) const {
    return low_.with_arg([&](field_arg *low) {
      if (is_point_) return set_on(cursor, low, low);
      return high_.with_arg(
          [&](field_arg *high) { return set_on(cursor, low, high); });
    });
  }

 private:
  bool set_on(uintptr_t cursor, field_arg *low, field_arg *high) const {
    return cursor_set_read_range(cursor, low, high, low_belongs_, high_belongs_,
                                 reverse_);
  }

  Bound low_, high_;
  bool is_point_ = false;  // low_ is both ends
  bool low_belongs_ = true;
  bool high_belongs_ = true;
  bool reverse_ = false;
};

/** Every row of the index, those of NULL first. */
[[nodiscard]] inline Range all() { return {}; }

/** The rows whose leading key parts are equal to the values. */
template <class... Values>
[[nodiscard]] Range equal(const Values &...values) {
  Range range;
  range.set_point(Bound(values...));
  return range;
}

/** The rows from one value to another, both included. A value is one of a key
    part, or a Bound with the values of several. */
template <class Low, class High>
[[nodiscard]] Range between(const Low &low, const High &high) {
  return Range().at_least(low).at_most(high);
}

/** The rows from the values on, those equal to them included. */
template <class... Values>
[[nodiscard]] Range at_least(const Values &...values) {
  return Range().at_least(values...);
}

/** The rows behind those that are equal to the values. */
template <class... Values>
[[nodiscard]] Range greater_than(const Values &...values) {
  return Range().greater_than(values...);
}

/** The rows up to the values, those equal to them and those of NULL included.
 */
template <class... Values>
[[nodiscard]] Range at_most(const Values &...values) {
  return Range().at_most(values...);
}

/** The rows before those that are equal to the values, those of NULL included.
 */
template <class... Values>
[[nodiscard]] Range less_than(const Values &...values) {
  return Range().less_than(values...);
}

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_RANGE_HPP
