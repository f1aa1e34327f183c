// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Reads of a secondary index: index-only reads, and reads that fetch the row of
// each entry.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <numeric>

#include "parallel_test.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class ParallelSecondary : public Parallel_test {
 protected:
  /** Entries of 700 bytes, so that the index has many leaf pages. */
  void make(size_t n_rows) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, k VARCHAR(700) CHARACTER SET"
        " latin1, v INT, KEY by_k (k))");
    fill("t", n_rows,
         "i, CONCAT(LPAD(i % 50, 4, '0'), LPAD(i, 6, '0'),"
         " REPEAT('k', 690)), i * 3");
  }

  /** Seven rows to a page, and seven entries of by_v to a page. */
  void make_wide(size_t n_rows) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, w INT, " +
             filler(2000) + ", KEY by_v (v, pad))");
    fill("t", n_rows, "i, i, i * 7");
  }
};

TEST_F(ParallelSecondary, ByItself) {
  make(2000);
  expect_range({.index = "by_k", .index_only = true}, {}, {0, 1},
               "SELECT id, k FROM t");
}

TEST_F(ParallelSecondary, ByItselfAnOutsideColumnHasNoValue) {
  make(2000);
  const Cursor cursor({.index = "by_k", .index_only = true});
  EXPECT_TRUE(read_parallel(cursor, 2, [](const Batch &batch) {
    for (unsigned int nr = 0; nr < batch.size(); ++nr) {
      EXPECT_TRUE(batch.read_int(0, nr));
      EXPECT_FALSE(batch.read_int(2, nr));
    }
    return false;
  }));
}

// This holds for NOT NULL columns too, although a record has no bit for their
// NULL.
TEST_F(ParallelSecondary, ByItselfAnOutsideColumnThatIsNotNullHasNoValue) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a INT, v INT NOT NULL,"
      " e ENUM('one', 'two') NOT NULL, d DATE NOT NULL, c CHAR(5) NOT NULL,"
      " b BLOB NOT NULL, KEY by_a (a))");
  fill("t", 3000, "i, i, i, 'two', '2024-02-29', 'c', 'b'");
  Cursor cursor({.index = "by_a", .index_only = true});
  const auto expect_no_values = [&](const Columns &columns,
                                    const std::string &select) {
    for (const size_t threads : thread_counts) {
      std::atomic<size_t> n_values{0};
      EXPECT_TRUE(read_parallel(cursor, threads, [&](const Batch &batch) {
        for (unsigned int nr = 0; nr < batch.size(); ++nr) {
          for (const unsigned int column : columns) {
            n_values += batch.read_int(column, nr).has_value() +
                        batch.read_real(column, nr).has_value() +
                        batch.read_text(column, nr).has_value() +
                        batch.read_decimal(column, nr).has_value() +
                        batch.read_date(column, nr).has_value() +
                        batch.read_time(column, nr).has_value() +
                        batch.read_datetime(column, nr).has_value();
          }
        }
        return false;
      }));
      EXPECT_EQ(n_values, 0u) << threads << " threads";
      expect_rows(collect(cursor, threads, first_columns(7)).rows,
                  donor_rows(select));
    }
  };
  expect_no_values({2, 3, 4, 5, 6},
                   "SELECT id, a, NULL, NULL, NULL, NULL, NULL FROM t");
  cursor.set_columns({0, 2, 3, 6});
  expect_no_values({1, 2, 3, 4, 5, 6},
                   "SELECT id, NULL, NULL, NULL, NULL, NULL, NULL FROM t");
  cursor.set_columns({2});
  expect_no_values({0, 1, 2},
                   "SELECT NULL, NULL, NULL, NULL, NULL, NULL, NULL FROM t");
}

