// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Values stored outside the clustered index page, and columns that are missing
// in older records. Reads give them as the snapshot sees them, whatever was
// changed since.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>

#include "parallel_test.h"

namespace {

using namespace harness;

class ParallelLargeValue : public Parallel_test {
 protected:
  /** @param pad  bytes that stay on the page in each row; the default leaves
      room for two or three rows to a page */
  void make(const std::string &options = "", size_t pad = 7000) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, b LONGBLOB, c LONGTEXT,"
        " j JSON, g GEOMETRY, " +
        filler(pad) + ") " + options);
    fill("t", 60,
         "i, REPEAT(CHAR(i USING binary), i * 1500), REPEAT('text', i * 700),"
         " JSON_OBJECT('k', i, 'large', REPEAT('j', i * 900)),"
         " ST_GeomFromText(CONCAT('LINESTRING(0 0', REPEAT(',1 1', i * 100),"
         " ')'))");
  }
  /** Two rows to a page. */
  void make_json(const std::string &options = "") {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, j JSON, " + filler(7000) +
             ") " + options);
  }
};

TEST_F(ParallelLargeValue, OffThePage) {
  make();
  expect_whole_table();
}

TEST_F(ParallelLargeValue, MoreThanABatchOfThem) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, c TEXT) CHARACTER SET latin1");
  fill("t", 9000,
       "i, IF(i % 100, CONCAT('short ', i), REPEAT('l', 20000 + i))");
  expect_whole_table();
}

// A batch is handed over as soon as its large values exceed 8 MB, however few
// rows it has. A batch is therefore at most 8 MB and one row large.
TEST_F(ParallelLargeValue, DoNotPileUpInABatch) {
  constexpr size_t n_rows = 200, bytes = 1 << 20;
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, pad VARCHAR(2000), b LONGBLOB)"
      " CHARACTER SET latin1");
  fill("t", n_rows, "i, REPEAT('p', 2000), REPEAT('x', 1048576)");
  const Scan scan;
  for (const size_t threads : {size_t{0}, size_t{4}}) {
    SCOPED_TRACE(std::to_string(threads) + " threads");
    std::vector<long long> ids;
    size_t largest_batch = 0;
    std::set<uint64_t> workers;
    std::mutex mu;
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      const std::lock_guard<std::mutex> lock(mu);
      workers.insert(batch.thread);
      size_t of_batch = 0;
      for (unsigned int nr = 0; nr < batch.size(); ++nr) {
        ids.push_back(batch.read_int(0, nr).value());
        const std::string value = batch.read_text(2, nr).value();
        EXPECT_EQ(value.size(), bytes);
        EXPECT_EQ(value.find_first_not_of('x'), std::string::npos);
        of_batch += value.size();
      }
      largest_batch = std::max(largest_batch, of_batch);
      return false;
    }));
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, as_ints(sql.query("SELECT id FROM t ORDER BY id")));
    if (threads > 1) {
      EXPECT_GT(workers.size(), 1u);
    }
    // A smaller largest batch would mean that nearly every row has its own
    // batch.
    EXPECT_GE(largest_batch, 4 * bytes);
    EXPECT_LE(largest_batch, 9 * bytes);
  }
}

TEST_F(ParallelLargeValue, Replaced) {
  make();
  take_snapshot();
  sql.exec(
      "UPDATE t SET b = REPEAT('N', 60000), c = 'short',"
      " j = '[]', g = ST_GeomFromText('POINT(1 1)')");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, ReplacedTwice) {
  make();
  sql.exec("UPDATE t SET b = REPEAT('1', 50000) WHERE id % 2 = 0");
  take_snapshot();
  sql.exec("UPDATE t SET b = REPEAT('2', 70000), c = REPEAT('2', 30000)");
  sql.exec("UPDATE t SET b = NULL, c = NULL, j = NULL, g = NULL");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, Deleted) {
  make();
  take_snapshot();
  sql.exec("DELETE FROM t");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, ChangedByTheDonor) {
  make();
  take_snapshot();
  donor.exec("UPDATE t SET b = REPEAT('D', 90000) WHERE id % 2 = 0");
  expect_whole_table();
  donor.exec("ROLLBACK");
}

