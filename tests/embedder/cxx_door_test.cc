// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// cursor.hpp: opening, stepping, errors, closing and moving its objects.

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cursor_session.hpp"
#include "cursor_test.h"
#include "mysqld_error.h"
#include "session.h"

namespace {

using namespace harness;
using morvena_sn::equal;
using morvena_sn::Error;
using morvena_sn::Sequential_scan;
using morvena_sn::Snapshot;
using Ints = std::vector<long long>;

template <class T>
constexpr bool moves_only =
    std::is_nothrow_move_constructible_v<T>
        &&std::is_nothrow_move_assignable_v<T> &&
    !std::is_copy_constructible_v<T> && !std::is_copy_assignable_v<T>;
static_assert(moves_only<morvena_sn::Cursor>);
static_assert(moves_only<Sequential_scan>);
static_assert(moves_only<Snapshot>);

static_assert(MORVENA_SN_ERROR_VALUE_IN_CHANGE == ER_CHECKREAD);
static_assert(MORVENA_SN_ERROR_OTHER_ENGINE == ER_ILLEGAL_HA);
static_assert(MORVENA_SN_ERROR_NO_DATABASE == ER_BAD_DB_ERROR);
static_assert(MORVENA_SN_ERROR_NO_COLUMN == ER_BAD_FIELD_ERROR);
static_assert(MORVENA_SN_ERROR_NO_DONOR == ER_NO_SUCH_THREAD);
static_assert(MORVENA_SN_ERROR_WRONG_DATABASE_NAME == ER_WRONG_DB_NAME);
static_assert(MORVENA_SN_ERROR_WRONG_TABLE_NAME == ER_WRONG_TABLE_NAME);
static_assert(MORVENA_SN_ERROR_UNKNOWN == ER_UNKNOWN_ERROR);
static_assert(MORVENA_SN_ERROR_NO_TABLE == ER_NO_SUCH_TABLE);
static_assert(MORVENA_SN_ERROR_NO_INDEX == ER_KEY_DOES_NOT_EXITS);
static_assert(MORVENA_SN_ERROR_NOT_SUPPORTED == ER_CHECK_NOT_IMPLEMENTED);
static_assert(MORVENA_SN_ERROR_WAIT_TIMEOUT == ER_LOCK_WAIT_TIMEOUT);
static_assert(MORVENA_SN_ERROR_WRONG_ARGUMENT == ER_WRONG_ARGUMENTS);
static_assert(MORVENA_SN_ERROR_IN_CALLBACK == ER_NOT_SUPPORTED_YET);
static_assert(MORVENA_SN_ERROR_INTERRUPTED == ER_QUERY_INTERRUPTED);
static_assert(MORVENA_SN_ERROR_NOT_A_TABLE == ER_WRONG_OBJECT);
static_assert(MORVENA_SN_ERROR_NEWER_THAN_SNAPSHOT == ER_TABLE_DEF_CHANGED);
static_assert(MORVENA_SN_ERROR_INDEX_CORRUPT == ER_INDEX_CORRUPT);
static_assert(MORVENA_SN_ERROR_NO_TABLESPACE == ER_TABLESPACE_DISCARDED);
static_assert(MORVENA_SN_ERROR_SERVER_NOT_READY == ER_SERVER_ISNT_AVAILABLE);

/** The number of the Error that f throws, 0 if it throws none. */
template <class F>
unsigned int code_thrown_by(F f) {
  try {
    f();
  } catch (const Error &error) {
    EXPECT_NE(error.what()[0], '\0');
    return error.code();
  }
  return 0;
}

class CxxDoor : public Cursor_test {
 protected:
  CxxDoor() {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, V INT, KEY by_v (v))");
    sql.exec("INSERT INTO t VALUES (1, 30), (2, 20), (3, 10)");
  }

  /** The ids of the rows after the current one. */
  static Ints rest(morvena_sn::Cursor &cursor) {
    Ints ids;
    while (cursor.next()) ids.push_back(cursor.get<int64_t>(0).value());
    return ids;
  }
};

TEST_F(CxxDoor, OpeningsThrowTheServersError) {
  try {
    morvena_sn::Cursor("db", "nothing");
    ADD_FAILURE() << "it opens";
  } catch (const Error &error) {
    EXPECT_EQ(error.code(), 1146u);
    EXPECT_STREQ(error.what(), "Table 'db.nothing' doesn't exist");
  }
  EXPECT_EQ(code_thrown_by([] { morvena_sn::Cursor("db", "t", "none"); }),
            1176u);
  EXPECT_EQ(code_thrown_by([] { Sequential_scan("nowhere", "t"); }), 1049u);
}

