// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file table_session.h
  A table opened for the contenders that call the server's handler themselves,
  and the values of its current row.
*/

#ifndef MORVENA_SN_BENCH_TABLE_SESSION_H
#define MORVENA_SN_BENCH_TABLE_SESSION_H

#include <stdexcept>
#include <string>
#include <vector>

#include "common.h"
#include "contender.h"
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

/** Values as the server's Field objects give them, dates and datetimes in the
    form that this system gives: so that both sides do the same work. */
class Field_row {
 public:
  explicit Field_row(Field *const *fields) : fields_(fields) {}

  bool integer(uint32_t field, long long *value) const {
    if (fields_[field]->is_null()) return true;
    *value = fields_[field]->val_int();
    return false;
  }
  bool decimal(uint32_t field, bool *negative, int32_t *intg, int32_t *frac,
               int32_t **words) const {
    if (fields_[field]->is_null()) return true;
    my_decimal *value = fields_[field]->val_decimal(&decimal_);
    *negative = value->sign();
    *intg = ROUND_UP(value->intg);
    *frac = ROUND_UP(value->frac);
    *words = value->buf;
    return false;
  }
  bool date(uint32_t field, int32_t *days) const {
    if (fields_[field]->is_null()) return true;
    *days = field_value::to_date(fields_[field]);
    return false;
  }
  bool datetime(uint32_t field, int64_t *usecs) const {
    if (fields_[field]->is_null()) return true;
    *usecs = field_value::to_datetime(fields_[field]);
    return false;
  }
  bool string(uint32_t field, char **bytes, size_t *size) const {
    if (fields_[field]->is_null()) return true;
    String *value = fields_[field]->val_str(&string_, &string_);
    *bytes = value->ptr();
    *size = value->length();
    return false;
  }

 private:
  Field *const *fields_;
  mutable my_decimal decimal_;
  mutable String string_;
};

}  // namespace bench

#endif  // MORVENA_SN_BENCH_TABLE_SESSION_H
