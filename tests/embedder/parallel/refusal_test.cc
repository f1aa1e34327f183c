// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Reads that are refused say why and have no other effect. Also what the server
// prints in its error log during a read.

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelRefusal : public Parallel_test {
 protected:
  template <class Reader>
  void expect_refused(const Reader &reader, const std::string &message) {
    ASSERT_TRUE(reader.is_open()) << reader.error << reader.message;
    for (const size_t threads : thread_counts) {
      const Server_log log(sql);
      EXPECT_FALSE(read_parallel(reader, threads, [](const Batch &) {
        ADD_FAILURE() << "a batch of a refused read";
        return false;
      }));
      EXPECT_EQ(log.count(message), 1u) << log.text();
    }
  }
};

TEST_F(ParallelRefusal, PartitionedTable) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, v INT) PARTITION BY HASH (id)"
      " PARTITIONS 4");
  fill("t", 100, "i, i");
  const char *message =
      "Cannot do parallel scan on table without a single B-tree\n";
  expect_refused(Scan(), message);
  Cursor cursor;
  expect_refused(cursor, message);
  EXPECT_EQ(cursor.ints(0).size(), 100u);
}

TEST_F(ParallelRefusal, TableWithoutItsTablespace) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
  fill("t", 100, "i, i");
  sql.exec("ALTER TABLE t DISCARD TABLESPACE");
  const char *message =
      "Cannot do parallel scan on table without its tablespace\n";
  expect_refused(Scan(), message);
  Cursor cursor;
  expect_refused(cursor, message);
  expect_refused(Cursor({.index = "by_v", .index_only = true}), message);
  EXPECT_FALSE(cursor.set_range());
}

TEST_F(ParallelRefusal, IndexOnAVirtualColumn) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, v INT AS (a * 2) VIRTUAL,"
      " KEY by_v (v), KEY mixed (a, v))");
  fill("t (id, a)", 100, "i, i");
  const char *message = "Cannot do parallel scan on index with virtual field\n";
  expect_refused(Cursor({.index = "by_v"}), message);
  expect_refused(Cursor({.index = "by_v", .index_only = true}), message);
  expect_refused(Cursor({.index = "mixed", .index_only = true}), message);
}

TEST_F(ParallelRefusal, FunctionalIndex) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, KEY f ((a + 1)))");
  fill("t", 100, "i, i");
  expect_refused(Cursor({.index = "f"}),
                 "Cannot do parallel scan on index with virtual field\n");
}

TEST_F(ParallelRefusal, MultiValuedIndex) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, j JSON, " + filler(3500) +
           ", KEY m ((CAST(j AS UNSIGNED ARRAY))))");
  fill("t", 100, "i, JSON_ARRAY(i, i + 1)");
  expect_refused(Cursor({.index = "m"}),
                 "Cannot do parallel scan on index with virtual field\n");
  expect_whole_table("SELECT id, j, pad, NULL FROM t");
}

TEST_F(ParallelRefusal, TableRebuiltAfterTheSnapshot) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
  fill("t", 100, "i, i");
  take_snapshot();
  sql.exec("ALTER TABLE t FORCE");
  EXPECT_EQ(donor.attempt("SELECT * FROM t").error, 1412u);
  const Scan scan({.donor = donor.id()});
  if (!scan.is_open()) {
    EXPECT_EQ(scan.error, 1412u);
    return;
  }
  expect_refused(scan,
                 "Cannot do parallel scan on index newer than the snapshot\n");
}

TEST_F(ParallelRefusal, TableOfAnotherEngine) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY) ENGINE = MyISAM");
  const Scan scan;
  EXPECT_FALSE(scan.is_open());
  EXPECT_EQ(scan.error, 1031u);
}

TEST_F(ParallelRefusal, TableThatDoesNotExist) {
  const Scan scan({.table = "nothing"});
  EXPECT_FALSE(scan.is_open());
  EXPECT_EQ(scan.error, 1146u);
  EXPECT_EQ(scan.message, "Table 'db.nothing' doesn't exist");
}

TEST_F(ParallelRefusal, View) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  sql.exec("CREATE VIEW v AS SELECT * FROM t");
  EXPECT_EQ(Scan({.table = "v"}).error, 1347u);
}

