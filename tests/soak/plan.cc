// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Chooses at random what to read, and writes the same read as SQL.

#include "read.h"

namespace soak {

namespace {

const char *name_of(Access access) {
  switch (access) {
    case Access::SCAN:
      return "scan";
    case Access::PARALLEL_KEY:
      return "parallel, primary key";
    case Access::PARALLEL_ENTRIES:
      return "parallel, entries of an index";
    case Access::PARALLEL_ROWS:
      return "parallel, rows of an index";
    case Access::KEY:
      return "primary key";
    case Access::ROWS:
      return "rows of an index";
    case Access::ENTRIES:
      return "entries of an index";
  }
  return "";
}

std::vector<Access> accesses_of(const Table &table) {
  std::vector<Access> accesses{Access::ROWS, Access::ENTRIES};
  if (table.has_primary_key) accesses.push_back(Access::KEY);
  if (table.is_partitioned) return accesses;
  accesses.push_back(Access::SCAN);
  accesses.push_back(Access::PARALLEL_ROWS);
  if (!table.has_primary_key) return accesses;
  accesses.push_back(Access::PARALLEL_KEY);
  // Without a primary key the entries of the index have no id.
  accesses.push_back(Access::PARALLEL_ENTRIES);
  return accesses;
}

}  // namespace

bool Plan::is_parallel() const {
  return access == Access::SCAN || access == Access::PARALLEL_KEY ||
         access == Access::PARALLEL_ENTRIES || access == Access::PARALLEL_ROWS;
}

bool Plan::is_by_v() const {
  return access == Access::PARALLEL_ENTRIES ||
         access == Access::PARALLEL_ROWS || access == Access::ROWS ||
         access == Access::ENTRIES;
}

bool Plan::is_entries_only() const {
  return access == Access::PARALLEL_ENTRIES || access == Access::ENTRIES;
}

std::string Plan::kind() const {
  if (is_parallel()) return name_of(access);
  return std::string(reverse ? "backward, " : "forward, ") + name_of(access);
}

std::string Plan::text() const {
  std::string text = table->name + ", " + kind();
  if (bounded)
    text += ", " + std::to_string(low) + " < key <= " + std::to_string(high);
  return text + ", " + std::to_string(threads) + " threads, fault " +
         std::to_string(static_cast<int>(fault)) + " at " +
         std::to_string(fault_at);
}

std::string Plan::select() const {
  const std::string key = is_by_v() ? "v" : "id";
  const std::string down = reverse ? " DESC" : "";
  std::string columns = "id, v, pad";
  if (is_entries_only()) columns = table->has_primary_key ? "id, v" : "v";
  std::string sql = "SELECT " + columns + " FROM " + table->name;
  if (bounded)
    sql += " WHERE " + key + " > " + std::to_string(low) + " AND " + key +
           " <= " + std::to_string(high);
  if (is_parallel()) return sql;
  return sql + " ORDER BY " + key + down + (is_by_v() ? ", id" + down : "");
}

Plan random_plan(Random &random) {
  Plan plan{&tables[random.below(static_cast<uint32_t>(tables.size()))],
            Access::KEY};
  const auto accesses = accesses_of(*plan.table);
  plan.access = accesses[random.below(static_cast<uint32_t>(accesses.size()))];
  static const size_t counts[] = {0, 2, 3, 4, 8};
  if (plan.is_parallel()) {
    plan.threads = counts[random.below(5)];
  } else {
    plan.reverse = random.once_in(2);
  }
  if (plan.access != Access::SCAN && random.once_in(2)) {
    const unsigned int top = plan.is_by_v() ? 500 : 2 * plan.table->rows;
    plan.bounded = true;
    plan.low = random.below(top);
    plan.high = plan.low + 1 + random.below(top - plan.low);
  }
  if (random.once_in(4)) {
    static const Fault faults[] = {Fault::SLEEP, Fault::STOP, Fault::THROW};
    plan.fault = faults[random.below(3)];
    plan.fault_at = 1 + random.below(plan.is_parallel() ? 4 : 2000);
  }
  return plan;
}

}  // namespace soak