// While the server writes a large value, it releases the page between the parts
// of the value. A read at such a moment must still deliver whole values.
TEST_F(ParallelLargeValue, BeingWrittenByTheDonor) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, b LONGBLOB, " + filler(7000) +
           ")");
  fill("t", 48, "i, REPEAT('x', 40000)");
  take_snapshot();
  donor.exec("UPDATE t SET b = REPEAT('y', 40000) WHERE id = 1");
  const std::string others(40000, 'x'), first(40000, 'y');
  std::string before = others;
  const Scan scan({.donor = donor.id()});
  size_t n_meanwhile = 0;
  for (int i = 0; i < 20; ++i) {
    const std::string after(2000000, static_cast<char>('A' + i));
    const auto is_whole = [&](long long id, const std::string &value) {
      if (id == 20) return value == before || value == after;
      return value == (id == 1 ? first : others);
    };
    std::future<Reply> writing =
        donor.send("UPDATE t SET b = REPEAT(CHAR(65 + " + std::to_string(i) +
                   "), 2000000) WHERE id = 20");
    const auto is_written = [&] {
      return writing.wait_for(std::chrono::seconds(0)) ==
             std::future_status::ready;
    };
    while (!is_written()) {
      std::atomic<size_t> n_torn{0}, n_rows{0};
      const auto take = [&](const Batch &batch) {
        n_rows += batch.size();
        for (unsigned int nr = 0; nr < batch.size(); ++nr)
          if (!is_whole(batch.read_int(0, nr).value(),
                        batch.read_text(1, nr).value()))
            ++n_torn;
        return false;
      };
      const bool complete =
          read_parallel(scan, i % 2 ? 3 : 0, take, Workers::any);
      EXPECT_TRUE(!complete || n_rows == 48u) << n_rows;
      EXPECT_EQ(n_torn, 0u);
      if (!is_written()) ++n_meanwhile;
    }
    EXPECT_EQ(writing.get().error, 0u);
    ASSERT_FALSE(HasFailure());
    before = after;
  }
  EXPECT_GT(n_meanwhile, 0u);
  donor.exec("ROLLBACK");
}

TEST_F(ParallelLargeValue, UncommittedOnesOfOthers) {
  make();
  sql.exec("BEGIN");
  sql.exec("UPDATE t SET b = REPEAT('U', 90000) WHERE id % 2 = 0");
  sql.exec("INSERT INTO t (id, b) VALUES (1000, REPEAT('U', 90000))");
  take_snapshot();
  expect_whole_table();
  sql.exec("ROLLBACK");
}

TEST_F(ParallelLargeValue, GrownInPlaceAndBeyond) {
  make();
  take_snapshot();
  sql.exec("UPDATE t SET c = CONCAT(c, 'tail')");
  sql.exec("UPDATE t SET c = CONCAT(c, REPEAT('more', 9000))");
  expect_whole_table();
}

// JSON updates of a few bytes change the stored value in place.
TEST_F(ParallelLargeValue, JsonChangedInPlace) {
  make_json();
  fill("t", 48,
       "i, JSON_OBJECT('a', REPEAT('a', 30), 'large', REPEAT('j', 30000), 'z',"
       " REPEAT('z', 30), 'n', i)");
  take_snapshot();
  const Rows before = donor_rows("SELECT * FROM t");
  for (int round = 0; round < 3; ++round) {
    sql.exec("UPDATE t SET j = JSON_SET(j, '$.a', REPEAT('" +
             std::to_string(round) + "', 30), '$.z', REPEAT('y', 20))");
    sql.exec("UPDATE t SET j = JSON_REPLACE(j, '$.n', -5) WHERE id % 2 = 0");
    expect_whole_table();
  }
  EXPECT_EQ(donor_rows("SELECT * FROM t"), before);
}