// The page of the entries has changed since the snapshot, so the read looks up
// the row of each entry. It must release the row's page before it calls the
// callback: another session updates that row during the callback.
TEST_F(ParallelSecondary, ByItselfTheRowsPageIsFreeInTheCallback) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, w INT, KEY by_v (v))");
  fill("t", 5000, "i, i, 0");
  take_snapshot();
  sql.exec("UPDATE t SET v = v + 10000 WHERE id % 50 = 3");
  const Cursor cursor(
      {.index = "by_v", .index_only = true, .donor = donor.id()});
  size_t n_batches = 0, n_rows = 0;
  std::future<Reply> writing;
  EXPECT_TRUE(read_parallel(cursor, 0, [&](const Batch &batch) {
    n_rows += batch.size();
    if (++n_batches > 1) return false;
    // The read has looked up this row already. It is the first row of the next
    // batch.
    EXPECT_EQ(batch.read_int(0, 4095), 4096);
    writing = sql.send("UPDATE t SET w = 1 WHERE id = 4097");
    EXPECT_EQ(writing.wait_for(std::chrono::seconds(5)),
              std::future_status::ready);
    return false;
  }));
  EXPECT_EQ(writing.get().error, 0u);
  EXPECT_EQ(n_batches, 2u);
  EXPECT_EQ(n_rows, 5000u);
}

// The only unit ends with the index, not inside a page, so no row is left out.
TEST_F(ParallelSecondary, WithTheRowFetchedOfOneLeaf) {
  make(20);
  expect_range({.index = "by_k"}, {}, {0, 1, 2}, "SELECT * FROM t",
               Workers::any);
}

TEST_F(ParallelSecondary, WithTheRowFetchedRowsAreRightAndOnce) {
  make(2000);
  expect_range({.index = "by_k"}, {}, {0, 1, 2}, "SELECT * FROM t");
}

// The index has one page, and the end bound lies inside it.
TEST_F(ParallelSecondary, WithTheRowFetchedThePageOfAnInnerEndIsLeftOut) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
  fill("t", 100, "i, i");
  Cursor cursor({.index = "by_v"});
  for (const size_t threads : thread_counts) {
    cursor.set_range({{}, Keys().number(50)});
    EXPECT_EQ(collect_ints(cursor, threads, 0, Workers::any), (Ints{}));
    // The end bound is no entry's key and lies after the last entry of the
    // page.
    cursor.set_range({Keys().number(91), Keys().number(1000)});
    EXPECT_EQ(collect_ints(cursor, threads, 0, Workers::any),
              (Ints{91, 92, 93, 94, 95, 96, 97, 98, 99, 100}));
    // A closed end at the last entry: the whole page lies inside the range.
    cursor.set_range({Keys().number(99), Keys().number(100)});
    EXPECT_EQ(collect_ints(cursor, threads, 0, Workers::any), (Ints{99, 100}));
    cursor.set_range({Keys().number(99), Keys().number(100), true, false});
    EXPECT_EQ(collect_ints(cursor, threads, 0), (Ints{}));
  }
}

TEST_F(ParallelSecondary, ByItselfTheInnerEndIsExact) {
  make_wide(300);
  expect_range({.index = "by_v", .index_only = true}, {{}, Keys().number(250)},
               {0, 1}, "SELECT id, v FROM t WHERE v <= 250");
}

// The row of an entry that was deleted since the snapshot is delivered as the
// snapshot sees it.
TEST_F(ParallelSecondary, WithTheRowFetchedDeletedAndChangedRowsAreThere) {
  make_wide(200);
  take_snapshot();
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  sql.exec("UPDATE t SET w = 0 WHERE id % 3 = 1");
  sql.exec("UPDATE t SET v = v + 1000 WHERE id % 6 = 2");
  expect_range({.index = "by_v"}, {}, {0, 1, 2}, "SELECT * FROM t");
}

TEST_F(ParallelSecondary, WithTheRowFetchedEntriesOfRowsLongGoneAreNotThere) {
  make_wide(200);
  Client holder;
  holder.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("UPDATE t SET v = v + 1000 WHERE id % 2 = 0");
  take_snapshot();
  expect_range({.index = "by_v"}, {}, {0, 1, 2}, "SELECT * FROM t");
}

