// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file totals.h
  What the contenders make of the values that they read.

  A row is a type with a function for each type of value; each answers true for
  "no value", as the reading functions of cursor.h do.
*/

#ifndef MORVENA_SN_BENCH_TOTALS_H
#define MORVENA_SN_BENCH_TOTALS_H

#include <algorithm>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "contender.h"

namespace bench {

/** Calls f with the type as a constant: so that loops over rows do not ask. */
template <class F>
inline void with_type(Type type, F f) {
  switch (type) {
    case Type::integer:
      return f(std::integral_constant<Type, Type::integer>());
    case Type::decimal:
      return f(std::integral_constant<Type, Type::decimal>());
    case Type::date:
      return f(std::integral_constant<Type, Type::date>());
    case Type::datetime:
      return f(std::integral_constant<Type, Type::datetime>());
    case Type::string:
      return f(std::integral_constant<Type, Type::string>());
  }
}

/** A decimal's words of nine digits, in 10^-9 units: for decimals of at most
    nine digits behind the point. */
inline Wide billionths_of(bool negative, int32_t intg, int32_t frac,
                          const int32_t *words) {
  Wide count = 0;
  for (int32_t i = 0; i < intg + frac; ++i)
    count = count * 1000000000 + words[i];
  if (frac == 0) count *= 1000000000;
  return negative ? -count : count;
}

template <Type type, class Row>
inline void add_value(const Row &row, uint32_t field, Wide *total) {
  if constexpr (type == Type::integer) {
    long long value;
    if (!row.integer(field, &value)) *total += value;
  } else if constexpr (type == Type::decimal) {
    bool negative;
    int32_t intg, frac, *words;
    if (!row.decimal(field, &negative, &intg, &frac, &words))
      *total += billionths_of(negative, intg, frac, words);
  } else if constexpr (type == Type::date) {
    int32_t days;
    if (!row.date(field, &days)) *total = std::max<Wide>(*total, days);
  } else if constexpr (type == Type::datetime) {
    int64_t usecs;
    if (!row.datetime(field, &usecs)) *total = std::max<Wide>(*total, usecs);
  } else {
    char *bytes;
    size_t size;
    if (!row.string(field, &bytes, &size)) *total += size;
  }
}

/** One total for each column. */
class Totals {
 public:
  explicit Totals(const std::vector<Column> &columns) {
    for (const Column &column : columns) add_column(column.type);
  }

  /** The values of one row. */
  template <class Row>
  void add_row(const Row &row, const std::vector<uint32_t> &fields) {
    for (size_t i = 0; i < fields.size(); ++i)
      with_type(types_[i], [&](auto type) {
        add_value<type.value>(row, fields[i], &totals_[i]);
      });
  }

  /** Column i of so many rows; row_of(nr) is the nr-th. */
  template <class Row_of>
  void add_column_of(size_t i, uint32_t field, uint32_t rows, Row_of row_of) {
    with_type(types_[i], [&](auto type) {
      Wide total = totals_[i];
      for (uint32_t nr = 0; nr < rows; ++nr)
        add_value<type.value>(row_of(nr), field, &total);
      totals_[i] = total;
    });
  }

  void join(const Totals &other) {
    for (size_t i = 0; i < totals_.size(); ++i)
      totals_[i] = is_latest(types_[i]) ? std::max(totals_[i], other.totals_[i])
                                        : totals_[i] + other.totals_[i];
  }

  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    for (size_t i = 0; i < totals_.size(); ++i)
      texts.push_back(types_[i] == Type::decimal ? fixed_point(totals_[i])
                                                 : digits_of(totals_[i]));
    return texts;
  }

 private:
  static bool is_latest(Type type) {
    return type == Type::date || type == Type::datetime;
  }

  void add_column(Type type) {
    types_.push_back(type);
    totals_.push_back(is_latest(type) ? std::numeric_limits<int64_t>::min()
                                      : 0);
  }

  static std::string digits_of(Wide number) {
    std::string digits;
    Wide rest = number < 0 ? -number : number;
    do {
      digits.insert(digits.begin(), static_cast<char>('0' + rest % 10));
      rest /= 10;
    } while (rest != 0);
    return (number < 0 ? "-" : "") + digits;
  }

  static std::string fixed_point(Wide billionths) {
    std::string digits = digits_of(billionths < 0 ? -billionths : billionths);
    if (digits.size() < 10) digits.insert(0, 10 - digits.size(), '0');
    digits.insert(digits.size() - 9, ".");
    return (billionths < 0 ? "-" : "") + digits;
  }

  std::vector<Type> types_;
  std::vector<Wide> totals_;
};

}  // namespace bench

#endif  // MORVENA_SN_BENCH_TOTALS_H
