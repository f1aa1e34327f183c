// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// What cannot be opened, and the error that the open function gives for it.

#include <chrono>
#include <cstring>

#include "cursor_test.h"
#include "session.h"

namespace {

using namespace harness;

class Refusal : public Cursor_test {
 protected:
  Refusal() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, a INT, KEY k (a))");
  }

  /** Expect the error that SQL gives for the same names. */
  void expect_error_of(const std::string &statement, const Open &open) {
    const Reply reply = sql.attempt(statement);
    ASSERT_NE(reply.error, 0u);
    Cursor cursor(open);
    EXPECT_FALSE(cursor.is_open());
    EXPECT_EQ(cursor.error, reply.error);
    EXPECT_EQ(cursor.message, reply.message);
  }

  void expect_error(unsigned int error, const Open &open) {
    Cursor cursor(open);
    EXPECT_FALSE(cursor.is_open());
    EXPECT_EQ(cursor.error, error);
    EXPECT_FALSE(cursor.message.empty());
  }

  /** The error of the C function, for null names, which C++ cannot pass. */
  static unsigned int c_error(const char *db, const char *table,
                              const char *index) {
    unsigned int error = 12345;
    char message[MORVENA_SN_MESSAGE_BYTES] = "";
    EXPECT_EQ(
        open_index_cursor(db, table, index, false, 0, 10, &error, message), 0u);
    EXPECT_NE(message[0], '\0');
    return error;
  }
};

TEST_F(Refusal, UnknownTable) {
  expect_error_of("SELECT * FROM db.nothing", {.table = "nothing"});
}

TEST_F(Refusal, UnknownDatabase) {
  expect_error_of("SELECT * FROM nowhere.t", {.db = "nowhere"});
}

TEST_F(Refusal, View) {
  sql.exec("CREATE VIEW v AS SELECT * FROM t");
  expect_error(1347, {.table = "v"});
}

TEST_F(Refusal, MyisamTable) {
  sql.exec("CREATE TABLE m (id INT PRIMARY KEY) ENGINE = MyISAM");
  expect_error(1031, {.table = "m"});
}

TEST_F(Refusal, MemoryTable) {
  sql.exec("CREATE TABLE m (id INT PRIMARY KEY) ENGINE = MEMORY");
  expect_error(1031, {.table = "m"});
}

TEST_F(Refusal, InformationSchemaInAnyCase) {
  for (const char *db :
       {"information_schema", "INFORMATION_SCHEMA", "Information_Schema"})
    for (const char *table :
         {"TABLES", "tables", "Tables", "PLUGINS", "plugins", "INNODB_TABLES",
          "innodb_tables", "nothing"})
      expect_error(1347, {.db = db, .table = table});
}

// Neither SQL nor a cursor can read the tables of the server's dictionary. The
// tables of the server's other schemas open if they are stored in InnoDB.
TEST_F(Refusal, TablesOfTheServersSchemasOpenOrSayWhyNot) {
  const Rows listed = sql.query(
      "SELECT t.table_schema, t.table_name, LOWER(t.engine) = 'innodb' AND "
      "s.index_name IS NOT NULL, COALESCE(s.index_name, 'PRIMARY') "
      "FROM information_schema.tables t LEFT JOIN "
      "information_schema.statistics s USING (table_schema, table_name) "
      "WHERE t.table_schema IN ('mysql', 'sys', 'performance_schema', "
      "'information_schema') AND COALESCE(s.seq_in_index, 1) = 1");
  ASSERT_GT(listed.size(), 300u);
  for (const Row &row : listed) {
    const std::string db = *row[0], table = *row[1], index = *row[3];
    const bool opens = row[2] == "1";
    SCOPED_TRACE(db + "." + table + " " + index);
    const Cursor cursor(
        {.db = db.c_str(), .table = table.c_str(), .index = index.c_str()});
    EXPECT_EQ(cursor.is_open(), opens) << cursor.message;
    EXPECT_EQ(cursor.error == 0, opens);
  }
}

