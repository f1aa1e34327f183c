// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The storage engine under whose name the server lists the plug-in. It stores
// nothing, so no statement may use it for a table.

#include "cursor_test.h"

namespace {

using namespace harness;

class Engine : public Cursor_test {
 protected:
  void expect_refused(const std::string &statement) {
    const Reply reply = sql.attempt(statement);
    EXPECT_EQ(reply.error, 1286u) << statement << ": " << reply.message;
    EXPECT_EQ(reply.message, "Unknown storage engine 'MORVENA_SN'")
        << statement;
  }
  std::string engine_of(const std::string &table) {
    return sql.text(
        "SELECT engine FROM information_schema.tables"
        " WHERE table_schema = 'db' AND table_name = '" +
        table + "'");
  }
};

TEST_F(Engine, TakesNoNewTable) {
  expect_refused("CREATE TABLE t (a INT) ENGINE=MORVENA_SN");
  expect_refused("CREATE TEMPORARY TABLE t (a INT) ENGINE=MORVENA_SN");
  expect_refused(
      "CREATE TABLE t (a INT) PARTITION BY HASH (a)"
      " (PARTITION p ENGINE=MORVENA_SN)");
  EXPECT_EQ(sql.number("SELECT COUNT(*) FROM information_schema.tables"
                       " WHERE table_schema = 'db'"),
            0);
}

TEST_F(Engine, TakesOverNoTable) {
  sql.exec("CREATE TABLE t (a INT)");
  sql.exec("INSERT INTO t VALUES (7)");
  expect_refused("ALTER TABLE t ENGINE=MORVENA_SN");
  EXPECT_EQ(engine_of("t"), "InnoDB");
  EXPECT_EQ(sql.number("SELECT a FROM t"), 7);
}

// In this SQL mode the server may replace the named engine by the default one.
TEST_F(Engine, GivesWayToTheDefaultWhereTheModeAllowsIt) {
  sql.exec("SET sql_mode = ''");
  sql.exec("CREATE TABLE t (a INT) ENGINE=MORVENA_SN");
  EXPECT_EQ(engine_of("t"), "InnoDB");
}

TEST_F(Engine, IsNoDefault) {
  for (const char *scope : {"SESSION", "GLOBAL"}) {
    for (const char *name :
         {"default_storage_engine", "default_tmp_storage_engine"}) {
      const std::string variable = std::string("@@") + scope + "." + name;
      expect_refused("SET " + variable + " = MORVENA_SN");
      EXPECT_EQ(sql.text("SELECT " + variable), "InnoDB");
    }
  }
}

TEST_F(Engine, IsListedAsOneWithoutTransactions) {
  const Rows rows = sql.query(
      "SELECT support, transactions, xa, savepoints"
      " FROM information_schema.engines WHERE engine = 'MORVENA_SN'");
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0], (Row{"YES", "NO", "NO", "NO"}));
}

}  // namespace
