// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file table_session.h
  A table opened for the contenders that call the server's handler themselves,
  and the values of its current row.
*/

#ifndef MORVENA_SN_BENCH_TABLE_SESSION_H
#define MORVENA_SN_BENCH_TABLE_SESSION_H

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "common.h"
#include "contender.h"
#include "cursor.hpp"
#include "field_value.h"
#include "host.h"

namespace bench {

/** A session with the table open and locked for reading. */
class Table_session {
 public:
  explicit Table_session(const std::string &name);
  ~Table_session();
  Table_session(const Table_session &) = delete;
  Table_session &operator=(const Table_session &) = delete;

  TABLE *table() const { return table_; }
  THD *thd() const { return thd_; }
  /** Positions of the columns, which become the read set. */
  std::vector<uint32_t> read(const std::vector<Column> &columns) const;

 private:
  THD *thd_;
  TABLE *table_ = nullptr;
};

/** Values as the server's Field objects give them. Dates and datetimes have the
    form that the plug-in gives, so that both sides do the same work. */
class Field_row {
 public:
  explicit Field_row(Field *const *fields) : fields_(fields) {}

  /** As the rows of cursor.hpp have it. */
  template <class T>
  std::optional<T> get(uint32_t column) const {
    Field *field = fields_[column];
    if (field->is_null()) return std::nullopt;
    if constexpr (std::is_same_v<T, int64_t>) {
      return field->val_int();
    } else if constexpr (std::is_same_v<T, morvena_sn::Decimal>) {
      const my_decimal *value = field->val_decimal(&decimal_);
      return T(value->sign(), ROUND_UP(value->intg), ROUND_UP(value->frac),
               value->buf);
    } else if constexpr (std::is_same_v<T, morvena_sn::Date>) {
      return morvena_sn::epoch + morvena_sn::Days(field_value::to_date(field));
    } else if constexpr (std::is_same_v<T, morvena_sn::Datetime>) {
      return morvena_sn::epoch +
             morvena_sn::Duration(field_value::to_datetime(field));
    } else {
      static_assert(std::is_same_v<T, std::string_view>);
      const String *value = field->val_str(&string_, &string_);
      return T(value->ptr(), value->length());
    }
  }

 private:
  Field *const *fields_;
  mutable my_decimal decimal_;
  mutable String string_;
};

}  // namespace bench

#endif  // MORVENA_SN_BENCH_TABLE_SESSION_H
