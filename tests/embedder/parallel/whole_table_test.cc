// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Reads of whole tables for every number of threads, with trees of every height
// and with keys and row formats of every kind.

#include <filesystem>
#include <fstream>

#include "innodb_api.h"
#include "parallel_test.h"

#include "buf0lru.h"

namespace {

namespace fs = std::filesystem;
using namespace harness;

class ParallelWholeTable : public Parallel_test {
 protected:
  /** A key of 3000 bytes, so that five records or node pointers fill a page. */
  void make_deep(size_t n_rows) {
    sql.exec(
        "CREATE TABLE t (k VARCHAR(3000) CHARACTER SET latin1 PRIMARY KEY,"
        " v INT)");
    fill("t", n_rows, "CONCAT(LPAD(i, 6, '0'), REPEAT('k', 2994)), i");
  }

  void make(const std::string &columns, size_t n_rows,
            const std::string &columns_of_i) {
    sql.exec("CREATE TABLE t (" + columns + ")");
    fill("t", n_rows, columns_of_i);
  }

  void expect_row_format(const std::string &format) {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(40),"
        " c TEXT) " +
        format);
    fill("t", 2000,
         "i, NULLIF(i % 5, 0), CONCAT('row ', i),"
         " IF(i % 7, REPEAT('c', i % 600), NULL)");
    sql.exec("DELETE FROM t WHERE id % 11 = 0");
    sql.exec("UPDATE t SET b = REPEAT('longer', 6) WHERE id % 13 = 0");
    expect_whole_table();
  }
};

TEST_F(ParallelWholeTable, Empty) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
  expect_whole_table("", Workers::any);
}

TEST_F(ParallelWholeTable, EmptyCallsNobody) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT)");
  const Scan scan;
  for (const size_t threads : thread_counts) {
    const Delivered delivered = collect(scan, threads, {0});
    EXPECT_TRUE(delivered.complete);
    EXPECT_TRUE(delivered.batches.empty());
  }
}

TEST_F(ParallelWholeTable, OneRow) {
  make("id INT PRIMARY KEY, v INT", 1, "i, 7");
  expect_whole_table("", Workers::any);
}

TEST_F(ParallelWholeTable, OnePage) {
  make("id INT PRIMARY KEY, v INT", 200, "i, i * 2");
  EXPECT_EQ(tree_levels(), 1u);
  expect_whole_table("", Workers::any);
}

TEST_F(ParallelWholeTable, AsManyRowsAsABatch) {
  make("id INT PRIMARY KEY, v INT", 4096, "i, i * 2");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, OneRowMoreThanABatch) {
  make("id INT PRIMARY KEY, v INT", 4097, "i, i * 2");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, TwoLevels) {
  make("id INT PRIMARY KEY, v INT", 30000, "i, i * 2");
  EXPECT_EQ(tree_levels(), 2u);
  expect_whole_table();
}

TEST_F(ParallelWholeTable, TwoLevelsOfTwoLeaves) {
  make_deep(8);
  EXPECT_EQ(tree_levels(), 2u);
  expect_whole_table();
}

TEST_F(ParallelWholeTable, ThreeLevels) {
  make_deep(60);
  EXPECT_EQ(tree_levels(), 3u);
  expect_whole_table();
}

TEST_F(ParallelWholeTable, FourLevels) {
  make_deep(250);
  EXPECT_EQ(tree_levels(), 4u);
  expect_whole_table();
}

TEST_F(ParallelWholeTable, FiveLevels) {
  make_deep(700);
  EXPECT_EQ(tree_levels(), 5u);
  expect_whole_table();
}

TEST_F(ParallelWholeTable, EveryNumberOfRowsOfADeepTree) {
  sql.exec("CREATE TABLE t (k VARCHAR(3000) CHARACTER SET latin1 PRIMARY KEY)");
  for (int rows = 0; rows <= 40; ++rows) {
    if (rows > 0)
      sql.exec("INSERT INTO t VALUES (CONCAT(LPAD(" + std::to_string(rows) +
               ", 6, '0'), REPEAT('k', 2994)))");
    const Scan scan;
    const Workers workers = rows >= 12 ? Workers::several : Workers::any;
    for (const size_t threads : {size_t{0}, size_t{2}, size_t{3}, size_t{5}})
      EXPECT_EQ(collect(scan, threads, {0}, workers).rows.size(), size_t(rows))
          << threads << " threads";
  }
}

