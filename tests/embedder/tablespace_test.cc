// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables that share a file, and tables in the system tablespace.

#include "parallel_test.h"

namespace {

using namespace harness;

/** A general tablespace. It can be dropped only when its tables are gone. */
class Tablespace {
 public:
  explicit Tablespace(const std::string &options = "") {
    // A case that was broken off may have left the tablespace behind.
    sql_.attempt("DROP TABLESPACE own");
    sql_.exec("CREATE TABLESPACE own ADD DATAFILE 'own.ibd' " + options);
  }
  ~Tablespace() {
    sql_.attempt("DROP DATABASE db");
    sql_.attempt("DROP TABLESPACE own");
  }
  Tablespace(const Tablespace &) = delete;
  Tablespace &operator=(const Tablespace &) = delete;

 private:
  Client sql_;
};

class SharedTablespace : public Parallel_test {
 protected:
  /** The pages of t and of its neighbour alternate in the file. */
  void check(const std::string &options) {
    for (const char *table : {"t", "neighbour"})
      sql.exec(std::string("CREATE TABLE ") + table +
               " (id INT PRIMARY KEY, a INT, b VARCHAR(300), c LONGTEXT,"
               " KEY k (a)) " +
               options);
    for (int part = 0; part < 4; ++part) {
      const std::string id = std::to_string(part * 500) + " + i";
      fill("t", 500, id + ", i % 100, 'mine', REPEAT('m', i * 37 % 12000)");
      fill("neighbour", 500, id + ", 7, 'other', REPEAT('o', i * 41 % 12000)");
    }
    ASSERT_EQ(sql.number("SELECT COUNT(DISTINCT space) FROM"
                         " information_schema.innodb_tables WHERE"
                         " name LIKE 'db/%'"),
              1);
    take_snapshot();
    sql.exec("UPDATE t SET b = 'later', c = 'short' WHERE id % 3 = 0");
    sql.exec("DELETE FROM t WHERE id % 7 = 0");
    expect_whole_table();
    expect_range({.index = "k", .index_only = true}, {Keys().number(50), {}},
                 {1, 0}, "SELECT a, id FROM t WHERE a >= 50", Workers::any);
    {
      Cursor cursor({.index = "k", .donor = donor.id()});
      expect_rows(cursor.texts({0, 1, 2, 3}),
                  donor.query("SELECT * FROM t ORDER BY a, id"));
    }
    donor.exec("ROLLBACK");
  }
};

TEST_F(SharedTablespace, GeneralTablespaceReadsLikeAFileOfItsOwn) {
  const Tablespace own;
  check("TABLESPACE own");
}

TEST_F(SharedTablespace, GeneralTablespaceOfCompressedPagesDoesToo) {
  const Tablespace own("FILE_BLOCK_SIZE = 8192");
  check("TABLESPACE own ROW_FORMAT = COMPRESSED KEY_BLOCK_SIZE = 8");
}

TEST_F(SharedTablespace, SystemTablespaceReadsLikeAFileOfItsOwn) {
  check("TABLESPACE innodb_system");
}

}  // namespace
