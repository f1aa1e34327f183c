// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables and indexes of every kind.

#include <algorithm>

#include "cursor_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;
using Names = std::vector<std::string>;

class TableKind : public Cursor_test {
 protected:
  /** Check that a cursor reads the same rows and columns as a SELECT in the
      order of the index. */
  void expect_same(const Open &open, const std::string &order,
                   const std::string &columns = "*") {
    const Rows rows = sql.query("SELECT " + columns + " FROM " + open.table +
                                " ORDER BY " + order);
    ASSERT_FALSE(rows.empty());
    std::vector<unsigned int> positions(rows[0].size());
    for (unsigned int i = 0; i < positions.size(); ++i) positions[i] = i;
    Cursor cursor(open);
    ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
    EXPECT_EQ(cursor.texts(positions), rows);
    Rows backward = cursor.texts(positions, {.reverse = true});
    std::reverse(backward.begin(), backward.end());
    EXPECT_EQ(backward, rows);
  }

  void fill(const std::string &statement, int n_rows) {
    sql.exec("SET cte_max_recursion_depth = 100000");
    sql.exec(statement +
             " WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL"
             " SELECT i + 1 FROM n WHERE i < " +
             std::to_string(n_rows) +
             ") SELECT i, (i * 7919) % 1009, CONCAT('row ', i),"
             " REPEAT(CHAR(65 + i % 26), i * 37 % 5000) FROM n");
  }

  void check_row_format(const std::string &options) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(30), c LONGTEXT,"
        " KEY by_a (a, b)) " +
        options);
    fill("INSERT INTO t", 500);
    sql.exec(
        "INSERT INTO t VALUES (1001, NULL, NULL, NULL),"
        " (1002, NULL, '', REPEAT('large', 50000))");
    expect_same({}, "id");
    expect_same({.index = "by_a"}, "a, b, id");
  }
};

TEST_F(TableKind, Redundant) { check_row_format("ROW_FORMAT = REDUNDANT"); }

TEST_F(TableKind, Compact) { check_row_format("ROW_FORMAT = COMPACT"); }

TEST_F(TableKind, Dynamic) { check_row_format("ROW_FORMAT = DYNAMIC"); }

TEST_F(TableKind, Compressed) {
  check_row_format("ROW_FORMAT = COMPRESSED KEY_BLOCK_SIZE = 8");
}

TEST_F(TableKind, RangePartitions) {
  check_row_format(
      "PARTITION BY RANGE (id) (PARTITION p0 VALUES LESS THAN (100),"
      " PARTITION p1 VALUES LESS THAN (300),"
      " PARTITION p2 VALUES LESS THAN MAXVALUE)");
}

TEST_F(TableKind, HashPartitions) {
  check_row_format("PARTITION BY HASH (id) PARTITIONS 7");
}

TEST_F(TableKind, Subpartitions) {
  check_row_format(
      "PARTITION BY RANGE (id) SUBPARTITION BY KEY (id)"
      " SUBPARTITIONS 2 (PARTITION p0 VALUES LESS THAN (200),"
      " PARTITION p1 VALUES LESS THAN MAXVALUE)");
}

TEST_F(TableKind, RangesOfAPartitionedTable) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(30), c LONGTEXT,"
      " KEY by_a (a)) PARTITION BY HASH (id) PARTITIONS 5");
  fill("INSERT INTO t", 300);
  Cursor cursor({.index = "by_a"});
  const auto ids = [this](const char *rest) {
    return as_ints(sql.query("SELECT id FROM t " + std::string(rest)));
  };
  EXPECT_EQ(cursor.ints(0, {Keys().number(100), Keys().number(500)}),
            ids("WHERE a BETWEEN 100 AND 500 ORDER BY a"));
  EXPECT_EQ(
      cursor.ints(0, {Keys().number(100), Keys().number(500), false, false}),
      ids("WHERE a > 100 AND a < 500 ORDER BY a"));
  EXPECT_EQ(cursor.ints(0, {{}, Keys().number(500), true, true, true}),
            ids("WHERE a <= 500 ORDER BY a DESC"));
  const long long one = ids("WHERE a = 500 OR a > 500 ORDER BY a LIMIT 1")[0];
  const long long key =
      sql.number("SELECT a FROM t WHERE id = " + std::to_string(one));
  EXPECT_EQ(cursor.ints(0, {Keys().number(key), Keys().number(key)}),
            (Ints{one}));
}

