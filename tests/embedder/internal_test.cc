// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Internals of the plug-in that cannot be observed through the exported
// functions.

#include <chrono>
#include <cstring>
#include <future>

#include "common.h"
#include "cursor_test.h"
#include "handler_api.h"
#include "host/innodb.h"

#include "dict0dict.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

/** A table that is opened and locked in a session of its own. */
class Opened {
 public:
  Opened() {
    thd = CommonApi::create_thd();
    table = CommonApi::open_table(thd, "db", "t");
    if (table != nullptr) lock_failed = CommonApi::lock_table(thd, table, 5);
  }
  ~Opened() {
    CommonApi::thd_attach(thd, nullptr);
    if (table != nullptr) CommonApi::unlock_table(thd, table);
    CommonApi::close_thd(thd);
  }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;

  /** A cursor with a snapshot of its own. */
  std::unique_ptr<IndexCursor> open(const char *index, bool index_only) {
    EXPECT_EQ(CommonApi::start_transaction(thd, 0), Snapshot::OWN);
    return IndexCursor::open(table, index, index_only);
  }
  bool holds(enum_mdl_type lock) const {
    return thd->mdl_context.owns_equal_or_stronger_lock(MDL_key::TABLE, "db",
                                                        "t", lock);
  }

  THD *thd;
  TABLE *table;
  bool lock_failed = true;
};

class Internal : public Cursor_test {
 protected:
  Internal() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(10)"
        " CHARACTER SET latin1, c BIGINT NOT NULL,"
        " KEY k (a, b), KEY l (c, a))");
    sql.exec("INSERT INTO t VALUES (1, 10, 'x', 7), (2, 20, 'y', 8)");
  }

  /** The length in bytes of a key with these values on an index of t. */
  size_t key_length(const char *index, Keys keys) {
    Opened opened;
    const std::unique_ptr<IndexCursor> cursor = opened.open(index, false);
    EXPECT_NE(cursor, nullptr);
    uchar key[4096];
    return cursor->create_key(keys.arg(), key);
  }
};

// A nullable INT takes 1 + 4 bytes of a key, a nullable VARCHAR(10) of latin1
// 1 + 2 + 10.
TEST_F(Internal, KeyLengthCountsTheGivenParts) {
  EXPECT_EQ(key_length("k", Keys().number(1)), 5u);
  EXPECT_EQ(key_length("k", Keys().number(1).text("x")), 18u);
  EXPECT_EQ(key_length("PRIMARY", Keys().number(1)), 4u);
  EXPECT_EQ(key_length("l", Keys().number(1)), 8u);
  EXPECT_EQ(key_length("k", Keys()), 0u);
}

TEST_F(Internal, KeyLengthLeavesNullPartsOut) {
  EXPECT_EQ(key_length("k", Keys().null().text("x")), 13u);
  EXPECT_EQ(key_length("k", Keys().number(1).null()), 5u);
  EXPECT_EQ(key_length("k", Keys().null()), 0u);
}

// A callback may ask for these names while its thread holds a page latch.
// Another thread may hold the dictionary's mutex and wait for that page.
TEST_F(Internal, NamesOfIndexColumnsTakeNoMutexOfTheDictionarys) {
  Cursor cursor({.index_only = true});
  dict_sys_mutex_enter();
  auto names = std::async(std::launch::async, [&] {
    EXPECT_EQ(cursor.index_columns(),
              (std::vector<std::string>{"id", "DB_TRX_ID", "DB_ROLL_PTR", "a",
                                        "b", "c"}));
    EXPECT_EQ(cursor.output_columns(), cursor.index_columns());
  });
  const auto state = names.wait_for(std::chrono::seconds(10));
  dict_sys_mutex_exit();
  EXPECT_EQ(state, std::future_status::ready);
  names.get();
}

TEST_F(Internal, OpenedTableIsLockedForReading) {
  Opened opened;
  ASSERT_FALSE(opened.lock_failed);
  EXPECT_TRUE(opened.holds(MDL_SHARED_READ));
  EXPECT_FALSE(opened.holds(MDL_SHARED_WRITE));
  EXPECT_EQ(opened.table->reginfo.lock_type, TL_READ);
  EXPECT_EQ(opened.table->file->get_lock_type(), F_RDLCK);
  sql.exec("LOCK TABLES t READ");
  sql.exec("UNLOCK TABLES");
}

TEST_F(Internal, EveryColumnIsReadWhenATableIsOpened) {
  Opened opened;
  EXPECT_TRUE(bitmap_is_set_all(opened.table->read_set));
}

// The next user of the table object may need columns that are not in the index.
TEST_F(Internal, IndexOnlyEndsWithTheCursor) {
  Opened opened;
  std::unique_ptr<IndexCursor> cursor = opened.open("k", true);
  ASSERT_NE(cursor, nullptr);
  ASSERT_TRUE(opened.table->key_read);
  cursor.reset();
  EXPECT_FALSE(opened.table->key_read);
  cursor = opened.open("k", false);
  ASSERT_FALSE(cursor->set_read_range(nullptr, nullptr, true, true, false));
  longlong c;
  ASSERT_FALSE(cursor->read_field_int(3, &c));
  EXPECT_EQ(c, 7);
}