// The donor's own delete has marked the row as deleted and waits for a lock on
// the entry. The entry is not marked, and the read goes by the entry.
TEST_F(ParallelSecondary, WithTheRowFetchedADeletedVersionIsDelivered) {
  make_wide(200);
  sql.exec("BEGIN");
  sql.query("SELECT v FROM t FORCE INDEX (by_v) WHERE v = 4 FOR SHARE");
  take_snapshot();
  donor.exec("UPDATE t SET w = 1 WHERE id = 9");
  auto waiting = donor.send("DELETE FROM t WHERE id = 4");
  Client other;
  EXPECT_TRUE(wait_until([&] {
    return other.number(
               "SELECT COUNT(*) FROM"
               " performance_schema.data_lock_waits") > 0;
  }));
  Ints all(200);
  std::iota(all.begin(), all.end(), 1);
  Ints without_4 = all;
  without_4.erase(without_4.begin() + 3);
  {
    const Cursor cursor({.index = "by_v", .donor = donor.id()});
    const Cursor primary({.donor = donor.id()});
    for (const size_t threads : thread_counts) {
      EXPECT_EQ(collect_ints(cursor, threads, 0), all);
      EXPECT_EQ(collect_ints(primary, threads, 0), without_4);
    }
  }
  sql.exec("ROLLBACK");
  EXPECT_EQ(waiting.get().error, 0u);
  donor.exec("ROLLBACK");
}

TEST_F(ParallelSecondary, WithTheRowFetchedADeletedRowIsNotDelivered) {
  make_wide(200);
  Client holder;
  holder.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t WHERE id = 4");
  take_snapshot();
  expect_range({.index = "by_v"}, {}, {0, 1, 2}, "SELECT * FROM t");
}

TEST_F(ParallelSecondary, ByItselfADeletedRowIsNotDelivered) {
  make_wide(200);
  Client holder;
  holder.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t WHERE id = 4");
  take_snapshot();
  expect_range({.index = "by_v", .index_only = true}, {}, {0, 1},
               "SELECT id, v FROM t");
}

TEST_F(ParallelSecondary, PrimaryKeyOfAPrefixWithTheRowFetched) {
  sql.exec("CREATE TABLE t (a VARCHAR(100), v INT, w INT, " + filler(2500) +
           ", PRIMARY KEY (a(4)), KEY by_v (v, pad))");
  fill("t", 150, "CONCAT(LPAD(i, 4, '0'), ' and more'), i, i * 2");
  expect_range({.index = "by_v"}, {}, {0, 1, 2}, "SELECT * FROM t");
  expect_whole_table();
}

TEST_F(ParallelSecondary, PrefixOfAColumnByItself) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a VARCHAR(100), b TEXT, " +
           filler(800) + ", KEY by_a (a(3), pad), KEY by_b (b(5), pad))");
  fill("t", 500, "i, CONCAT(LPAD(i, 3, '0'), 'rest'), CONCAT('abcd', i, 'x')");
  expect_range({.index = "by_a", .index_only = true}, {}, {0, 1},
               "SELECT id, LEFT(a, 3) FROM t");
  expect_range({.index = "by_b", .index_only = true}, {}, {0, 2},
               "SELECT id, LEFT(b, 5) FROM t");
}

// The value is as long as the column and is filled up as if only the prefix had
// been stored.
TEST_F(ParallelSecondary, PrefixOfAFixedLengthColumnByItself) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, a BINARY(20),"
      " b CHAR(20) CHARACTER SET latin1, c CHAR(20) CHARACTER SET utf8mb4,"
      " d CHAR(20) CHARACTER SET utf16, " +
      filler(800) +
      ", KEY by_a (a(3), pad), KEY by_b (b(3), pad), KEY by_c (c(3), pad),"
      " KEY by_d (d(3), pad))");
  fill("t", 500,
       "i, CONCAT(LPAD(i, 3, '0'), REPEAT('r', 17)),"
       " CONCAT(LPAD(i, 3, '0'), REPEAT('s', 17)),"
       " CONCAT(LPAD(i, 3, '0'), REPEAT('t', 17)),"
       " CONCAT(LPAD(i, 3, '0'), REPEAT('u', 17))");
  expect_range({.index = "by_a", .index_only = true}, {}, {0, 1},
               "SELECT id, CAST(LEFT(a, 3) AS BINARY(20)) FROM t");
  expect_range({.index = "by_b", .index_only = true}, {}, {0, 2},
               "SELECT id, LEFT(b, 3) FROM t");
  expect_range({.index = "by_c", .index_only = true}, {}, {0, 3},
               "SELECT id, LEFT(c, 3) FROM t");
  expect_range({.index = "by_d", .index_only = true}, {}, {0, 4},
               "SELECT id, CAST(LEFT(d, 3) AS BINARY) FROM t");
}