TEST_F(TableKind, IndexNamesOfAPartitionedTable) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, UNIQUE KEY u (id, a))"
      " PARTITION BY HASH (id) PARTITIONS 3");
  EXPECT_EQ(Cursor().index_columns()[0], "id");
  EXPECT_EQ(Cursor({.index = "u"}).index_columns(), (Names{"id", "a"}));
}

TEST_F(TableKind, WithoutAPrimaryKey) {
  sql.exec("CREATE TABLE t (a INT, b INT, KEY k (a))");
  sql.exec("INSERT INTO t VALUES (3, 1), (1, 2), (2, 3), (1, 4)");
  Cursor cursor({.index = "k"});
  EXPECT_EQ(cursor.ints(1), (Ints{2, 4, 3, 1}));
  EXPECT_EQ(cursor.index_columns(), (Names{"a"}));
  EXPECT_FALSE(Cursor().is_open());
}

TEST_F(TableKind, UniqueKeyInPlaceOfAPrimaryKey) {
  sql.exec(
      "CREATE TABLE t (a INT NOT NULL, b INT, UNIQUE KEY u (a), KEY k (b))");
  sql.exec("INSERT INTO t VALUES (3, 1), (1, 2), (2, NULL)");
  expect_same({.index = "u"}, "a");
  EXPECT_EQ(Cursor({.index = "k"}).ints(0), (Ints{2, 3, 1}));
}

TEST_F(TableKind, UniqueIndexWithNulls) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, UNIQUE KEY u (a))");
  sql.exec("INSERT INTO t VALUES (1, NULL), (2, 5), (3, NULL), (4, 1)");
  Cursor cursor({.index = "u"});
  EXPECT_EQ(cursor.ints(0), (Ints{1, 3, 4, 2}));
  EXPECT_EQ(cursor.ints(0, {Keys().null(), Keys().null()}), (Ints{1, 3}));
}

TEST_F(TableKind, PrimaryKeyOfSeveralColumns) {
  sql.exec(
      "CREATE TABLE t (v INT, b INT, a VARCHAR(5), PRIMARY KEY (a, b DESC),"
      " KEY k (v))");
  sql.exec("INSERT INTO t VALUES (1, 1, 'x'), (1, 2, 'x'), (0, 1, 'a')");
  expect_same({}, "a, b DESC");
  expect_same({.index = "k"}, "v, a, b DESC");
  EXPECT_EQ(Cursor({.index = "k"}).index_columns(), (Names{"v", "a", "b"}));
  EXPECT_EQ(Cursor().ints(1, {Keys().text("x"), Keys().text("x")}),
            (Ints{2, 1}));
}

TEST_F(TableKind, PrimaryKeyOfAPrefix) {
  sql.exec(
      "CREATE TABLE t (a VARCHAR(100), b INT, PRIMARY KEY (a(4)), KEY k (b))");
  sql.exec("INSERT INTO t VALUES ('aaaa and more', 2), ('bbbb as well', 1)");
  expect_same({}, "a");
  expect_same({.index = "k"}, "b");
}

TEST_F(TableKind, VirtualColumns) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, v INT AS (a * 2) VIRTUAL,"
      " w VARCHAR(20) AS (CONCAT('w', a)) VIRTUAL, b INT, KEY k (v), KEY l "
      "(w))");
  sql.exec(
      "INSERT INTO t (id, a, b) VALUES (1, 5, 9), (2, NULL, 8), (3, -1, 7)");
  expect_same({}, "id");
  expect_same({.index = "k"}, "v, id");
  expect_same({.index = "l"}, "w, id");
  EXPECT_EQ(Cursor({.index = "k"}).ints(0, {Keys().number(10), {}}), (Ints{1}));
}

TEST_F(TableKind, VirtualColumnsIndexOnly) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, v INT AS (a * 2) VIRTUAL,"
      " KEY k (v))");
  sql.exec("INSERT INTO t (id, a) VALUES (1, 5), (2, 3)");
  EXPECT_EQ(Cursor({.index = "k", .index_only = true}).ints(2), (Ints{6, 10}));
}

TEST_F(TableKind, StoredGeneratedColumns) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT,"
      " s INT AS (a + 100) STORED, KEY k (s))");
  sql.exec("INSERT INTO t (id, a) VALUES (1, 5), (2, NULL), (3, -1)");
  expect_same({}, "id");
  expect_same({.index = "k"}, "s, id");
}

