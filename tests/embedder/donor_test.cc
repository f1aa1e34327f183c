// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Which snapshot a cursor reads, for donors in every state.

#include <chrono>

#include "donor_test.h"
#include "global_setting.h"
#include "session.h"

namespace {

using namespace harness;

class Donor : public Donor_test {};

TEST_F(Donor, NoneGivesAFreshSnapshot) {
  change();
  EXPECT_EQ(read(0), after);
}

TEST_F(Donor, NoneTakesItsSnapshotAtOpen) {
  Cursor cursor;
  change();
  EXPECT_EQ(cursor.ints(1), before);
}

TEST_F(Donor, SnapshotOfTheDonorIsRead) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  EXPECT_EQ(read(donor.id()), before);
  EXPECT_EQ(read(donor.id(), "by_v"), before);
  EXPECT_EQ(as_ints(donor.query("SELECT v FROM t ORDER BY id")), before);
}

TEST_F(Donor, SnapshotOfAReadInTheDonorsTransactionIsRead) {
  donor.exec("BEGIN");
  donor.query("SELECT * FROM t");
  change();
  EXPECT_EQ(read(donor.id()), before);
}

TEST_F(Donor, ReadOnlyTransaction) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT, READ ONLY");
  change();
  EXPECT_EQ(read(donor.id()), before);
}

TEST_F(Donor, SerializableTransaction) {
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL SERIALIZABLE");
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  // In a serializable transaction, reads take locks and no read view. The
  // cursor therefore takes a fresh snapshot.
  change();
  EXPECT_EQ(read(donor.id()), after);
}

TEST_F(Donor, IdleSessionGivesAFreshSnapshot) {
  change();
  EXPECT_EQ(read(donor.id()), after);
}

TEST_F(Donor, IdleSessionsSnapshotIsTakenAtTheFirstRead) {
  Cursor cursor({.donor = donor.id()});
  change();
  EXPECT_EQ(cursor.ints(1), after);
}

TEST_F(Donor, TransactionWithoutAReadGivesAFreshSnapshot) {
  donor.exec("BEGIN");
  change();
  EXPECT_EQ(read(donor.id()), after);
}

// A statement that looks up a time zone reads system tables. For that time, the
// server gives the session a temporary transaction in place of its own. Here
// the read has to wait for a lock on one of these tables.
class DonorThatReadsSystemTables : public Donor_test {
 protected:
  void begin_to_read() {
    locker.exec("LOCK TABLES mysql.time_zone_name WRITE");
    reading = donor.send("SELECT CONVERT_TZ(NOW(), 'UTC', 'No/Where')");
    ASSERT_TRUE(wait_for_state("Waiting for table metadata lock"));
  }
  void end_reading() {
    locker.exec("UNLOCK TABLES");
    EXPECT_EQ(reading.get().error, 0u);
  }

  Client locker;
  std::future<Reply> reading;
};

TEST_F(DonorThatReadsSystemTables, SnapshotIsThatOfItsOwnTransaction) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  begin_to_read();
  auto rows = on_own_thread([&] { EXPECT_EQ(read(donor.id()), before); });
  EXPECT_EQ(rows.wait_for(std::chrono::milliseconds(300)),
            std::future_status::timeout);
  end_reading();
  rows.get();
  EXPECT_EQ(as_ints(donor.query("SELECT v FROM t ORDER BY id")), before);
}

// The temporary transaction may have a read view of its own. The cursor must
// not copy it.
TEST_F(DonorThatReadsSystemTables, IsWaitedForWithoutATransactionToo) {
  begin_to_read();
  auto rows = on_own_thread([&] { EXPECT_EQ(read(donor.id()), after); });
  EXPECT_EQ(rows.wait_for(std::chrono::milliseconds(300)),
            std::future_status::timeout);
  // The cursor takes its fresh snapshot after the wait, so it sees these
  // changes.
  change();
  end_reading();
  rows.get();
}

TEST_F(DonorThatReadsSystemTables, IsWaitedForAsLongAsForALock) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  begin_to_read();
  const Cursor cursor({.donor = donor.id(), .timeout = 1});
  EXPECT_FALSE(cursor.is_open());
  EXPECT_EQ(cursor.error, 1205u) << cursor.message;
  unsigned int error = 0;
  char message[512];
  const uintptr_t scan =
      open_seqscan_cursor("db", "t", donor.id(), 1, &error, message);
  EXPECT_EQ(scan, 0u);
  EXPECT_EQ(error, 1205u) << message;
  close_seqscan_cursor(scan);
  end_reading();
  EXPECT_EQ(read(donor.id()), before);
}