TEST_F(CxxDoor, OpeningsGiveTheErrorAsAResult) {
  const auto refused = morvena_sn::Cursor::open("db", "nothing");
  ASSERT_FALSE(refused.has_value());
  EXPECT_EQ(refused.error().code(), 1146u);
  EXPECT_EQ(code_thrown_by([&] { (void)refused.value(); }), 1146u);
  auto opened = morvena_sn::Cursor::open("db", "t");
  ASSERT_TRUE(opened.has_value());
  EXPECT_EQ(rest(opened.value()), (Ints{1, 2, 3}));
  morvena_sn::Cursor taken = std::move(opened).value();
  EXPECT_EQ(rest(taken), Ints());
}

TEST_F(CxxDoor, OptionsAreThoseOfTheOpening) {
  Client donor;
  donor.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t");
  morvena_sn::Cursor cursor("db", "t", "by_v", {donor.id(), true});
  EXPECT_EQ(cursor.snapshot(), MORVENA_SN_SNAPSHOT_DONOR);
  EXPECT_EQ(rest(cursor), (Ints{3, 2, 1}));
  EXPECT_EQ(cursor.column_names(), (std::vector<std::string>{"V", "id"}));
}

TEST_F(CxxDoor, WaitsAsLongAsItIsTold) {
  Client locker;
  locker.exec("LOCK TABLES db.t WRITE");
  morvena_sn::Options options;
  options.timeout = std::chrono::seconds(1);
  EXPECT_EQ(code_thrown_by([&] { Sequential_scan("db", "t", options); }),
            1205u);
}

TEST_F(CxxDoor, WithoutARangeItReadsTheIndex) {
  morvena_sn::Cursor cursor("db", "t", "by_v");
  EXPECT_EQ(rest(cursor), (Ints{3, 2, 1}));
  EXPECT_FALSE(cursor.next());
  EXPECT_FALSE(cursor.failure().has_value());
}

TEST_F(CxxDoor, LoopsGoOnWhereTheLastOneLeft) {
  morvena_sn::Cursor cursor("db", "t");
  for (const auto row : cursor.range(morvena_sn::at_least(2))) {
    EXPECT_EQ(row.get<int64_t>("id"), 2);
    break;
  }
  EXPECT_EQ(rest(cursor), Ints{3});
  for (const auto row : cursor.range(equal(7)))
    ADD_FAILURE() << "a row " << row.get<int64_t>(0).value();
}

TEST_F(CxxDoor, TryRangeTellsWhetherThereIsARow) {
  morvena_sn::Cursor cursor("db", "t");
  EXPECT_TRUE(cursor.try_range(equal(2)).value());
  EXPECT_FALSE(cursor.try_range(equal(7)).value());
  EXPECT_FALSE(cursor.try_next().value());
}

TEST_F(CxxDoor, ColumnsHaveNames) {
  morvena_sn::Cursor cursor("db", "t", "by_v");
  EXPECT_EQ(cursor.column("id"), 0u);
  EXPECT_EQ(cursor.column("v"), 1u);
  EXPECT_EQ(cursor.find_column("none"), std::nullopt);
  EXPECT_EQ(code_thrown_by([&] { (void)cursor.column("none"); }), 1054u);
  EXPECT_EQ(code_thrown_by([&] { cursor.select("id", "none"); }), 1054u);
  EXPECT_EQ(cursor.index_column_names(), (std::vector<std::string>{"V", "id"}));
  EXPECT_EQ(cursor.key_parts(), 1u);
  const Sequential_scan scan("db", "t");
  EXPECT_EQ(scan.column_names(), (std::vector<std::string>{"id", "V"}));
  EXPECT_EQ(scan.column("v"), 1u);
  EXPECT_EQ(scan.find_column("no"), std::nullopt);
}

TEST_F(CxxDoor, SelectReadsTheNamedColumnsAlone) {
  morvena_sn::Cursor cursor("db", "t");
  const auto [v] = cursor.select("v");
  ASSERT_TRUE(cursor.range(equal(2)).next());
  EXPECT_EQ(cursor.get<int64_t>(v), 20);
  EXPECT_EQ(cursor.get<int64_t>("id"), std::nullopt);
  EXPECT_EQ(code_thrown_by([&] { (void)cursor.get<int64_t>("none"); }), 1054u);
  EXPECT_EQ(cursor.select(std::vector<std::string>{"v", "id"}),
            (std::vector<uint32_t>{1, 0}));
  ASSERT_TRUE(cursor.range(equal(2)).next());
  EXPECT_EQ(cursor.get<int64_t>("id"), 2);
}

TEST_F(CxxDoor, FailedStepsThrow) {
  morvena_sn::Cursor cursor("db", "t");
  ASSERT_TRUE(cursor.next());
  cursor.cancel();
  EXPECT_EQ(code_thrown_by([&] { (void)cursor.next(); }), 1317u);
  EXPECT_EQ(cursor.failure()->code(), 1317u);
  cursor.cancel();
  const auto step = cursor.try_next();
  ASSERT_FALSE(step.has_value());
  EXPECT_EQ(step.error().code(), 1317u);
  // The steps were cancelled before they began, so the position has not
  // changed.
  EXPECT_EQ(rest(cursor), (Ints{2, 3}));
  cursor.cancel();
  EXPECT_EQ(code_thrown_by([&] { cursor.range(equal(2)); }), 1317u);
  cursor.range(equal(2));
  EXPECT_EQ(rest(cursor), Ints{2});
}

