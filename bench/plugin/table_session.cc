// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "table_session.h"

namespace bench {

namespace {

constexpr char schema[] = "bench";
constexpr int wait_for_locks_sec = 10;

const Field *find(const TABLE *table, const std::string &name) {
  for (Field **field = table->field; *field != nullptr; ++field)
    if (name == (*field)->field_name) return *field;
  throw std::runtime_error("no column " + name);
}

}  // namespace

Table_session::Table_session(const std::string &name)
    : thd_(CommonApi::create_thd()) {
  if (thd_ == nullptr) throw std::runtime_error("no session");
  table_ = CommonApi::open_table(thd_, schema, name.c_str());
  if (table_ != nullptr &&
      !CommonApi::lock_table(thd_, table_, wait_for_locks_sec))
    return;
  if (table_ != nullptr) CommonApi::unlock_table(thd_, table_);
  CommonApi::close_thd(thd_);
  throw std::runtime_error("cannot open " + name);
}

Table_session::~Table_session() {
  CommonApi::unlock_table(thd_, table_);
  CommonApi::close_thd(thd_);
}

std::vector<uint32_t> Table_session::read(
    const std::vector<Column> &columns) const {
  std::vector<uint32_t> fields;
  for (const Column &column : columns)
    fields.push_back(find(table_, column.name)->field_index());
  CommonApi::set_readset(table_, fields.size(), fields.data());
  return fields;
}

}  // namespace bench