// The donor's statement switches between the two transactions all the time.
TEST_F(DonorThatReadsSystemTables, ManyTimes) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  sql.exec("SET cte_max_recursion_depth = 100000");
  reading = donor.send(
      "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n"
      " WHERE i < 900) SELECT COUNT(CONVERT_TZ(NOW(), 'UTC',"
      " CONCAT('No/', i))) FROM n");
  for (int i = 0; i < 200; ++i) ASSERT_EQ(read(donor.id()), before) << i;
  EXPECT_EQ(reading.get().error, 0u);
}

TEST_F(Donor, OwnUncommittedRowsAreSeen) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  donor.exec("UPDATE t SET v = 25 WHERE id = 2");
  donor.exec("DELETE FROM t WHERE id = 3");
  EXPECT_EQ(read(donor.id()), (Ints{10, 25, 50}));
  EXPECT_EQ(read(donor.id(), "by_v"), (Ints{10, 25, 50}));
  EXPECT_EQ(read(0), before);
}

TEST_F(Donor, RowsThatItWritesLaterAreSeenOnceItHasAnId) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  Cursor cursor({.donor = donor.id()});
  donor.exec("INSERT INTO t VALUES (6, 60)");
  EXPECT_EQ(cursor.ints(1), (Ints{10, 20, 30, 50, 60}));
}

TEST_F(Donor, UncommittedRowsOfOthersAreNotSeen) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("BEGIN");
  change();
  EXPECT_EQ(read(donor.id()), before);
  EXPECT_EQ(read(0), before);
  sql.exec("COMMIT");
  EXPECT_EQ(read(donor.id()), before);
}

TEST_F(Donor, CommittedTransactionGivesAFreshSnapshot) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("COMMIT");
  change();
  EXPECT_EQ(read(donor.id()), after);
}

TEST_F(Donor, RolledBackTransactionGivesAFreshSnapshot) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  donor.exec("ROLLBACK");
  change();
  EXPECT_EQ(read(donor.id()), after);
}

TEST_F(Donor, SavepointRolledBack) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  donor.exec("SAVEPOINT s");
  donor.exec("INSERT INTO t VALUES (6, 60)");
  donor.exec("ROLLBACK TO s");
  EXPECT_EQ(read(donor.id()), (Ints{10, 20, 30, 50}));
}

// super_read_only turns read_only on too, and leaves it on when it is turned
// off. The case therefore sets and restores both.
TEST_F(Donor, OfAServerThatTakesNoChangesGivesItsSnapshot) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  const Global_setting read_only("read_only", "1");
  const Global_setting super_read_only("super_read_only", "1");
  ASSERT_EQ(sql.attempt("DELETE FROM t").error, 1290u);
  EXPECT_EQ(read(donor.id()), before);
  EXPECT_EQ(read(donor.id(), "by_v"), before);
  EXPECT_EQ(read(0), after);
}

TEST_F(Donor, ReadCommittedBetweenStatementsGivesAFreshSnapshot) {
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED");
  donor.exec("BEGIN");
  donor.query("SELECT * FROM t");
  change();
  EXPECT_EQ(read(donor.id()), after);
}

TEST_F(Donor, ReadUncommittedGivesAFreshSnapshot) {
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL READ UNCOMMITTED");
  donor.exec("BEGIN");
  donor.query("SELECT * FROM t");
  sql.exec("BEGIN");
  change();
  EXPECT_EQ(read(donor.id()), before);
  sql.exec("COMMIT");
  EXPECT_EQ(read(donor.id()), after);
}

TEST_F(Donor, PreparedInXaGivesAFreshSnapshot) {
  donor.exec("XA START 'x'");
  donor.query("SELECT * FROM t");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  donor.exec("XA END 'x'");
  donor.exec("XA PREPARE 'x'");
  change();
  EXPECT_EQ(read(donor.id()), after);
  sql.exec("XA ROLLBACK 'x'");
}

TEST_F(Donor, ActiveInXa) {
  donor.exec("XA START 'y'");
  donor.query("SELECT * FROM t");
  change();
  EXPECT_EQ(read(donor.id()), before);
  donor.exec("XA END 'y'");
  donor.exec("XA ROLLBACK 'y'");
}

TEST_F(Donor, AutocommitOff) {
  donor.exec("SET autocommit = 0");
  donor.query("SELECT * FROM t");
  change();
  EXPECT_EQ(read(donor.id()), before);
}

