// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file totals.h
  What the contenders compute from the values that they read.

  A row is a type with a get<T>(), as those of cursor.hpp have it.
*/

#ifndef MORVENA_SN_BENCH_TOTALS_H
#define MORVENA_SN_BENCH_TOTALS_H

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "contender.h"
#include "cursor.hpp"

namespace bench {

/** Calls f with the type as a constant, so that loops over rows do not test it.
 */
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

/** Decimals count in 10^-9 units: they have at most nine digits behind the
    point. */
template <Type type, class Row>
inline void add_value(const Row &row, uint32_t field, Wide *total) {
  if constexpr (type == Type::integer) {
    *total += row.template get<int64_t>(field).value_or(0);
  } else if constexpr (type == Type::decimal) {
    if (const auto value = row.template get<morvena_sn::Decimal>(field))
      *total += value->scaled(9).value();
  } else if constexpr (type == Type::date) {
    if (const auto value = row.template get<morvena_sn::Date>(field))
      *total = std::max<Wide>(*total, (*value - morvena_sn::epoch).count());
  } else if constexpr (type == Type::datetime) {
    if (const auto value = row.template get<morvena_sn::Datetime>(field))
      *total = std::max<Wide>(*total, (*value - morvena_sn::epoch).count());
  } else {
    if (const auto value = row.template get<std::string_view>(field))
      *total += value->size();
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

  /** Adds column i of the given number of rows; row_of(nr) is the nr-th row. */
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
      texts.push_back(
          morvena_sn::to_text(totals_[i], types_[i] == Type::decimal ? 9 : 0));
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

  std::vector<Type> types_;
  std::vector<Wide> totals_;
};

}  // namespace bench

#endif  // MORVENA_SN_BENCH_TOTALS_H