TEST_F(ParallelLargeValue, JsonChangedInPlaceByAnOpenTransaction) {
  make_json();
  fill("t", 48,
       "i, JSON_OBJECT('a', REPEAT('a', 30), 'large',"
       " REPEAT('j', 30000 + i))");
  sql.exec("BEGIN");
  sql.exec("UPDATE t SET j = JSON_SET(j, '$.a', REPEAT('b', 30))");
  take_snapshot();
  expect_whole_table();
  sql.exec("ROLLBACK");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, JsonChangedInPlaceBetweenTwoSnapshots) {
  make_json();
  fill("t", 48,
       "i, JSON_OBJECT('a', REPEAT('a', 30), 'large',"
       " REPEAT('j', 40000))");
  Client holder;
  holder.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("UPDATE t SET j = JSON_SET(j, '$.a', REPEAT('b', 30))");
  take_snapshot();
  sql.exec("UPDATE t SET j = JSON_SET(j, '$.a', REPEAT('c', 30))");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, InRedundantRows) {
  make("ROW_FORMAT = REDUNDANT", 3900);
  take_snapshot();
  sql.exec("UPDATE t SET b = REPEAT('N', 60000), c = 'short' WHERE id % 2 = 0");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, InCompactRows) {
  make("ROW_FORMAT = COMPACT", 3900);
  take_snapshot();
  sql.exec("UPDATE t SET b = REPEAT('N', 60000), c = 'short' WHERE id % 2 = 0");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, InCompressedRows) {
  make("ROW_FORMAT = COMPRESSED KEY_BLOCK_SIZE = 4", 3400);
  take_snapshot();
  sql.exec("UPDATE t SET b = REPEAT('N', 60000), c = 'short' WHERE id % 2 = 0");
  sql.exec("DELETE FROM t WHERE id % 5 = 0");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, JsonChangedInCompressedRows) {
  make_json("ROW_FORMAT = COMPRESSED");
  fill("t", 48,
       "i, JSON_OBJECT('a', REPEAT('a', 30), 'large',"
       " REPEAT(UUID(), 3000))");
  take_snapshot();
  sql.exec("UPDATE t SET j = JSON_SET(j, '$.a', REPEAT('b', 30))");
  expect_whole_table();
}

TEST_F(ParallelLargeValue, OfAFetchedRow) {
  make();
  sql.exec(
      "ALTER TABLE t ADD COLUMN v INT NOT NULL DEFAULT 3 AFTER g,"
      " ADD COLUMN entry CHAR(255) CHARACTER SET latin1 INVISIBLE,"
      " ADD KEY v (v, entry, id)");
  sql.exec(
      "INSERT INTO t (id, entry, pad) WITH RECURSIVE n (i) AS (SELECT 1 UNION"
      " ALL SELECT i + 1 FROM n WHERE i < 1500) SELECT i + 1000, i, '' FROM n");
  take_snapshot();
  sql.exec("UPDATE t SET b = REPEAT('N', 60000), c = 'short' WHERE id % 2 = 0");
  expect_range({.index = "v"}, {}, {0, 1, 2, 3, 4, 5}, "SELECT * FROM t");
}

class ParallelInstant : public Parallel_test {
 protected:
  void make() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(50),"
        " c TEXT, " +
        filler(100) + ")");
    fill("t", 3000,
         "i, i * 2, CONCAT('b', i), NULLIF(REPEAT('c', i % 90), '')");
  }
  /** If the server cannot make the change instantly, it rebuilds the table. */
  void alter(const std::string &change) {
    if (sql.attempt("ALTER TABLE t " + change + ", ALGORITHM = INSTANT").error)
      sql.exec("ALTER TABLE t " + change);
  }
};

TEST_F(ParallelInstant, ColumnsAdded) {
  make();
  alter("ADD COLUMN d INT DEFAULT 77, ADD COLUMN e VARCHAR(10) DEFAULT 'dflt'");
  fill("t", 100, "i + 5000, i, 'late', NULL, i, 'own'");
  alter("ADD COLUMN f DATE, ADD COLUMN g TEXT");
  sql.exec(
      "UPDATE t SET f = '2020-01-01', g = REPEAT('g', 20000)"
      " WHERE id % 100 = 0");
  expect_whole_table();
}

TEST_F(ParallelInstant, ColumnsAddedFirst) {
  make();
  alter("ADD COLUMN z INT DEFAULT 9 FIRST");
  fill("t", 100, "1, i + 5000, i, 'late', NULL");
  alter("ADD COLUMN y CHAR(3) DEFAULT 'yyy' AFTER a");
  expect_whole_table();
}