TEST_F(Donor, StatementThatIsRunning) {
  donor.exec("SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED");
  auto running = donor.send(
      "SELECT v, IF(id = 1, GET_LOCK('stop', 30), 0) FROM t ORDER BY id");
  // The donor gets the lock at once, so this statement does not wait. Then
  // another session holds the lock, and the same statement waits.
  running.get();
  Client holder;
  donor.exec("SELECT RELEASE_LOCK('stop')");
  holder.query("SELECT GET_LOCK('stop', 0)");
  running = donor.send(
      "SELECT v, IF(id = 1, GET_LOCK('stop', 30), 0) FROM t ORDER BY id");
  ASSERT_TRUE(wait_for_state("User lock"));
  change();
  EXPECT_EQ(read(donor.id()), before);
  holder.query("SELECT RELEASE_LOCK('stop')");
  EXPECT_EQ(running.get().rows.size(), 3u);
}

TEST_F(Donor, UnknownRaisesAnErrorAndOpensAllTheSame) {
  Cursor cursor({.donor = 4000000000});
  EXPECT_TRUE(cursor.is_open());
  const Session_error error = session_error(current_session());
  EXPECT_EQ(error.number, 1094u);
  EXPECT_NE(error.text.find("4000000000"), std::string::npos) << error.text;
  change();
  EXPECT_EQ(cursor.ints(1), after);
}

// The table handler checks the session's error when it computes virtual
// columns.
TEST_F(Donor, UnknownIsNoErrorOfTheRows) {
  sql.exec("ALTER TABLE t ADD COLUMN doubled INT AS (v * 2) VIRTUAL");
  Cursor cursor({.donor = 4000000000});
  EXPECT_EQ(cursor.ints(1), before);
  EXPECT_EQ(cursor.ints(2), (Ints{20, 40, 60}));
}

TEST_F(Donor, UnknownDoesNotHideWhyAnIndexIsRefused) {
  sql.exec(
      "CREATE TABLE f (id INT PRIMARY KEY, x TEXT, FULLTEXT KEY words (x))");
  Cursor cursor({.table = "f", .index = "words", .donor = 4000000000});
  EXPECT_FALSE(cursor.is_open());
  EXPECT_EQ(cursor.error, 1178u);
}

TEST_F(Donor, UnknownWithAnUnknownIndexReportsTheIndex) {
  Cursor cursor({.index = "nothing", .donor = 4000000000});
  EXPECT_FALSE(cursor.is_open());
  EXPECT_EQ(cursor.error, 1176u);
  EXPECT_NE(cursor.message.find("nothing"), std::string::npos);
}

TEST_F(Donor, ThatHasGoneIsUnknown) {
  const uint32_t id = donor.id();
  donor.disconnect();
  ASSERT_TRUE(wait_until([&] {
    return sql.number(
               "SELECT COUNT(*) FROM performance_schema.processlist"
               " WHERE id = " +
               std::to_string(id)) == 0;
  }));
  Cursor cursor({.donor = id});
  EXPECT_TRUE(cursor.is_open());
  EXPECT_EQ(session_error(current_session()).number, 1094u);
}

// A cursor's session cannot be a donor, because it is not in the server's list
// of sessions.
TEST_F(Donor, CursorsSessionIsNone) {
  Cursor first;
  ASSERT_TRUE(first.set_range());
  Cursor second({.donor = session_id(current_session())});
  EXPECT_EQ(session_error(current_session()).number, 1094u);
}

TEST_F(Donor, ServesManyCursors) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  std::vector<std::unique_ptr<Cursor>> cursors;
  for (int i = 0; i < 50; ++i)
    cursors.push_back(std::make_unique<Cursor>(Open{.donor = donor.id()}));
  for (auto &cursor : cursors) EXPECT_EQ(cursor->ints(1), before);
}

TEST_F(Donor, SeveralDonorsAtOnce) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  Client other;
  other.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t");
  Cursor first({.donor = donor.id()}), second({.donor = other.id()}), third;
  EXPECT_EQ(second.ints(1), after);
  EXPECT_EQ(first.ints(1), before);
  EXPECT_EQ(third.ints(1), (Ints{}));
}

// A session from the pool must not keep the donor of the cursor that used it
// before.
TEST_F(Donor, PooledSessionForgetsItsDonor) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  {
    Cursor cursor({.donor = donor.id()});
    EXPECT_EQ(cursor.ints(1), before);
  }
  void *session = current_session();
  for (const uint32_t id : {0u, sql.id()}) {
    Cursor cursor({.donor = id});
    EXPECT_EQ(current_session(), session);
    EXPECT_EQ(cursor.ints(1), after);
  }
  EXPECT_EQ(read(donor.id()), before);
}

}  // namespace