TEST_F(Refusal, TablesOfTheDictionary) {
  for (const char *name : {"catalogs",
                           "character_sets",
                           "check_constraints",
                           "collations",
                           "column_statistics",
                           "column_type_elements",
                           "columns",
                           "dd_properties",
                           "events",
                           "foreign_key_column_usage",
                           "foreign_keys",
                           "index_column_usage",
                           "index_partitions",
                           "index_stats",
                           "indexes",
                           "innodb_ddl_log",
                           "innodb_dynamic_metadata",
                           "parameter_type_elements",
                           "parameters",
                           "resource_groups",
                           "routines",
                           "schemata",
                           "st_spatial_reference_systems",
                           "table_partition_values",
                           "table_partitions",
                           "table_stats",
                           "tables",
                           "tablespace_files",
                           "tablespaces",
                           "triggers",
                           "view_routine_usage",
                           "view_table_usage"}) {
    SCOPED_TRACE(name);
    expect_error_of(std::string("SELECT 1 FROM mysql.") + name,
                    {.db = "mysql", .table = name});
  }
}

TEST_F(Refusal, PerformanceSchemaInAnyCase) {
  for (const char *db :
       {"performance_schema", "PERFORMANCE_SCHEMA", "Performance_Schema"})
    for (const char *table : {"threads", "THREADS", "nothing"})
      expect_error(1347, {.db = db, .table = table});
}

TEST_F(Refusal, SysView) {
  expect_error(1347, {.db = "sys", .table = "version"});
  EXPECT_TRUE(Cursor({.db = "sys", .table = "sys_config"}).is_open());
}

// A temporary table belongs to the session that created it.
TEST_F(Refusal, TemporaryTable) {
  sql.exec("CREATE TEMPORARY TABLE own (id INT PRIMARY KEY)");
  expect_error(1146, {.table = "own"});
}

TEST_F(Refusal, TemporaryTableHidesNoBaseTable) {
  sql.exec("INSERT INTO t VALUES (1, 1)");
  sql.exec("CREATE TEMPORARY TABLE t (id INT PRIMARY KEY)");
  Cursor cursor;
  EXPECT_EQ(cursor.ints(0), (std::vector<long long>{1}));
}

TEST_F(Refusal, UnknownIndex) { expect_error(1176, {.index = "nothing"}); }

TEST_F(Refusal, MissingIndexName) {
  EXPECT_EQ(c_error("db", "t", nullptr), 1176u);
  expect_error(1176, {.index = ""});
}

TEST_F(Refusal, OverlongIndexName) {
  const std::string name(5000, 'k');
  // The name is treated like any other name of an unknown index.
  expect_error(1176, {.index = name.c_str()});
}

TEST_F(Refusal, TableWithoutIndexes) {
  sql.exec("CREATE TABLE heap (id INT)");
  expect_error(1176, {.table = "heap"});
}

TEST_F(Refusal, FulltextIndex) {
  sql.exec(
      "CREATE TABLE f (id INT PRIMARY KEY, x TEXT, FULLTEXT KEY words (x))");
  expect_error(1178, {.table = "f", .index = "words"});
}

TEST_F(Refusal, SpatialIndex) {
  sql.exec(
      "CREATE TABLE g (id INT PRIMARY KEY,"
      " p POINT NOT NULL SRID 4326, SPATIAL KEY places (p))");
  expect_error(1178, {.table = "g", .index = "places"});
}

// The server cannot merge the entries of several partitions for such an index.
TEST_F(Refusal, MultiValuedIndexOfAPartitionedTable) {
  sql.exec(
      "CREATE TABLE p (id INT PRIMARY KEY, j JSON,"
      " KEY m ((CAST(j AS UNSIGNED ARRAY)))) PARTITION BY HASH (id)"
      " PARTITIONS 4");
  sql.exec(
      "INSERT INTO p WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL"
      " SELECT i + 1 FROM n WHERE i < 20) SELECT i, JSON_ARRAY(i, i + 1)"
      " FROM n");
  expect_error(1178, {.table = "p", .index = "m"});
  expect_error(1178, {.table = "p", .index = "m", .index_only = true});
  EXPECT_EQ(Cursor({.table = "p"}).ints(0).size(), 20u);
}

TEST_F(Refusal, MissingNames) {
  EXPECT_EQ(c_error(nullptr, "t", "PRIMARY"), 1102u);
  expect_error(1102, {.db = ""});
  EXPECT_EQ(c_error("db", nullptr, "PRIMARY"), 1103u);
  expect_error(1103, {.table = ""});
}

