// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// What the donor does while a cursor reads its snapshot, and how the read
// affects the donor.

#include "donor_test.h"
#include "purge.h"

namespace {

using namespace harness;

class ChangingDonor : public Donor_test {
 protected:
  Purge purge{&sql};
};

TEST_F(ChangingDonor, CommitsWhileTheCursorReads) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  Cursor cursor({.donor = donor.id()});
  ASSERT_TRUE(cursor.set_range());
  donor.exec("COMMIT");
  // If purge does not respect the cursor's snapshot, it removes the deleted row
  // here.
  ASSERT_TRUE(purge.has_run(5));
  EXPECT_EQ(cursor.ints(1), before);
  donor.exec("UPDATE t SET v = 99");
  ASSERT_TRUE(purge.has_run(5));
  EXPECT_EQ(cursor.ints(1), before);
}

// The rows that the donor wrote before the cursor was opened stay visible to
// the cursor.
TEST_F(ChangingDonor, CommitsItsOwnRowsWhileTheCursorReads) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  change();
  Cursor cursor({.donor = donor.id()});
  donor.exec("COMMIT");
  EXPECT_EQ(cursor.ints(1), (Ints{10, 20, 30, 50}));
}

TEST_F(ChangingDonor, RollsBackItsRowsWhileTheCursorReads) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  Cursor cursor({.donor = donor.id()});
  donor.exec("ROLLBACK");
  EXPECT_EQ(cursor.ints(1), before);
}

TEST_F(ChangingDonor, DisconnectsWhileTheCursorReads) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  Cursor cursor({.donor = donor.id()});
  const uint32_t id = donor.id();
  donor.disconnect();
  ASSERT_TRUE(wait_until([&] {
    return sql.number(
               "SELECT COUNT(*) FROM performance_schema.processlist"
               " WHERE id = " +
               std::to_string(id)) == 0;
  }));
  ASSERT_TRUE(purge.has_run(5));
  EXPECT_EQ(cursor.ints(1), before);
}

TEST_F(ChangingDonor, IsKilledWhileTheCursorReads) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  donor.exec("INSERT INTO t VALUES (5, 50)");
  Cursor cursor({.donor = donor.id()});
  ASSERT_TRUE(cursor.set_range());
  const std::string id = std::to_string(donor.id());
  sql.exec("KILL " + id);
  ASSERT_TRUE(wait_until([&] {
    return sql.number(
               "SELECT COUNT(*) FROM performance_schema.processlist"
               " WHERE id = " +
               id) == 0;
  }));
  EXPECT_EQ(cursor.ints(1), before);
}

TEST_F(ChangingDonor, StartsAnotherTransactionWhileTheCursorReads) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor first({.donor = donor.id()});
  change();
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Cursor second({.donor = donor.id()});
  EXPECT_EQ(first.ints(1), before);
  EXPECT_EQ(second.ints(1), after);
}

class DonorsTransaction : public Donor_test {
 protected:
  std::string info(const std::string &column) {
    return of_transactions(
        "COALESCE(MAX(" + column + "), 'none')",
        "trx_mysql_thread_id = " + std::to_string(donor.id()));
  }
};

TEST_F(DonorsTransaction, IsLeftAsItWas) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  const std::string id = info("trx_id"), level = info("trx_isolation_level");
  EXPECT_NE(id, "none");
  {
    Cursor cursor({.donor = donor.id()});
    EXPECT_EQ(cursor.ints(1), before);
    EXPECT_EQ(info("trx_id"), id);
  }
  EXPECT_EQ(info("trx_id"), id);
  EXPECT_EQ(info("trx_isolation_level"), level);
  EXPECT_EQ(info("trx_state"), "RUNNING");
}

TEST_F(DonorsTransaction, MayGoOnToWriteAndCommit) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  {
    Cursor cursor({.donor = donor.id()});
    EXPECT_EQ(cursor.ints(1), before);
    donor.exec("INSERT INTO t VALUES (7, 70)");
  }
  donor.exec("COMMIT");
  EXPECT_EQ(read(0), (Ints{10, 20, 30, 70}));
}

TEST_F(DonorsTransaction, ReadsItsOwnSnapshotOnAfterTheCursor) {
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  change();
  EXPECT_EQ(read(donor.id()), before);
  EXPECT_EQ(as_ints(donor.query("SELECT v FROM t ORDER BY id")), before);
}

TEST_F(DonorsTransaction, IsNotStartedForAnIdleSession) {
  EXPECT_EQ(info("trx_id"), "none");
  EXPECT_EQ(read(donor.id()), before);
  EXPECT_EQ(info("trx_id"), "none");
}

}  // namespace
