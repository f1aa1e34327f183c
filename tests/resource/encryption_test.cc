// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables that are encrypted on disk, read by a server that has their key.

#include <fstream>
#include <sstream>

#include "parallel_test.h"

namespace {

using namespace harness;

constexpr const char *word = "plainly to be read";

class Encryption : public Parallel_test {
 protected:
  Encryption() {
    EXPECT_EQ(sql.number("SELECT COUNT(*) FROM"
                         " performance_schema.keyring_component_status WHERE"
                         " status_key = 'Component_status' AND"
                         " status_value = 'Active'"),
              1);
  }

  /** Whether the table's file contains the word, when all is on disk. */
  bool file_shows_it() {
    sql.exec("FLUSH TABLES t FOR EXPORT");
    std::ifstream file(sql.text("SELECT CONCAT(@@datadir, 'db/t.ibd')"));
    std::ostringstream bytes;
    bytes << file.rdbuf();
    sql.exec("UNLOCK TABLES");
    EXPECT_GT(bytes.str().size(), 100000u);
    return bytes.str().find(word) != std::string::npos;
  }

  void check(const std::string &options) {
    SCOPED_TRACE(options);
    donor.exec("ROLLBACK");
    sql.exec("DROP TABLE IF EXISTS t");
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(300), c LONGTEXT,"
        " KEY k (a)) " +
        options);
    fill("t", 3000,
         "i, i % 100, CONCAT('" + std::string(word) +
             "', i), REPEAT('c', i * 37 % 20000)");
    EXPECT_EQ(file_shows_it(), options == "ENCRYPTION = 'N'");
    take_snapshot();
    sql.exec("UPDATE t SET b = 'later' WHERE id % 3 = 0");
    sql.exec("DELETE FROM t WHERE id % 7 = 0");
    expect_whole_table();
    expect_range({.index = "k", .index_only = true}, {Keys().number(50), {}},
                 {1, 0}, "SELECT a, id FROM t WHERE a >= 50");
    Cursor cursor({.index = "k", .donor = donor.id()});
    expect_rows(cursor.texts({0, 1, 2, 3}),
                donor.query("SELECT * FROM t ORDER BY a, id"));
  }
};

TEST_F(Encryption, EncryptedTablesReadLikeOthers) {
  check("ENCRYPTION = 'N'");
  check("ENCRYPTION = 'Y'");
  check("ENCRYPTION = 'Y' ROW_FORMAT = COMPRESSED");
}

}  // namespace