TEST_F(Refusal, OverlongNames) {
  const std::string name(65, 'n'), huge(100000, 'n');
  // These names are unknown, because nothing can be created with such a name.
  expect_error(1049, {.db = name.c_str()});
  expect_error(1146, {.table = name.c_str()});
  expect_error(1102, {.db = huge.c_str()});
  expect_error(1103, {.table = huge.c_str()});
}

TEST_F(Refusal, LongestNames) {
  const std::string name(64, 'n');
  sql.exec("CREATE TABLE " + name + " (id INT PRIMARY KEY)");
  EXPECT_TRUE(Cursor({.table = name.c_str()}).is_open());
  sql.exec("DROP TABLE " + name);
  expect_error(1146, {.table = name.c_str()});
  expect_error(1049, {.db = name.c_str()});
}

TEST_F(Refusal, OddNames) {
  for (const char *name :
       {"../t", "a/b", "t;DROP", "\xff\xfe", ".", "`t`", "%s%n"}) {
    SCOPED_TRACE(name);
    expect_error(1146, {.table = name});
  }
}

TEST_F(Refusal, NamesOfManyKinds) {
  for (const char *name :
       {"a b", "t`q", "\u00e9t\u00e9", "select", "a.b", "x/y"}) {
    std::string quoted;
    for (const char *c = name; *c; ++c)
      quoted += *c == '`' ? "``" : std::string(1, *c);
    sql.exec("CREATE TABLE `" + quoted + "` (id INT PRIMARY KEY)");
    Cursor cursor({.table = name});
    EXPECT_TRUE(cursor.is_open()) << name << cursor.message;
    EXPECT_FALSE(cursor.set_range());
    EXPECT_EQ(cursor.index_columns().size(), 3u) << name;
  }
}

TEST_F(Refusal, MessageHasAtMost512Bytes) {
  const std::string db(64, 'd'), table(64, 't');
  char message[600];
  memset(message, '#', sizeof message);
  unsigned int error;
  EXPECT_EQ(open_index_cursor(db.c_str(), table.c_str(), "PRIMARY", false, 0, 5,
                              &error, message),
            0u);
  EXPECT_EQ(error, 1049u);
  EXPECT_LT(strnlen(message, sizeof message), 512u);
  EXPECT_EQ(std::string(message + 512, 88), std::string(88, '#'));
}

TEST_F(Refusal, NothingIsLeftOpen) {
  const int64_t before = metadata_locks();
  sql.exec("CREATE VIEW v AS SELECT * FROM t");
  sql.exec("CREATE TABLE m (id INT PRIMARY KEY) ENGINE = MyISAM");
  EXPECT_FALSE(Cursor({.table = "nothing"}).is_open());
  EXPECT_FALSE(Cursor({.db = "nowhere"}).is_open());
  EXPECT_FALSE(Cursor({.table = "v"}).is_open());
  EXPECT_FALSE(Cursor({.table = "m"}).is_open());
  EXPECT_FALSE(Cursor({.index = "nothing"}).is_open());
  EXPECT_EQ(metadata_locks(), before);
  // If the failed openings left a lock, these statements would wait for it.
  sql.exec("SET lock_wait_timeout = 2");
  sql.exec("DROP TABLE m");
  sql.exec("DROP VIEW v");
  sql.exec("ALTER TABLE t ADD COLUMN z INT");
}

// Each opening uses the session that the failed opening before it returned.
TEST_F(Refusal, ErrorIsNotTheOneOfTheOpeningBefore) {
  EXPECT_EQ(Cursor({.table = "nothing"}).error, 1146u);
  EXPECT_EQ(Cursor({.index = "nothing"}).error, 1176u);
  EXPECT_EQ(Cursor({.db = "nowhere"}).error, 1049u);
  unsigned int error = 12345;
  char message[MORVENA_SN_MESSAGE_BYTES];
  close_index_cursor(
      open_index_cursor("db", "t", "PRIMARY", false, 0, 10, &error, message));
  EXPECT_EQ(error, 0u);
}

TEST_F(Refusal, IndexNewerThanTheSnapshot) {
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("INSERT INTO t VALUES (1, 1)");
  sql.exec("ALTER TABLE t ADD KEY later (a), ALGORITHM = INPLACE");
  Cursor cursor({.index = "later", .donor = donor.id()});
  EXPECT_FALSE(cursor.is_open());
  EXPECT_EQ(cursor.error, 1412u);
}

