// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables with columns that were added and dropped instantly: the reads deliver
// the right values, and the layout of each row version is known.

#include <set>

#include "host.h"
#include "host/innodb.h"
#include "innodb_api/record_layout.h"
#include "innodb_api/scope.h"
#include "parallel_test.h"

namespace {

using namespace harness;

/** Servers without row versions only have the older scheme of instantly added
    columns. */
constexpr bool has_row_versions = host::record_has_version != 0;

/** How many records were located, by the version that the record states: the
    number of its row version, 1000 plus its number of fields, or -1 if it
    states neither. */
struct Located {
  size_t records = 0;
  size_t refused = 0;  // because a value is stored off the page
};
using Located_by_version = std::map<int, Located>;

int version_of(const rec_t *rec) {
  const byte marks = rec[-REC_N_NEW_EXTRA_BYTES];
  const int said = rec[-REC_N_NEW_EXTRA_BYTES - 1];
  if ((marks & 0x40) != 0) return said;
  if ((marks & 0x80) == 0) return -1;
  if ((said & 0x80) == 0) return 1000 + said;
  return 1000 + (said & 0x7f) * 256 + rec[-REC_N_NEW_EXTRA_BYTES - 2];
}

/** The clustered index of t, as InnoDB has it. */
class Clustered {
 public:
  Clustered() {
    table_ = dd_table_open_on_name(current_thd, nullptr, "db/t", false, 0);
    if (table_ != nullptr) index_ = table_->first_index();
  }
  ~Clustered() {
    if (table_ != nullptr) dd_table_close(table_, nullptr, nullptr, false);
  }
  Clustered(const Clustered &) = delete;
  Clustered &operator=(const Clustered &) = delete;

  /** The number of current fields. The fields of dropped columns come after
      them. */
  size_t n_fields() const { return index_->n_fields; }

  /** Locate the wanted fields of each record and compare them with the fields
      that InnoDB's own functions find. */
  Located_by_version locate(const std::vector<ulint> &wanted) const {
    Record_layout layout;
    layout.init(index_, wanted);
    EXPECT_TRUE(layout.is_usable());
    Located_by_version found;
    for_each_record([&](const rec_t *rec) {
      Located &located = found[version_of(rec)];
      ++located.records;
      if (!compare(layout, wanted, rec)) ++located.refused;
    });
    return found;
  }

 private:
  bool compare(const Record_layout &layout, const std::vector<ulint> &wanted,
               const rec_t *rec) const {
    Scratch_heap heap(1024);
    const ulint *offsets = host::rec_offsets(rec, index_, nullptr, &heap.get());
    std::vector<Located_field> fields(wanted.size(), {nullptr, 12345});
    const bool is_located = layout.locate(rec, fields.data());
    bool is_outside = false;
    for (size_t i = 0; i < wanted.size(); ++i) {
      if (host::nth_extern(index_, offsets, wanted[i])) is_outside = true;
      if (!is_located) continue;
      ulint bytes;
      const byte *data =
          rec_get_nth_field_instant(rec, offsets, wanted[i], index_, &bytes);
      const bool is_null = bytes == UNIV_SQL_NULL;
      EXPECT_EQ(fields[i].data == nullptr, is_null) << wanted[i];
      if (is_null || fields[i].data == nullptr) continue;
      const auto text = [](const byte *from, ulint n) {
        return std::string(reinterpret_cast<const char *>(from), n);
      };
      EXPECT_EQ(text(fields[i].data, fields[i].bytes), text(data, bytes))
          << wanted[i];
    }
    EXPECT_EQ(is_located, !is_outside) << "version " << version_of(rec);
    return is_located;
  }

  page_no_t leftmost_leaf() const {
    page_no_t page_no = index_->page;
    for (;;) {
      Read_mtr mtr;
      const buf_block_t *block =
          host::page_get_s_latched(page_id_t(index_->space, page_no),
                                   dict_table_page_size(table_), mtr.start());
      if (page_is_leaf(block->frame)) return page_no;
      const rec_t *first =
          page_rec_get_next(page_get_infimum_rec(block->frame));
      Scratch_heap heap(1024);
      page_no = btr_node_ptr_get_child_page_no(
          first, host::rec_offsets(first, index_, nullptr, &heap.get()));
    }
  }

  template <class F>
  void for_each_record(F f) const {
    for (page_no_t page_no = leftmost_leaf(); page_no != FIL_NULL;) {
      Read_mtr mtr;
      const buf_block_t *block =
          host::page_get_s_latched(page_id_t(index_->space, page_no),
                                   dict_table_page_size(table_), mtr.start());
      const rec_t *rec = page_get_infimum_rec(block->frame);
      while (rec = page_rec_get_next_const(rec), !page_rec_is_supremum(rec))
        f(rec);
      page_no = btr_page_get_next(block->frame, mtr.get());
    }
  }

