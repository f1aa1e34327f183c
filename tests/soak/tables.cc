// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "tables.h"

namespace soak {

namespace {

const std::string columns =
    "id INT NOT NULL, v INT NOT NULL, pad VARCHAR(6000) NOT NULL, KEY by_v (v)";
const std::string end = " CHARACTER SET latin1";

// Part of every key of its table, so that a page has about seven keys.
const std::string wide =
    "wide VARCHAR(2000) NOT NULL DEFAULT (REPEAT('w', 2000))";

}  // namespace

// rows: pages split and merge all the time. large: two rows fill half a page.
// many: each worker gets more than one batch. deep: pages above the leaves
// split and merge, too. far: values are stored off the page.
const std::vector<Table> tables{
    {"rows_", "(" + columns + ", PRIMARY KEY (id))" + end,
     "i * 2, i * 7 % 500, REPEAT('p', i * 17 % 800)", 3000, true, false, 3000},
    {"large", "(" + columns + ", PRIMARY KEY (id))" + end,
     "i * 2, i * 7 % 500, REPEAT('l', 2000 + i % 2000)", 1000, true, false,
     4000},
    {"many", "(" + columns + ", PRIMARY KEY (id))" + end,
     "i * 2, i * 7 % 500, REPEAT('m', i % 30)", 30000, true, false, 60},
    {"deep", "(" + columns + ", " + wide + ", PRIMARY KEY (id, wide))" + end,
     "i * 2, i * 7 % 500, REPEAT('d', i * 17 % 300)", 2000, true, false, 600},
    {"keyless", "(" + columns + ")" + end,
     "i * 2, i * 7 % 500, REPEAT('k', i * 17 % 800)", 2000, false, false, 800},
    {"far",
     "(id INT NOT NULL, v INT NOT NULL, pad LONGTEXT NOT NULL, KEY by_v (v),"
     " PRIMARY KEY (id))" +
         end,
     "i * 2, i * 7 % 500, REPEAT('f', i * 997 % 40000)", 120, true, false,
     60000},
    {"parted",
     "(" + columns + ", PRIMARY KEY (id))" + end +
         " PARTITION BY RANGE (id) (PARTITION p0 VALUES LESS THAN (1500),"
         " PARTITION p1 VALUES LESS THAN (3000),"
         " PARTITION p2 VALUES LESS THAN (4500),"
         " PARTITION p3 VALUES LESS THAN MAXVALUE)",
     "i * 2, i * 7 % 500, REPEAT('t', i * 17 % 800)", 3000, true, true, 1500},
};

const char *const spare = "spare";

std::string create_statement(const Table &table) {
  return "CREATE TABLE " + table.name + " " + table.definition;
}

std::string fill_statement(const Table &table) {
  return "INSERT IGNORE INTO " + table.name +
         " (id, v, pad) WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL"
         " SELECT i + 1 FROM n WHERE i < " +
         std::to_string(table.rows) + ") SELECT " + table.row + " FROM n";
}

void make_tables() {
  Client client(2);
  client.exec("DROP DATABASE IF EXISTS soak");
  client.exec("CREATE DATABASE soak");
  client.exec("USE soak");
  client.exec("SET cte_max_recursion_depth = 1000000");
  for (const Table &table : tables) {
    client.exec(create_statement(table));
    client.exec(fill_statement(table));
  }
  client.exec(std::string("CREATE TABLE ") + spare + " (" + columns +
              ", PRIMARY KEY (id))" + end);
  client.exec(std::string("INSERT INTO ") + spare +
              " SELECT id, v, pad FROM parted PARTITION (p1) WHERE id % 3 = 0");
}

}  // namespace soak
