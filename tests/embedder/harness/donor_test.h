// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file donor_test.h
  A table, a donor session whose snapshot cursors read, and changes that another
  session makes to the table.
*/

#ifndef MORVENA_SN_TESTS_DONOR_TEST_H
#define MORVENA_SN_TESTS_DONOR_TEST_H

#include <string>
#include <vector>

#include "cursor_test.h"

namespace harness {

using Ints = std::vector<long long>;

class Donor_test : public Cursor_test {
 protected:
  Donor_test() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    sql.exec("INSERT INTO t VALUES (1, 10), (2, 20), (3, 30)");
    donor.exec("USE db");
  }

  /** Another session updates one row, deletes one and inserts one. */
  void change() {
    sql.exec("UPDATE t SET v = v + 1 WHERE id = 1");
    sql.exec("DELETE FROM t WHERE id = 2");
    sql.exec("INSERT INTO t VALUES (4, 40)");
  }

  Ints read(uint32_t donor_id, const char *index = "PRIMARY") {
    Cursor cursor({.index = index, .donor = donor_id});
    EXPECT_TRUE(cursor.is_open()) << cursor.error << cursor.message;
    return cursor.ints(1);
  }

  const Ints before{10, 20, 30}, after{11, 30, 40};
  Client donor;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_DONOR_TEST_H