  dict_table_t *table_;
  dict_index_t *index_ = nullptr;
};

class ParallelRowVersion : public Parallel_test {
 protected:
  /** Rows on several pages, so that several workers get some. */
  void make(const std::string &columns = "a INT, b VARCHAR(50)") {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, " + columns +
             ", pad CHAR(100) NOT NULL DEFAULT 'pad')");
    sql.exec(
        "INSERT INTO t (id) WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT"
        " i + 1 FROM n WHERE i < 1000) SELECT i FROM n");
    sql.exec("UPDATE t SET a = id, b = REPEAT('b', id % 50) WHERE id % 3 = 0");
  }

  /** Servers without row versions rebuild the table for most changes. */
  void alter(const std::string &change) {
    const std::string statement = "ALTER TABLE t " + change;
    const Reply reply = sql.attempt(statement + ", ALGORITHM = INSTANT");
    versions_.insert(++n_changes_);
    if (reply.error == 0) return;
    EXPECT_FALSE(has_row_versions) << reply.message;
    sql.exec(statement);
    versions_ = {-1};
  }

  /** Insert rows of the table's current version. */
  void insert(const std::string &columns, const std::string &values) {
    for (int i = 0; i < 3; ++i)
      sql.exec("INSERT INTO t (" + columns + ") VALUES (" + values + ")");
  }

  /** Check that the table has records of each version and that the fields are
      located by the version's layout, however many columns are wanted. */
  void expect_located(bool some_off_the_page = false) {
    const Scan scan;
    const Clustered index;
    std::vector<ulint> all;
    for (size_t i = 0; i < index.n_fields(); ++i) {
      all.push_back(i);
      expect_located(index.locate({i}), some_off_the_page);
    }
    expect_located(index.locate(all), some_off_the_page);
    std::reverse(all.begin(), all.end());
    expect_located(index.locate(all), some_off_the_page);
  }

  void expect_located(const Located_by_version &found, bool some_off_the_page) {
    std::set<int> versions;
    for (const auto &[version, located] : found) {
      versions.insert(version);
      EXPECT_GT(located.records, located.refused) << version;
      if (!some_off_the_page) {
        EXPECT_EQ(located.refused, 0u) << version;
      }
    }
    EXPECT_EQ(versions.size(), versions_.size());
    if (has_row_versions) {
      EXPECT_EQ(versions, versions_);
    }
  }

  /** The versions that the records are expected to have. -1 stands for records
      older than all changes. */
  std::set<int> versions_{-1};
  int n_changes_ = 0;
};

TEST_F(ParallelRowVersion, ColumnsAreAddedAtTheEnd) {
  make();
  alter("ADD COLUMN c INT");
  insert("a, c", "1, 2");
  insert("a", "1");
  alter(
      "ADD COLUMN d INT NOT NULL DEFAULT 77, ADD COLUMN e VARCHAR(300)"
      " NOT NULL DEFAULT ''");
  insert("c, d, e", "1, 2, REPEAT('e', 290)");
  alter(
      "ADD COLUMN f VARCHAR(9) DEFAULT 'f', ADD COLUMN g CHAR(9) DEFAULT 'g'");
  insert("e, f, g", "REPEAT('e', 120), NULL, NULL");
  insert("b, f, g", "'bb', 'ff', 'gg'");
  alter(
      "ADD COLUMN h DECIMAL(20,5) DEFAULT 12.5, ADD COLUMN i DATETIME(3)"
      " NOT NULL DEFAULT '2020-02-02 02:02:02.5', ADD COLUMN j DOUBLE,"
      " ADD COLUMN k BIT(12) DEFAULT b'101'");
  insert("h, i, j", "1, NOW(3), 0.5");
  expect_whole_table();
  expect_located();
}

TEST_F(ParallelRowVersion, RowsOfEachAreUpdated) {
  make();
  for (const char *name : {"c", "d", "e"}) {
    const std::string column(name);
    alter("ADD COLUMN " + column + " VARCHAR(200) DEFAULT 'of " + column + "'");
    insert(column, "'own'");
    sql.exec("UPDATE t SET " + column + " = CONCAT(id, 'changed') WHERE id % " +
             std::to_string(7 + n_changes_) + " = 0");
    sql.exec("UPDATE t SET a = -id WHERE id % 5 = 0");
    expect_whole_table();
  }
  expect_located();
}

// There are more nullable columns than one byte of the NULL bitmap has bits.
TEST_F(ParallelRowVersion, ManyAreNullable) {
  std::string columns, names;
  for (int i = 0; i < 15; ++i) {
    columns += "n" + std::to_string(i) + " VARCHAR(4), ";
    names += ", n" + std::to_string(i);
  }
  make(columns + "a INT, b VARCHAR(50)");
  alter("ADD COLUMN c VARCHAR(3), ADD COLUMN d INT");
  insert("n3, n14, c", "'n3', 'n14', 'c'");
  alter("ADD COLUMN e INT, ADD COLUMN f INT NOT NULL DEFAULT 5");
  insert("n0, n7, n8, d", "'n0', 'n7', 'n8', 4");
  insert("n0, n7, n8, e", "'n0', 'n7', 'n8', 4");
  expect_whole_table();
  expect_located();
}