// A table of three partitions, and a donor whose snapshot is older than a
// change of one of the partitions.
class PartitionNewerThanTheSnapshot : public Refusal {
 protected:
  PartitionNewerThanTheSnapshot() {
    sql.exec(
        "CREATE TABLE p (id INT PRIMARY KEY, a INT, KEY k (a)) PARTITION BY"
        " RANGE (id) (PARTITION p0 VALUES LESS THAN (10),"
        " PARTITION p1 VALUES LESS THAN (20),"
        " PARTITION p2 VALUES LESS THAN (30))");
    sql.exec("INSERT INTO p VALUES (5, 1), (15, 2), (25, 3)");
    donor.exec("USE db");
    donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  }

  void expect_refused() {
    // This statement scans every partition. An index scan in the server only
    // checks the first one.
    EXPECT_EQ(donor.attempt("SELECT SUM(a) FROM p IGNORE INDEX (k)").error,
              1412u);
    // The donor's transaction holds a metadata lock on the table.
    const int64_t locks_before = metadata_locks();
    for (const char *index : {"PRIMARY", "k"})
      for (const bool index_only : {false, true})
        expect_error(1412, {.table = "p",
                            .index = index,
                            .index_only = index_only,
                            .donor = donor.id()});
    EXPECT_EQ(metadata_locks(), locks_before);
    // A cursor with its own snapshot sees the change.
    EXPECT_EQ(Cursor({.table = "p", .index = "k"}).ints(0),
              as_ints(sql.query("SELECT id FROM p ORDER BY a")));
  }

  Client donor;
};

TEST_F(PartitionNewerThanTheSnapshot, WhenTheFirstIsTruncated) {
  sql.exec("ALTER TABLE p TRUNCATE PARTITION p0");
  expect_refused();
}

TEST_F(PartitionNewerThanTheSnapshot, WhenAnotherIsTruncated) {
  sql.exec("ALTER TABLE p TRUNCATE PARTITION p1");
  expect_refused();
}

TEST_F(PartitionNewerThanTheSnapshot, WhenTheLastIsTruncated) {
  sql.exec("ALTER TABLE p TRUNCATE PARTITION p2");
  expect_refused();
}

TEST_F(PartitionNewerThanTheSnapshot, WhenOneIsExchanged) {
  sql.exec("CREATE TABLE e (id INT PRIMARY KEY, a INT, KEY k (a))");
  sql.exec("INSERT INTO e VALUES (16, 20)");
  sql.exec("ALTER TABLE p EXCHANGE PARTITION p1 WITH TABLE e");
  expect_refused();
}

// The server compares the age of the index with the snapshot. A table that is
// exchanged for a partition keeps its index, and this one is older.
TEST_F(PartitionNewerThanTheSnapshot, ExchangeForAnOlderTableShowsIt) {
  sql.exec("CREATE TABLE e (id INT PRIMARY KEY, a INT, KEY k (a))");
  sql.exec("INSERT INTO e VALUES (16, 20)");
  donor.exec("COMMIT");
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("ALTER TABLE p EXCHANGE PARTITION p1 WITH TABLE e");
  for (const char *index : {"PRIMARY", "k"})
    EXPECT_EQ(
        Cursor({.table = "p", .index = index, .donor = donor.id()}).ints(0),
        as_ints(donor.query("SELECT id FROM p FORCE INDEX (" +
                            std::string(index) + ") ORDER BY " +
                            (*index == 'k' ? "a" : "id"))));
}

TEST_F(PartitionNewerThanTheSnapshot, LeavesUnchangedTablesReadable) {
  sql.exec("INSERT INTO p VALUES (6, 4), (16, 5), (26, 6)");
  for (const char *index : {"PRIMARY", "k"}) {
    Cursor cursor({.table = "p", .index = index, .donor = donor.id()});
    EXPECT_EQ(cursor.ints(0), (std::vector<long long>{5, 15, 25}));
    EXPECT_EQ(cursor.ints(0, {.reverse = true}),
              (std::vector<long long>{25, 15, 5}));
  }
}