TEST_F(ParallelRefusal, LockedTable) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  sql.exec("CREATE TABLE other (id INT PRIMARY KEY)");
  sql.exec("LOCK TABLES t WRITE");
  // A session from the pool still has the timeout of its last opening. Make
  // that timeout short.
  { const Scan last({.table = "other", .timeout = 1}); }
  const Scan scan({.timeout = 1});
  EXPECT_FALSE(scan.is_open());
  EXPECT_EQ(scan.error, 1205u);
  sql.exec("UNLOCK TABLES");
  EXPECT_TRUE(Scan().is_open());
}

/** Tables with an index that cannot be read in parallel. Reads use the primary
    key or another index. */
class ParallelOddIndex : public Parallel_test {};

TEST_F(ParallelOddIndex, VirtualColumnsHaveNoValue) {
  sql.exec(
      "CREATE TABLE t (v INT AS (a * 2) VIRTUAL, id INT PRIMARY KEY, a INT,"
      " w VARCHAR(20) AS (CONCAT('w', a)) VIRTUAL, b INT, " +
      filler(150) + ", KEY by_v (v), KEY by_b (b, pad))");
  fill("t (id, a, b)", 3000, "i, i * 3, i * 5");
  expect_whole_table("SELECT NULL, id, a, NULL, b, pad FROM t");
  expect_range({.index = "by_b", .index_only = true}, {}, {1, 4},
               "SELECT id, b FROM t");
}

TEST_F(ParallelOddIndex, StoredGeneratedColumns) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, s INT AS (a + 100) STORED, " +
      filler(150) + ", KEY by_s (s, pad))");
  fill("t (id, a)", 3000, "i, i * 3");
  expect_whole_table();
  expect_range({.index = "by_s", .index_only = true}, {}, {0, 2},
               "SELECT id, s FROM t");
}

TEST_F(ParallelOddIndex, FullText) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, w TEXT, " + filler(900) +
           ", FULLTEXT KEY f (w))");
  fill("t", 500, "i, CONCAT('some words of row ', i)");
  expect_whole_table();
  EXPECT_EQ(Cursor({.index = "f"}).error, 1178u);
}

TEST_F(ParallelOddIndex, Spatial) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, p POINT NOT NULL SRID 0, " +
           filler(900) + ", SPATIAL KEY s (p))");
  fill("t", 500, "i, ST_GeomFromText(CONCAT('POINT(', i, ' 2)'))");
  expect_whole_table();
  EXPECT_EQ(Cursor({.index = "s"}).error, 1178u);
}

TEST_F(ParallelOddIndex, InvisibleColumnsAndIndexes) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT INVISIBLE,"
      " KEY by_a (a) INVISIBLE)");
  fill("t (id, a)", 15000, "i, i * 3");
  expect_whole_table("SELECT id, a FROM t");
}

class ParallelReport : public Parallel_test {};

TEST_F(ParallelReport, OneLineForEachWorker) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
  fill("t", 30000, "i, i");
  const Scan scan;
  for (const size_t threads : {size_t{2}, size_t{3}, size_t{8}}) {
    const Server_log log(sql);
    EXPECT_EQ(collect(scan, threads, {0}).rows.size(), 30000u);
    EXPECT_EQ(log.count("thread("), threads);
    const std::string text = log.text();
    size_t sum = 0;
    for (size_t i = 0; i < threads; ++i) {
      const std::string line =
          "thread(" + std::to_string(i) + ") read tuples: ";
      const size_t at = text.find(line);
      ASSERT_NE(at, std::string::npos) << text;
      sum += std::stoul(text.substr(at + line.size()));
    }
    EXPECT_EQ(sum, 30000u);
  }
}

TEST_F(ParallelReport, NoneOfTheCallingThread) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
  fill("t", 3000, "i, i");
  const Scan scan;
  const Server_log log(sql);
  collect(scan, 0, {0});
  collect(scan, 1, {0});
  EXPECT_EQ(log.count("thread("), 0u);
}

TEST_F(ParallelReport, AlsoOfAReadThatWasStopped) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
  fill("t", 30000, "i, i");
  const Scan scan;
  const Server_log log(sql);
  EXPECT_FALSE(read_parallel(scan, 2, [](const Batch &) { return true; }));
  EXPECT_EQ(log.count("thread("), 2u);
}

}  // namespace