TEST_F(ParallelRowVersion, OldOnesAreSeenUnderASnapshot) {
  make();
  alter("ADD COLUMN c INT DEFAULT 5");
  insert("a, c", "1, 2");
  alter("ADD COLUMN d VARCHAR(20) DEFAULT 'd'");
  insert("a, c, d", "1, 2, 'own'");
  take_snapshot();
  sql.exec("UPDATE t SET d = 'later', c = 6 WHERE id % 4 = 0");
  sql.exec("DELETE FROM t WHERE id % 7 = 0");
  insert("d", "'too late'");
  EXPECT_NE(donor_rows("SELECT id, c, d FROM t"),
            sql.query("SELECT id, c, d FROM t ORDER BY id"));
  expect_whole_table();
  expect_located();
}

TEST_F(ParallelRowVersion, ValuesOffThePageAreRead) {
  make();
  alter("ADD COLUMN c LONGTEXT");
  insert("a, c", "1, REPEAT('c', 20000)");
  insert("a, c", "1, 'short'");
  alter("ADD COLUMN d VARCHAR(12000) CHARACTER SET latin1");
  insert("a, d", "1, REPEAT('d', 12000)");
  insert("a, d", "1, REPEAT('d', 130)");
  sql.exec("UPDATE t SET c = REPEAT('u', 30000) WHERE id = 500");
  expect_whole_table();
  expect_located(true);
}

TEST_F(ParallelRowVersion, ARebuildLeavesNone) {
  make();
  alter("ADD COLUMN c INT DEFAULT 5");
  insert("a, c", "1, 2");
  sql.exec("ALTER TABLE t FORCE");
  versions_ = {-1};
  expect_whole_table();
  expect_located();
}

TEST_F(ParallelRowVersion, ColumnsAreAddedAnywhere) {
  make();
  alter("ADD COLUMN c INT DEFAULT 5 FIRST");
  insert("a, c", "1, 2");
  alter("ADD COLUMN d VARCHAR(20) NOT NULL DEFAULT 'd' AFTER id");
  insert("a, c, d", "1, 2, 'own'");
  alter(
      "ADD COLUMN e VARCHAR(20) AFTER b, ADD COLUMN f BIGINT DEFAULT 4 FIRST");
  insert("b, d, e, f", "'b', 'd', 'e', NULL");
  sql.exec("UPDATE t SET e = CONCAT('e', id), c = NULL WHERE id % 6 = 0");
  expect_whole_table();
  expect_located();
}

TEST_F(ParallelRowVersion, ColumnsAreDropped) {
  make(
      "z VARCHAR(9) DEFAULT 'z', a INT, y INT NOT NULL DEFAULT 3, x CHAR(4),"
      " b VARCHAR(50)");
  alter("DROP COLUMN z");
  insert("a, b", "1, 'b'");
  alter("ADD COLUMN c VARCHAR(20) DEFAULT 'c', DROP COLUMN y");
  insert("a, c", "2, REPEAT('c', 20)");
  alter("DROP COLUMN c");
  insert("a", "3");
  alter("ADD COLUMN c BIGINT NOT NULL DEFAULT -1 FIRST");
  insert("c", "NULLIF(4, 5)");
  alter("DROP COLUMN x, DROP COLUMN a, ADD COLUMN d INT AFTER b");
  insert("c, d", "5, 6");
  sql.exec("UPDATE t SET d = id WHERE id % 10 = 0");
  expect_whole_table();
  expect_located();
}

TEST_F(ParallelRowVersion, ThereAreSixtyFour) {
  make();
  for (int i = 1; i <= 64; ++i) {
    const std::string added = "c" + std::to_string(i);
    const std::string dropped = "c" + std::to_string(i - 3);
    std::string change = "ADD COLUMN " + added + " VARCHAR(20)";
    if (i % 4 != 0) change += " NOT NULL DEFAULT '" + added + "'";
    if (i % 3 == 0) change += " FIRST";
    // Half of the columns are dropped again.
    if (i > 3 && i % 2 == 0) change += ", DROP COLUMN " + dropped;
    alter(change);
    insert(added, "'v" + std::to_string(i) + "'");
  }
  expect_whole_table();
  expect_located();
}

// Servers without row versions store the number of fields in two bytes if it is
// greater than 127.
TEST_F(ParallelRowVersion, RecordsHaveManyFields) {
  std::string columns;
  for (int i = 0; i < 120; ++i) columns += "n" + std::to_string(i) + " INT, ";
  make(columns + "a INT, b VARCHAR(50)");
  for (int i = 1; i <= 5; ++i) {
    const std::string added = "c" + std::to_string(i);
    alter("ADD COLUMN " + added + " VARCHAR(20) DEFAULT '" + added + "'");
    insert(added + ", n3, n119", "'own', 1, 2");
  }
  expect_whole_table();
  expect_located();
}

}  // namespace