TEST_F(ParallelWholeTable, AllRowsDeletedButStillSeen) {
  make("id INT PRIMARY KEY, v INT", 10000, "i, i * 2");
  take_snapshot();
  sql.exec("DELETE FROM t");
  EXPECT_EQ(donor.number("SELECT COUNT(*) FROM t"), 10000);
  EXPECT_EQ(sql.number("SELECT COUNT(*) FROM t"), 0);
  expect_whole_table();
}

TEST_F(ParallelWholeTable, AllRowsDeletedAndNoneSeen) {
  make("id INT PRIMARY KEY, v INT", 10000, "i, i * 2");
  // This snapshot keeps purge from removing the rows. The donor of the read
  // takes its snapshot after the delete.
  Client holder;
  holder.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t");
  take_snapshot();
  expect_whole_table();
}

TEST_F(ParallelWholeTable, EmptiedPagesInBetween) {
  make_deep(250);
  sql.exec("DELETE FROM t WHERE v BETWEEN 40 AND 200");
  wait_for_purge();
  expect_whole_table();
}

TEST_F(ParallelWholeTable, NoPrimaryKey) {
  make("a INT, b VARCHAR(20)", 6000, "i % 100, CONCAT('row ', i)");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, EqualRowsWithoutAPrimaryKey) {
  make("a INT, b CHAR(5)", 6000, "1, 'same'");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, UniqueKeyInPlaceOfAPrimaryKey) {
  make("a INT, b VARCHAR(20) NOT NULL, UNIQUE KEY u (b)", 3000,
       "i % 100, CONCAT('row ', i)");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, CompositeKey) {
  make("c INT, a VARCHAR(20), b INT, PRIMARY KEY (a, b)", 6000,
       "i, CONCAT('k', i % 50), i");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, StringKey) {
  make("k VARCHAR(60) PRIMARY KEY, v INT", 6000,
       "CONCAT(REPEAT('k', i % 40), i), i");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, DescendingKey) {
  make("a INT, b INT, PRIMARY KEY (a DESC)", 6000, "i, i % 9");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, MixedDirections) {
  make("a INT, b INT, v INT, PRIMARY KEY (a DESC, b)", 6000,
       "i % 60, i, i * 3");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, UuidKey) {
  make("id BINARY(16) PRIMARY KEY, v INT", 6000,
       "UNHEX(LEFT(SHA2(i, 256), 32)), i");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, InsertedInFallingOrder) {
  make("id INT PRIMARY KEY, v CHAR(100)", 6000, "6001 - i, i");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, WideRows) {
  make("id INT PRIMARY KEY, a VARBINARY(7000)", 300,
       "i, REPEAT(CHAR(i % 256 USING binary), 6000 + i)");
  expect_whole_table();
}

TEST_F(ParallelWholeTable, Redundant) {
  expect_row_format("ROW_FORMAT = REDUNDANT");
}

TEST_F(ParallelWholeTable, Compact) {
  expect_row_format("ROW_FORMAT = COMPACT");
}

TEST_F(ParallelWholeTable, Dynamic) {
  expect_row_format("ROW_FORMAT = DYNAMIC");
}

TEST_F(ParallelWholeTable, CompressedTo8K) {
  expect_row_format("ROW_FORMAT = COMPRESSED KEY_BLOCK_SIZE = 8");
}

TEST_F(ParallelWholeTable, CompressedTo2K) {
  expect_row_format("ROW_FORMAT = COMPRESSED KEY_BLOCK_SIZE = 2");
}

/** A table whose pages are in its file but not in the buffer pool. */
class ParallelCompressedPages : public ParallelWholeTable {
 protected:
  void write_and_forget_pages() {
    sql.exec("FLUSH TABLES t FOR EXPORT");
    forget_pages();
    compressed_pages_ = count_compressed_pages(
        fs::path(sql.text("SELECT @@datadir")) / "db/t.ibd");
    sql.exec("UNLOCK TABLES");
  }

