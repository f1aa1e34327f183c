// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// cursor_error() tells why a call failed, after calls of every outcome.

#include <cstring>
#include <stdexcept>
#include <string>

#include "common/failure.h"
#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;

/** It does not matter how many workers deliver rows. */
template <class Reader>
bool read_by_any(const Reader &reader, size_t threads, const On_batch &take) {
  return read_parallel(reader, threads, take, Workers::any);
}

struct Told {
  unsigned int code;
  std::string text;
};

Told error_of(uintptr_t handle) {
  const char *text = nullptr;
  const unsigned int code = cursor_error(handle, &text);
  return {code, text != nullptr ? text : "no text"};
}

template <class Handle>
Told error_of(const Handle &handle) {
  return error_of(handle.handle);
}

class CursorError : public Parallel_test {
 protected:
  void make(size_t n_rows = 10) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    fill("t", n_rows, "i, i");
  }
  static bool go_on(const Batch &) { return false; }
};

TEST_F(CursorError, IsZeroAfterCallsThatDoNotFail) {
  make();
  Cursor cursor;
  EXPECT_EQ(error_of(cursor).code, 0u);
  ASSERT_TRUE(cursor.set_range());
  while (cursor.next()) {
  }
  EXPECT_EQ(error_of(cursor).code, 0u);
  EXPECT_EQ(error_of(cursor).text, "");
  EXPECT_TRUE(read_by_any(cursor, 2, go_on));
  EXPECT_EQ(error_of(cursor).code, 0u);
  EXPECT_FALSE(cursor.read_int(7).has_value());
  EXPECT_EQ(error_of(cursor).code, 0u);
}

TEST_F(CursorError, NamesHandlesThatAreNone) {
  make();
  EXPECT_EQ(error_of(uintptr_t{0}).code, 1210u);
  EXPECT_EQ(cursor_error(0, nullptr), 1210u);
  Cursor cursor;
  Scan scan;
  const uintptr_t closed[] = {cursor.handle, scan.handle};
  cursor.close();
  scan.close();
  for (const uintptr_t handle : closed) {
    EXPECT_EQ(error_of(handle).code, 1210u);
    EXPECT_EQ(error_of(handle).text, "The cursor is closed");
  }
}

TEST_F(CursorError, ToldByAKillWhileStepping) {
  make();
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  ASSERT_TRUE(cursor.next());
  kill_session(current_session());
  // The kill does not take away the rows that were fetched ahead.
  for (int i = 0; i < 20 && cursor.next(); ++i) {
  }
  ASSERT_FALSE(cursor.set_range());
  EXPECT_EQ(error_of(cursor).code, 1317u);
  EXPECT_EQ(error_of(cursor).text, "Query execution was interrupted");
}

TEST_F(CursorError, ToldByAKillOfAParallelRead) {
  make(100000);
  for (const size_t threads : {0, 1, 4}) {
    Scan scan;
    void *const session = current_session();
    EXPECT_FALSE(read_by_any(scan, threads, [&](const Batch &) {
      kill_session(session);
      return false;
    }));
    EXPECT_EQ(error_of(scan).code, 1317u) << threads;
  }
}

TEST_F(CursorError, OfAKilledReadOfAnEmptyTable) {
  make(0);
  for (const size_t threads : {0, 1, 4}) {
    Scan scan;
    kill_session(current_session());
    EXPECT_FALSE(read_by_any(scan, threads, go_on)) << threads;
    EXPECT_EQ(error_of(scan).code, 1317u) << threads;
  }
}

TEST_F(CursorError, SaysThatTheCallbackStoppedTheRead) {
  make(100000);
  Scan scan;
  for (const size_t threads : {0, 1, 4}) {
    EXPECT_FALSE(
        read_by_any(scan, threads, [](const Batch &) { return true; }));
    EXPECT_EQ(error_of(scan).code, 10135u);
    EXPECT_EQ(error_of(scan).text, "The callback stopped the read");
    EXPECT_FALSE(read_by_any(scan, threads, [](const Batch &) -> bool {
      throw std::runtime_error("its own");
    }));
    EXPECT_EQ(error_of(scan).code, 10135u);
    EXPECT_EQ(error_of(scan).text, "The callback threw an exception");
    EXPECT_TRUE(read_by_any(scan, threads, go_on));
    EXPECT_EQ(error_of(scan).code, 0u);
  }
}

TEST_F(CursorError, IsZeroWhereALastBatchIsRefused) {
  make(10);
  Scan scan;
  EXPECT_TRUE(read_by_any(scan, 0, [](const Batch &) { return true; }));
  EXPECT_EQ(error_of(scan).code, 0u);
}

TEST_F(CursorError, NamesWhatAParallelReadCannotRead) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, v INT, w INT AS (v + 1) VIRTUAL,"
      " KEY by_w (w))");
  sql.exec(
      "CREATE TABLE p (id INT PRIMARY KEY) PARTITION BY HASH (id)"
      " PARTITIONS 2");
  const Server_log log(sql);
  Cursor of_virtual({.index = "by_w"});
  EXPECT_FALSE(read_by_any(of_virtual, 2, go_on));
  EXPECT_EQ(error_of(of_virtual).code, 1178u);
  const std::string text =
      "Cannot do parallel scan on index with virtual field";
  EXPECT_EQ(error_of(of_virtual).text, text);
  Cursor of_partitions({.table = "p"});
  EXPECT_FALSE(read_by_any(of_partitions, 2, go_on));
  EXPECT_EQ(error_of(of_partitions).code, 1178u);
  // The line of the log begins with a time stamp: the year 20.., and a T
  // between the date and the time.
  const std::string written = log.text();
  const size_t at = written.find(text);
  ASSERT_NE(at, std::string::npos) << written;
  const size_t line = written.rfind('\n', at) + 1;
  EXPECT_EQ(written.substr(line, 2), "20");
  EXPECT_EQ(written.substr(line + 10, 1), "T");
}

TEST_F(CursorError, NamesAWrongBoundAndAMissingCallback) {
  make();
  Cursor cursor;
  field_arg broken{1, nullptr, nullptr, nullptr};
  EXPECT_FALSE(cursor_set_read_range(cursor.handle, &broken, nullptr, true,
                                     true, false));
  EXPECT_EQ(error_of(cursor).code, 1210u);
  EXPECT_FALSE(cursor_advance_parallel(cursor.handle, 2, nullptr, nullptr));
  EXPECT_EQ(error_of(cursor).code, 1210u);
  EXPECT_TRUE(cursor.set_range());
  EXPECT_EQ(error_of(cursor).code, 0u);
}

TEST_F(CursorError, NamesARangeOfAMultiValuedIndex) {
  sql.exec(
      "CREATE TABLE t (id INT PRIMARY KEY, j JSON, KEY m ((CAST(j->'$' AS"
      " UNSIGNED ARRAY))))");
  sql.exec("INSERT INTO t VALUES (1, '[1, 2]')");
  Cursor cursor({.index = "m"});
  EXPECT_FALSE(
      cursor.set_range({.begin = Keys().number(1), .end = Keys().number(2)}));
  EXPECT_EQ(error_of(cursor).code, 1178u);
}

TEST_F(CursorError, OfAnOpeningIsNeverZero) {
  make();
  const Cursor cursor({.index = "none"});
  EXPECT_FALSE(cursor.is_open());
  EXPECT_EQ(cursor.error, 1176u);
  EXPECT_EQ(cursor.message, "Key 'none' doesn't exist in table 't'");
}

}  // namespace