TEST_F(ParallelInstant, ColumnsDropped) {
  make();
  alter("DROP COLUMN a");
  fill("t", 100, "i + 5000, 'late', 'c'");
  alter("DROP COLUMN c, ADD COLUMN c2 BIGINT DEFAULT 123456789012");
  sql.exec("UPDATE t SET b = 'changed' WHERE id % 10 = 0");
  expect_whole_table();
}

TEST_F(ParallelInstant, OldVersionsOfRowsWithAddedColumns) {
  make();
  alter("ADD COLUMN d INT DEFAULT 77");
  take_snapshot();
  sql.exec("UPDATE t SET d = 1, b = 'changed' WHERE id % 3 = 0");
  sql.exec("DELETE FROM t WHERE id % 7 = 0");
  expect_whole_table();
}

// For such a row some servers build the earlier version of the column from the
// key prefix alone. The read must then pad the value: the batch's memory still
// holds values of the batch before.
TEST_F(ParallelInstant, OldVersionsOfRowsWhoseKeyIsTheBeginningOfAColumn) {
  for (const std::string type :
       {"CHAR(8) CHARACTER SET latin1", "BINARY(8)",
        "CHAR(8) CHARACTER SET utf8mb4", "VARCHAR(8) CHARACTER SET latin1"}) {
    SCOPED_TRACE(type);
    sql.exec("DROP TABLE IF EXISTS t");
    sql.exec("CREATE TABLE t (c " + type +
             ", a INT, b VARCHAR(20), PRIMARY KEY (c(5)))");
    fill("t", 9000, "CONCAT(LPAD(i, 5, '0'), 'XYZ'), i, 'b'");
    alter("ADD COLUMN d INT DEFAULT 77");
    take_snapshot();
    sql.exec("UPDATE t SET b = 'longer' WHERE a > 4096");
    const Scan scan({.donor = donor.id()});
    for (const size_t threads : thread_counts) {
      const Delivered delivered = collect(scan, threads, {0, 1, 3});
      EXPECT_TRUE(delivered.complete);
      ASSERT_EQ(delivered.rows.size(), 9000u);
      for (size_t i = 0; i < 9000; ++i) {
        const std::string number = std::to_string(i + 1);
        const std::string key = std::string(5 - number.size(), '0') + number;
        const std::string cut =
            type == "BINARY(8)" ? key + std::string(3, '\0') : key;
        const std::string value = delivered.rows[i][0].value();
        ASSERT_TRUE(value == key + "XYZ" || (i >= 4096 && value == cut))
            << i << ": " << value;
        ASSERT_EQ(delivered.rows[i][1], number);
        ASSERT_EQ(delivered.rows[i][2], "77");
      }
    }
    donor.exec("COMMIT");
  }
}

TEST_F(ParallelInstant, FewColumnsReadOfManyAdded) {
  make();
  alter("ADD COLUMN d INT DEFAULT 77, ADD COLUMN e INT DEFAULT 88");
  Scan scan;
  const uint32_t d = 5;  // behind the filler
  scan.set_columns({d});
  for (const size_t threads : thread_counts)
    expect_rows(collect(scan, threads, {d}).rows, Rows(3000, Row{"77"}));
}

TEST_F(ParallelInstant, SecondaryIndexOnAnAddedColumn) {
  make();
  alter("ADD COLUMN d INT DEFAULT 77");
  sql.exec("UPDATE t SET d = id WHERE id % 2 = 0");
  sql.exec("ALTER TABLE t ADD KEY by_d (d, pad)");
  expect_range({.index = "by_d", .index_only = true}, {}, {0, 5},
               "SELECT id, d FROM t");
  expect_whole_table();
}

TEST_F(ParallelInstant, InRedundantRows) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, " + filler(400) +
           ") ROW_FORMAT = REDUNDANT");
  fill("t", 1000, "i, i");
  alter("ADD COLUMN d VARCHAR(20) DEFAULT 'default'");
  fill("t", 100, "i + 5000, i, NULL");
  expect_whole_table();
}

}  // namespace