/** If a row is too long for its page, its longest value is stored off the
    page. */
class ParallelOffPage : public ParallelSecondary {
 protected:
  void make(size_t n_rows) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, n INT, a VARCHAR(3000),"
        " b VARCHAR(2900), c VARCHAR(2900), KEY by_a (a)) ROW_FORMAT=DYNAMIC"
        " CHARSET latin1");
    fill("t", n_rows,
         "i, 0, CONCAT(LPAD(i, 4, '0'), REPEAT('a', 2996)), REPEAT('b', 2900),"
         " REPEAT('c', 2900)");
    take_snapshot();
  }

  void expect_all(bool index_only) {
    const Cursor cursor(
        {.index = "by_a", .index_only = index_only, .donor = donor.id()});
    const Ints expected = as_ints(
        donor.query("SELECT id FROM t IGNORE INDEX (by_a) ORDER BY id"));
    for (const size_t threads : thread_counts) {
      Ints ids = collect_ints(cursor, threads, 0);
      std::sort(ids.begin(), ids.end());
      EXPECT_EQ(ids, expected) << threads;
    }
  }
};

TEST_F(ParallelOffPage, OldVersionsByItself) {
  make(120);
  sql.exec("UPDATE t SET n = 1 WHERE id % 2");
  sql.exec("UPDATE t SET a = REVERSE(a) WHERE id % 5 = 0");
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  expect_all(true);
}

TEST_F(ParallelOffPage, OldVersionsWithTheRowFetched) {
  make(120);
  sql.exec("UPDATE t SET n = 1 WHERE id % 2");
  sql.exec("DELETE FROM t WHERE id % 3 = 0");
  expect_all(false);
}

TEST_F(ParallelSecondary, UniqueIndexWithNulls) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, UNIQUE KEY u (a))");
  fill("t", 25000, "i, IF(i % 3, i * 2, NULL)");
  take_snapshot();
  sql.exec("UPDATE t SET a = NULL WHERE id % 5 = 0");
  expect_range({.index = "u", .index_only = true}, {}, {0, 1},
               "SELECT id, a FROM t");
}

TEST_F(ParallelSecondary, WithoutAPrimaryKey) {
  sql.exec("CREATE TABLE t (a INT, b INT, " + filler(150) +
           ", KEY by_a (a, pad))");
  fill("t", 3000, "i % 20, i");
  expect_range({.index = "by_a", .index_only = true}, {}, {0},
               "SELECT a FROM t");
}

TEST_F(ParallelSecondary, CompositePrimaryKeyIsInTheIndex) {
  sql.exec("CREATE TABLE t (v INT, b INT, a VARCHAR(50), w INT, " +
           filler(150) + ", PRIMARY KEY (a, b), KEY by_v (v, pad))");
  fill("t", 3000, "i % 20, i, CONCAT('a', i % 7), i");
  expect_range({.index = "by_v", .index_only = true}, {}, {0, 1, 2},
               "SELECT v, b, a FROM t");
}

TEST_F(ParallelSecondary, DescendingParts) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, b INT, " + filler(150) +
           ", KEY k (a DESC, b, pad))");
  fill("t", 5000, "i, i % 100, i DIV 100");
  expect_range({.index = "k", .index_only = true},
               {Keys().number(80), Keys().number(20)}, {0, 1, 2},
               "SELECT * FROM t WHERE a BETWEEN 20 AND 80");
}

}  // namespace