TEST_F(TableKind, FunctionalIndex) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a VARCHAR(20),"
      " KEY f ((UPPER(a))), KEY g ((id + 10)))");
  sql.exec("INSERT INTO t VALUES (1, 'b'), (2, 'A'), (3, 'c')");
  EXPECT_EQ(Cursor({.index = "f"}).ints(0), (Ints{2, 1, 3}));
  EXPECT_EQ(
      Cursor({.index = "f"}).ints(0, {Keys().text("B"), Keys().text("B")}),
      (Ints{1}));
  EXPECT_EQ(Cursor({.index = "g"}).ints(0, {Keys().number(12), {}}),
            (Ints{2, 3}));
}

TEST_F(TableKind, InvisibleIndexAndColumn) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT INVISIBLE,"
      " KEY k (a) INVISIBLE)");
  sql.exec("INSERT INTO t (id, a) VALUES (1, 5), (2, 3)");
  EXPECT_EQ(Cursor({.index = "k"}).ints(1), (Ints{3, 5}));
}

// The server adds the column if it can; otherwise the case adds it.
TEST_F(TableKind, InvisiblePrimaryKey) {
  const bool by_server =
      !sql.query("SHOW VARIABLES LIKE 'sql_generate_invisible_primary_key'")
           .empty();
  if (by_server) {
    sql.exec("SET sql_generate_invisible_primary_key = ON");
    sql.exec("CREATE TABLE t (a INT)");
  } else {
    sql.exec(
        "CREATE TABLE t (my_row_id BIGINT UNSIGNED AUTO_INCREMENT INVISIBLE"
        " PRIMARY KEY, a INT)");
  }
  ASSERT_EQ(sql.query("SHOW INDEX FROM t").size(), 1u);
  sql.exec("INSERT INTO t VALUES (7), (8)");
  Cursor cursor;
  EXPECT_EQ(cursor.output_columns(), (Names{"my_row_id", "a"}));
  EXPECT_EQ(cursor.ints(0), (Ints{1, 2}));
  EXPECT_EQ(cursor.ints(1), (Ints{7, 8}));
}

TEST_F(TableKind, ColumnsAddedAtOnce) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, KEY k (a))");
  sql.exec("INSERT INTO t VALUES (1, 3), (2, 2)");
  sql.exec(
      "ALTER TABLE t ADD COLUMN b INT DEFAULT 77, ADD COLUMN c VARCHAR(10)"
      " DEFAULT 'dflt', ALGORITHM = INSTANT");
  sql.exec("INSERT INTO t VALUES (3, 1, 5, 'own')");
  sql.exec("ALTER TABLE t ADD COLUMN d DATE, ALGORITHM = INSTANT");
  sql.exec("UPDATE t SET d = '2020-01-01' WHERE id = 2");
  expect_same({}, "id");
  expect_same({.index = "k"}, "a");
}

TEST_F(TableKind, LargeObjectsBesideEachOther) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a LONGBLOB, b LONGTEXT, c JSON,"
      " d VARBINARY(8000), KEY k (id, d(10)))");
  for (int i = 1; i <= 5; ++i)
    sql.exec("INSERT INTO t VALUES (" + std::to_string(i) +
             ", REPEAT('a', 1000000), REPEAT('b', 70000 * " +
             std::to_string(i) +
             "), JSON_ARRAY(REPEAT('c', 50000)), REPEAT('d', 8000))");
  expect_same({}, "id");
  expect_same({.index = "k"}, "id");
}

TEST_F(TableKind, NamesThatDifferInCaseAreTwoTables) {
  ASSERT_EQ(sql.number("SELECT @@lower_case_table_names"), 0);
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  sql.exec("CREATE TABLE T (id INT PRIMARY KEY)");
  sql.exec("INSERT INTO t VALUES (1)");
  sql.exec("INSERT INTO T VALUES (2)");
  EXPECT_EQ(Cursor({.table = "t"}).ints(0), (Ints{1}));
  EXPECT_EQ(Cursor({.table = "T"}).ints(0), (Ints{2}));
  EXPECT_EQ(Cursor({.db = "DB"}).error, 1049u);
}