TEST_F(Internal, UnlockAnswersSuccessAndClosesTheTable) {
  THD *thd = CommonApi::create_thd();
  TABLE *table = CommonApi::open_table(thd, "db", "t");
  ASSERT_NE(table, nullptr);
  ASSERT_FALSE(CommonApi::lock_table(thd, table, 5));
  EXPECT_NE(thd->lock, nullptr);
  EXPECT_EQ(CommonApi::unlock_table(thd, table), 0);
  EXPECT_EQ(thd->lock, nullptr);
  EXPECT_EQ(thd->open_tables, nullptr);
  CommonApi::close_thd(thd);
}

TEST_F(Internal, LockTimeoutIsTheSessionsFromThenOn) {
  THD *thd = CommonApi::create_thd();
  TABLE *table = CommonApi::open_table(thd, "db", "t");
  ASSERT_NE(table, nullptr);
  EXPECT_FALSE(CommonApi::lock_table(thd, table, 17));
  EXPECT_EQ(thd->variables.lock_wait_timeout, 17u);
  CommonApi::unlock_table(thd, table);
  CommonApi::close_thd(thd);
}

TEST_F(Internal, NoErrorAfterAReset) {
  THD *thd = CommonApi::create_thd();
  char message[512];
  memset(message, 'm', sizeof message);
  EXPECT_EQ(CommonApi::get_last_error(thd, message), 0u);
  EXPECT_EQ(std::string(message, sizeof message), std::string(512, 'm'));
  my_error(ER_UNKNOWN_ERROR, MYF(0));
  EXPECT_EQ(CommonApi::get_last_error(thd, message), 1105u);
  EXPECT_STREQ(message, "Unknown error");
  thd->get_stmt_da()->reset_diagnostics_area();
  memset(message, 'n', sizeof message);
  EXPECT_EQ(CommonApi::get_last_error(thd, message), 0u);
  EXPECT_EQ(std::string(message, sizeof message), std::string(512, 'n'));
  CommonApi::close_thd(thd);
}

TEST_F(Internal, AttachStoresTheSessionBefore) {
  THD *first = CommonApi::create_thd();
  THD *second = CommonApi::create_thd();
  ASSERT_EQ(current_thd, second);
  THD *before = nullptr;
  CommonApi::thd_attach(first, &before);
  EXPECT_EQ(before, second);
  EXPECT_EQ(current_thd, first);
  CommonApi::thd_attach(first, &before);
  EXPECT_EQ(before, first);
  EXPECT_EQ(current_thd, first);
  CommonApi::close_thd(first);
  CommonApi::thd_attach(second, nullptr);
  CommonApi::close_thd(second);
}

TEST_F(Internal, DonorIsIgnoredWhereAViewIsOpen) {
  Client first, second;
  first.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  sql.exec("DELETE FROM t WHERE id = 1");
  second.exec("START TRANSACTION WITH CONSISTENT SNAPSHOT");
  Opened opened;
  EXPECT_EQ(CommonApi::start_transaction(opened.thd, first.id()),
            Snapshot::DONORS);
  EXPECT_EQ(CommonApi::start_transaction(opened.thd, second.id()),
            Snapshot::OWN);
  const std::unique_ptr<IndexCursor> cursor =
      IndexCursor::open(opened.table, "PRIMARY", false);
  ASSERT_FALSE(cursor->set_read_range(nullptr, nullptr, true, true, false));
  longlong id;
  ASSERT_FALSE(cursor->read_field_int(0, &id));
  EXPECT_EQ(id, 1);
}

TEST_F(Internal, NamesOfAUniqueIndexAreAppended) {
  Opened opened;
  std::vector<const char *> names{"before"};
  CommonApi::get_index_field_names(&opened.table->key_info[0], names);
  ASSERT_GE(names.size(), 2u);
  EXPECT_STREQ(names[0], "before");
  EXPECT_STREQ(names[1], "id");
}

TEST_F(Internal, TableNamesReplaceTheList) {
  Opened opened;
  std::vector<const char *> names{"before"};
  CommonApi::get_table_field_names(opened.table, names);
  EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()),
            (std::vector<std::string>{"id", "a", "b", "c"}));
}

TEST_F(Internal, IndexNamesIgnoreLetterCase) {
  for (const char *name : {"primary", "Primary", "PRIMARY"})
    EXPECT_EQ(Cursor({.index = name}).ints(0), (Ints{1, 2})) << name;
  EXPECT_EQ(Cursor({.index = "K"}).index_columns()[0], "a");
}

// SQL cannot create such names.
TEST_F(Internal, FirstOfIndexNamesThatDifferInCaseWins) {
  Opened opened;
  KEY &second = opened.table->key_info[2];
  const char *const name = second.name;
  second.name = "K";
  {
    const std::unique_ptr<IndexCursor> cursor = opened.open("K", false);
    ASSERT_NE(cursor, nullptr);
    std::vector<const char *> names;
    cursor->get_key_col_names(names);
    EXPECT_STREQ(names.at(0), "a");
  }
  second.name = name;
}

TEST_F(Internal, PluginIsListed) {
  const Rows rows = sql.query(
      "SELECT plugin_version, plugin_status, plugin_type, plugin_license,"
      " plugin_description FROM information_schema.plugins"
      " WHERE plugin_name = 'MORVENA_SN'");
  EXPECT_EQ(rows, (Rows{{"1.0", "ACTIVE", "STORAGE ENGINE", "GPL",
                         "MORVENA_SN storage engine"}}));
}

}  // namespace