  int64_t pages_read() {
    return std::stoll(
        *sql.query("SHOW GLOBAL STATUS LIKE 'Innodb_pages_read'")[0][1]);
  }

  size_t compressed_pages_ = 0;

 private:
  // Drop the table's pages from the buffer pool. All of them have been written
  // and nobody uses them.
  static void forget_pages() {
    const Scan scan;
    dict_table_t *table = dd_table_open_on_name_in_mem("db/t", false);
    buf_LRU_flush_or_remove_pages(table->space, BUF_REMOVE_ALL_NO_WRITE,
                                  nullptr, false);
    dd_table_close(table, nullptr, nullptr, false);
  }

  static size_t count_compressed_pages(const fs::path &path) {
    constexpr size_t page_bytes = 16384, type_at = 24, compressed = 14;
    std::ifstream file(path, std::ios::binary);
    std::vector<unsigned char> page(page_bytes);
    size_t n = 0;
    while (file.read(reinterpret_cast<char *>(page.data()), page_bytes))
      n += page[type_at] * 256u + page[type_at + 1] == compressed;
    return n;
  }
};

TEST_F(ParallelCompressedPages, AreReadFromTheDisk) {
  make("id INT PRIMARY KEY, a INT, b VARCHAR(40), c TEXT", 9000,
       "i, NULLIF(i % 5, 0), CONCAT('row ', i), REPEAT('c', i % 600)");
  sql.exec("ALTER TABLE t COMPRESSION = 'zlib', FORCE");
  const Rows expected = donor_rows("SELECT * FROM t");
  for (const size_t threads : thread_counts) {
    SCOPED_TRACE(std::to_string(threads) + " threads");
    write_and_forget_pages();
    EXPECT_GT(compressed_pages_, 100u);
    const Scan scan;
    const int64_t before = pages_read();
    const Delivered delivered = collect(scan, threads, {0, 1, 2, 3});
    EXPECT_GT(pages_read() - before, 100);
    EXPECT_TRUE(delivered.complete);
    expect_rows(delivered.rows, expected);
  }
}

TEST_F(ParallelWholeTable, TwoReadsOfOneCursorAreTheSame) {
  make("id INT PRIMARY KEY, v INT", 9000, "i, i");
  const Scan scan;
  const Rows first = collect(scan, 4, {0, 1}).rows;
  sql.exec("UPDATE t SET v = -v");
  sql.exec("DELETE FROM t WHERE id % 2 = 0");
  sql.exec("INSERT INTO t VALUES (100000, 1)");
  EXPECT_EQ(first.size(), 9000u);
  expect_rows(collect(scan, 4, {0, 1}).rows, first);
  expect_rows(collect(scan, 0, {0, 1}).rows, first);
}

TEST_F(ParallelWholeTable, WithoutADonorItIsTheCursorsOwnSnapshot) {
  make("id INT PRIMARY KEY, v INT", 9000, "i, i");
  const Scan scan;
  sql.exec("DELETE FROM t WHERE id % 3 > 0");
  EXPECT_EQ(collect(scan, 4, {0}).rows.size(), 9000u);
  const Scan later;
  EXPECT_EQ(collect(later, 4, {0}).rows.size(), 3000u);
}

TEST_F(ParallelWholeTable, UnknownDonorDoesNotFailTheOpen) {
  make("id INT PRIMARY KEY, v INT", 9000, "i, i");
  const Scan scan({.donor = 4000000000});
  ASSERT_TRUE(scan.is_open()) << scan.message;
  EXPECT_EQ(collect(scan, 2, {0}).rows.size(), 9000u);
}

TEST_F(ParallelWholeTable, ManyHandlesAtOnce) {
  make("id INT PRIMARY KEY, v INT", 30000, "i, i");
  const size_t before = reads_by_several();
  std::vector<std::future<void>> readers;
  for (int i = 0; i < 6; ++i)
    readers.push_back(on_own_thread([] {
      const Scan scan;
      for (int round = 0; round < 5; ++round)
        EXPECT_EQ(collect(scan, 4, {0}, Workers::any).rows.size(), 30000u);
    }));
  for (auto &reader : readers) reader.get();
  EXPECT_GT(reads_by_several(), before);
}

}  // namespace