class LockedTable : public Refusal {
 protected:
  /** @return the session that the pool hands out next; its last user had this
      timeout */
  static void *next_session(int seconds = 10) {
    Cursor cursor({.timeout = seconds});
    void *session = current_session();
    // A negative timeout means no limit: at least a year.
    if (seconds < 0)
      EXPECT_GE(lock_wait_timeout(session), 365UL * 24 * 3600);
    else
      EXPECT_EQ(lock_wait_timeout(session),
                static_cast<unsigned long>(seconds));
    return session;
  }

  static bool waits(void *session) {
    return wait_until([session] {
      return session_state(session) == "Waiting for table metadata lock";
    });
  }

  Client locker;
};

TEST_F(LockedTable, WaitEndsWithTheTimeout) {
  locker.exec("LOCK TABLES db.t WRITE");
  expect_error(1205, {.timeout = 1});
}

TEST_F(LockedTable, NoWaitWithATimeoutOfZero) {
  locker.exec("LOCK TABLES db.t WRITE");
  expect_error(1205, {.timeout = 0});
}

TEST_F(LockedTable, TimeoutOfTheSessionsLastUserDoesNotCount) {
  void *session = next_session(1000);
  locker.exec("LOCK TABLES db.t WRITE");
  expect_error(1205, {.timeout = 0});
  EXPECT_EQ(current_session(), session);
}

TEST_F(LockedTable, NegativeTimeoutWaitsUntilTheLockIsGone) {
  void *session = next_session(-1);
  locker.exec("LOCK TABLES db.t WRITE");
  std::future<void> opening = on_own_thread([] {
    Cursor cursor({.timeout = -1});
    EXPECT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
  });
  EXPECT_TRUE(waits(session));
  EXPECT_EQ(opening.wait_for(std::chrono::seconds(0)),
            std::future_status::timeout);
  locker.exec("UNLOCK TABLES");
}

TEST_F(LockedTable, LongTimeoutWaitsUntilTheLockIsGone) {
  void *session = next_session();
  locker.exec("LOCK TABLES db.t WRITE");
  std::future<void> opening = on_own_thread([] {
    Cursor cursor({.timeout = 1000});
    EXPECT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
  });
  EXPECT_TRUE(waits(session));
  locker.exec("UNLOCK TABLES");
}

TEST_F(LockedTable, KillEndsTheWait) {
  void *session = next_session();
  locker.exec("LOCK TABLES db.t WRITE");
  std::future<void> opening =
      on_own_thread([this] { expect_error(1317, {.timeout = 1000}); });
  EXPECT_TRUE(waits(session));
  kill_session(session);
  opening.get();
  locker.exec("UNLOCK TABLES");
  // The killed session can be used again.
  EXPECT_TRUE(Cursor().is_open());
  EXPECT_EQ(current_session(), session);
}

TEST_F(LockedTable, ReadLockOfAnotherSessionIsNoHindrance) {
  locker.exec("LOCK TABLES db.t READ");
  EXPECT_TRUE(Cursor({.timeout = 1}).is_open());
}

TEST_F(LockedTable, RowLocksAreNoHindrance) {
  sql.exec("INSERT INTO t VALUES (1, 1)");
  locker.exec("BEGIN");
  locker.exec("UPDATE db.t SET a = 2");
  EXPECT_EQ(Cursor().ints(1), (std::vector<long long>{1}));
}

// The cursor's metadata lock keeps the definition unchanged until it closes.
TEST_F(LockedTable, DefinitionWaitsForTheCursor) {
  Cursor cursor;
  std::future<Reply> change = locker.send("ALTER TABLE db.t ADD COLUMN z INT");
  EXPECT_TRUE(wait_for_state("Waiting for table metadata lock"));
  EXPECT_EQ(change.wait_for(std::chrono::seconds(0)),
            std::future_status::timeout);
  cursor.close();
  EXPECT_EQ(change.get().error, 0u);
}

TEST_F(LockedTable, TableGoneWhileWaiting) {
  void *session = next_session();
  locker.exec("LOCK TABLES db.t WRITE");
  std::future<void> opening =
      on_own_thread([this] { expect_error(1146, {.timeout = 1000}); });
  EXPECT_TRUE(waits(session));
  locker.exec("DROP TABLE db.t");
  locker.exec("UNLOCK TABLES");
}

}  // namespace