TEST_F(CxxDoor, MovedCursorsGoOnAndLeaveAClosedOne) {
  morvena_sn::Cursor from("db", "t");
  ASSERT_TRUE(from.next());
  morvena_sn::Cursor to = std::move(from);
  EXPECT_EQ(to.get<int64_t>(0), 1);
  EXPECT_EQ(rest(to), (Ints{2, 3}));
  // NOLINTBEGIN(bugprone-use-after-move)
  EXPECT_FALSE(from.is_open());
  EXPECT_EQ(from.handle(), 0u);
  EXPECT_EQ(from.get<int64_t>(0), std::nullopt);
  EXPECT_EQ(from.column_names(), std::vector<std::string>());
  EXPECT_EQ(from.progress().has_value(), false);
  EXPECT_EQ(code_thrown_by([&] { (void)from.next(); }), 1210u);
  EXPECT_EQ(code_thrown_by([&] { from.range(equal(1)); }), 1210u);
  EXPECT_EQ(code_thrown_by([&] {
              from.read_in_parallel(2, [](const morvena_sn::Batch &) {});
            }),
            1210u);
  from.cancel();
  from.close();
  from = morvena_sn::Cursor("db", "t", "by_v");
  EXPECT_EQ(rest(from), (Ints{3, 2, 1}));
  // NOLINTEND(bugprone-use-after-move)
}

TEST_F(CxxDoor, EveryEndGivesTheTableBack) {
  {
    morvena_sn::Cursor cursor("db", "t");
    const Sequential_scan scan("db", "t");
    EXPECT_EQ(metadata_locks(), 2);
    cursor = morvena_sn::Cursor("db", "t", "by_v");
    EXPECT_EQ(metadata_locks(), 2);
    cursor.close();
    cursor.close();
    EXPECT_EQ(metadata_locks(), 1);
  }
  EXPECT_EQ(metadata_locks(), 0);
  try {
    morvena_sn::Cursor cursor("db", "t");
    throw 5;
  } catch (int) {
  }
  EXPECT_EQ(metadata_locks(), 0);
}

TEST_F(CxxDoor, SnapshotsAreOneMomentUntilTheirEnd) {
  uint32_t ended = 0;
  {
    Snapshot first;
    Snapshot moment = std::move(first);
    EXPECT_EQ(first.donor(), 0u);  // NOLINT(bugprone-use-after-move)
    ended = moment.donor();
    sql.exec("DELETE FROM t WHERE id = 1");
    morvena_sn::Cursor cursor("db", "t", "PRIMARY", {ended});
    EXPECT_EQ(cursor.snapshot(), MORVENA_SN_SNAPSHOT_DONOR);
    EXPECT_EQ(rest(cursor), (Ints{1, 2, 3}));
    moment = Snapshot::take().value();
    morvena_sn::Cursor later("db", "t", "PRIMARY", {moment.donor()});
    EXPECT_EQ(rest(later), (Ints{2, 3}));
    EXPECT_NE(moment.donor(), ended);
    ended = moment.donor();
  }
  const morvena_sn::Cursor cursor("db", "t", "PRIMARY", {ended});
  EXPECT_EQ(cursor.snapshot(), MORVENA_SN_SNAPSHOT_NONE);
}

TEST_F(CxxDoor, SessionKeeperGivesTheClientItsSessionBack) {
  const Client_session client;
  {
    const morvena_sn::Session_keeper keeper;
    morvena_sn::Cursor cursor("db", "t");
    EXPECT_EQ(rest(cursor), (Ints{1, 2, 3}));
    EXPECT_NE(current_session(), client.get());
  }
  EXPECT_EQ(current_session(), client.get());
}

TEST_F(CxxDoor, OwnThreadsGiveWhatTheirFunctionGives) {
  EXPECT_EQ(morvena_sn::on_own_thread([] {
              morvena_sn::Cursor cursor("db", "t");
              return rest(cursor);
            }),
            (Ints{1, 2, 3}));
  bool ran = false;
  morvena_sn::on_own_thread([&] { ran = true; });
  EXPECT_TRUE(ran);
  EXPECT_EQ(
      code_thrown_by([] {
        morvena_sn::on_own_thread([] { morvena_sn::Cursor("db", "nothing"); });
      }),
      1146u);
}

// This plug-in is not declared by cursor_plugin.hpp, so a Reading finds no
// plug-in that runs.
TEST_F(CxxDoor, ReadingsNeedAPluginThatRuns) {
  EXPECT_EQ(code_thrown_by([] { const morvena_sn::Reading reading; }), 3168u);
}

}  // namespace
