// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file tables.h
  The tables of a run. Each has the columns id, v and pad and an index by_v (v);
  statements may change all else about them.
*/

#ifndef MORVENA_SN_TESTS_SOAK_TABLES_H
#define MORVENA_SN_TESTS_SOAK_TABLES_H

#include <string>
#include <vector>

#include "world.h"

namespace soak {

struct Table {
  std::string name;
  std::string definition;  // what follows CREATE TABLE name
  std::string row;         // its values, of i
  unsigned int rows;       // in the beginning
  bool has_primary_key;
  bool is_partitioned;
  unsigned int longest_pad;
};

/** Ids from here on belong to the donors, a thousand each. */
constexpr unsigned int first_donor_id = 1000000;

extern const std::vector<Table> tables;

/** A table that is exchanged with a partition. */
extern const char *const spare;

std::string create_statement(const Table &table);
std::string fill_statement(const Table &table);

/** Create and fill all tables in a fresh database. Throws what Client throws.
 */
void make_tables();

}  // namespace soak

#endif  // MORVENA_SN_TESTS_SOAK_TABLES_H