TEST_F(TableKind, SystemTable) {
  Cursor cursor({.db = "mysql", .table = "user"});
  EXPECT_EQ(cursor.texts({0, 1}),
            sql.query("SELECT host, user FROM mysql.user ORDER BY host, user"));
}

TEST_F(TableKind, RowsThatWereDeletedAndUpdated) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(30), c LONGTEXT,"
      " KEY by_a (a))");
  fill("INSERT INTO t", 1000);
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  sql.exec("UPDATE t SET a = a + 1, c = 'short' WHERE id % 5 = 0");
  expect_same({}, "id");
  EXPECT_EQ(Cursor({.index = "by_a"}).ints(0),
            as_ints(sql.query("SELECT id FROM t ORDER BY a, id")));
}

TEST_F(TableKind, TruncatedAndFilledAgain) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  sql.exec("INSERT INTO t VALUES (1)");
  EXPECT_EQ(Cursor().ints(0), (Ints{1}));
  sql.exec("TRUNCATE TABLE t");
  EXPECT_EQ(Cursor().ints(0), (Ints{}));
  sql.exec("INSERT INTO t VALUES (2)");
  EXPECT_EQ(Cursor().ints(0), (Ints{2}));
}

TEST_F(TableKind, ForeignKeys) {
  sql.exec("CREATE TABLE parent (id INT PRIMARY KEY)");
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, p INT,"
      " FOREIGN KEY f (p) REFERENCES parent (id))");
  sql.exec("INSERT INTO parent VALUES (5), (6)");
  sql.exec("INSERT INTO t VALUES (1, 6), (2, 5)");
  EXPECT_EQ(Cursor({.index = "f"}).ints(0), (Ints{2, 1}));
}

TEST_F(TableKind, MultiValuedIndexHasARowForEachEntry) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, j JSON,"
      " KEY m ((CAST(j AS UNSIGNED ARRAY))))");
  sql.exec("INSERT INTO t VALUES (1, '[3, 1]'), (2, '[2]')");
  Cursor cursor({.index = "m"});
  ASSERT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
  EXPECT_EQ(cursor.ints(0), (Ints{1, 2, 1}));
  const Keys one = Keys().number(1), three = Keys().number(3);
  EXPECT_EQ(cursor.ints(0, {three, three}), (Ints{1}));
  EXPECT_FALSE(cursor.set_range({one, three}));
  EXPECT_FALSE(cursor.set_range({one, {}}));
  EXPECT_FALSE(cursor.set_range({{}, three}));
}

// The server's hidden column for the index's array reports the type of the
// elements, not JSON.
TEST_F(TableKind, ArrayOfAMultiValuedIndexReadsAsJson) {
  struct {
    const char *type, *array, *text;
  } const kinds[] = {
      {"UNSIGNED", "[1]", "[1]"},
      {"DECIMAL(10,2)", "[1.5]", "[1.50]"},
      {"CHAR(10)", "[\"x\"]", "[\"x\"]"},
      {"DATE", "[\"2024-02-29\"]", "[\"2024-02-29\"]"},
      {"DATETIME", "[\"2024-02-29 01:02:03\"]",
       "[\"2024-02-29 01:02:03.000000\"]"},
  };
  for (const auto &kind : kinds) {
    SCOPED_TRACE(kind.type);
    sql.exec("DROP TABLE IF EXISTS t");
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, j JSON, KEY m ((CAST(j AS " +
             std::string(kind.type) + " ARRAY))))");
    for (int id = 1; id <= 10; ++id)
      sql.exec("INSERT INTO t VALUES (" + std::to_string(id) + ", '" +
               kind.array + "')");
    for (const char *index : {"PRIMARY", "m"}) {
      for (const bool index_only : {false, true}) {
        Cursor cursor({.index = index, .index_only = index_only});
        int rows = 0;
        for (bool more = cursor.set_range(); more && cursor.next(); ++rows) {
          cursor.read_int(2);
          cursor.read_real(2);
          cursor.read_decimal(2);
          cursor.read_datetime(2);
          if (index_only) {
            EXPECT_FALSE(cursor.read_text(2)) << index;
          } else {
            EXPECT_EQ(cursor.read_text(2), kind.text) << index;
            EXPECT_EQ(cursor.read_date(2), -730517);
            EXPECT_EQ(cursor.read_time(2), 0);
          }
        }
        EXPECT_EQ(rows, 10) << index;
      }
    }
  }
}

}  // namespace
