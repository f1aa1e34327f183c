// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Handles, steps, and the names and numbers of columns.

#include <cstring>

#include "cursor_test.h"

namespace {

using namespace harness;

class Handle : public Cursor_test {
 protected:
  Handle() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, a INT, b VARCHAR(20), c INT,"
        " KEY by_a (a), UNIQUE KEY by_b (b, c))");
    sql.exec(
        "INSERT INTO t VALUES (1, 10, 'x', 5), (2, 20, 'y', 6),"
        " (3, 30, 'z', 7)");
  }
};

using Names = std::vector<std::string>;

TEST_F(Handle, SuccessLeavesErrorZeroAndTheMessageAlone) {
  char message[512];
  memset(message, 'm', sizeof message);
  unsigned int error = 7;
  const uintptr_t handle =
      open_index_cursor("db", "t", "PRIMARY", false, 0, 5, &error, message);
  EXPECT_NE(handle, 0u);
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(std::string(message, sizeof message), std::string(512, 'm'));
  close_index_cursor(handle);
}

TEST_F(Handle, ErrorAndMessageMayBeLeftOut) {
  const uintptr_t handle =
      open_index_cursor("db", "t", "PRIMARY", false, 0, 5, nullptr, nullptr);
  EXPECT_NE(handle, 0u);
  close_index_cursor(handle);
  EXPECT_EQ(
      open_index_cursor("db", "none", "PRIMARY", false, 0, 5, nullptr, nullptr),
      0u);
}

TEST_F(Handle, FirstAdvanceKeepsTheRowOfTheRange) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_int(0), 1);
  EXPECT_FALSE(cursor_advance(cursor.handle));
  EXPECT_EQ(cursor.read_int(0), 1);
  EXPECT_FALSE(cursor_advance(cursor.handle));
  EXPECT_EQ(cursor.read_int(0), 2);
}

TEST_F(Handle, AdvanceAfterAnEmptyRangeTellsTheEnd) {
  Cursor cursor;
  ASSERT_FALSE(cursor.set_range({Keys().number(4)}));
  EXPECT_TRUE(cursor_advance(cursor.handle));
  EXPECT_TRUE(cursor_advance(cursor.handle));
}

// After an empty range the table handler has no position, and the handler of a
// partitioned table has no current partition.
TEST_F(Handle, AdvanceAfterNoRowTellsTheEndInEveryKindOfRange) {
  sql.exec(
      "CREATE TABLE p (id INT PRIMARY KEY) PARTITION BY HASH (id)"
      " PARTITIONS 3");
  sql.exec("INSERT INTO p VALUES (1), (2), (3)");
  const Keys none = Keys().number(9), low = Keys().number(-5);
  const std::vector<Range> ranges{{none, none},
                                  {none, none, true, true, true},
                                  {none, {}},
                                  {{}, low},
                                  {{}, low, true, true, true}};
  for (const char *table : {"t", "p"}) {
    for (const uint32_t donor : {0U, 4000000000U}) {
      for (const Range &range : ranges) {
        Cursor cursor({.table = table, .donor = donor});
        Cursor used({.table = table, .donor = donor});
        EXPECT_TRUE(used.set_range());
        EXPECT_FALSE(cursor.set_range(range));
        EXPECT_FALSE(used.set_range(range));
        for (int i = 0; i < 3; ++i) {
          EXPECT_TRUE(cursor_advance(cursor.handle));
          EXPECT_TRUE(cursor_advance(used.handle));
        }
      }
    }
  }
}

TEST_F(Handle, EndStaysTheEndInEveryKindOfRange) {
  const Keys two = Keys().number(2);
  const std::vector<Range> ranges{{two, two},
                                  {two, {}},
                                  {{}, two},
                                  {.reverse = true},
                                  {two, {}, false, true, true},
                                  {{}, two, true, true, true}};
  for (const Range &range : ranges) {
    Cursor cursor;
    EXPECT_GE(cursor.ints(0, range).size(), 1u);
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(cursor_advance(cursor.handle));
  }
}

TEST_F(Handle, AdvanceWithoutARangeTellsTheEnd) {
  Cursor cursor;
  EXPECT_TRUE(cursor_advance(cursor.handle));
  EXPECT_TRUE(cursor_advance(cursor.handle));
}

TEST_F(Handle, EndStaysTheEnd) {
  Cursor cursor;
  EXPECT_EQ(cursor.ints(0).size(), 3u);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(cursor_advance(cursor.handle));
}

TEST_F(Handle, RangeCanBeSetAgainAfterTheEnd) {
  Cursor cursor;
  EXPECT_EQ(cursor.ints(0).size(), 3u);
  EXPECT_EQ(cursor.ints(0), (std::vector<long long>{1, 2, 3}));
}

TEST_F(Handle, NewRangeForgetsTheRowThatWasNotReported) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  ASSERT_FALSE(cursor.set_range({Keys().number(9)}));
  EXPECT_TRUE(cursor_advance(cursor.handle));
}

TEST_F(Handle, EmptyTable) {
  sql.exec("CREATE TABLE e (id INT PRIMARY KEY)");
  Cursor cursor({.table = "e"});
  EXPECT_FALSE(cursor.set_range());
  EXPECT_FALSE(cursor.set_range({.reverse = true}));
  EXPECT_TRUE(cursor_advance(cursor.handle));
}

TEST_F(Handle, CursorsAreIndependent) {
  Cursor first, second({.index = "by_a"}), other;
  ASSERT_TRUE(first.set_range());
  ASSERT_TRUE(second.set_range({.reverse = true}));
  ASSERT_TRUE(first.next() && first.next());
  EXPECT_EQ(other.ints(1), (std::vector<long long>{10, 20, 30}));
  EXPECT_EQ(first.read_int(0), 2);
  EXPECT_EQ(second.read_int(0), 3);
  first.close();
  ASSERT_TRUE(second.next() && second.next());
  EXPECT_EQ(second.read_int(0), 2);
}

TEST_F(Handle, OutputColumnsAreTheTablesInItsOrder) {
  Cursor cursor({.index = "by_a"});
  EXPECT_EQ(cursor_output_col_num(cursor.handle), 4u);
  EXPECT_EQ(cursor.output_columns(), (Names{"id", "a", "b", "c"}));
}

TEST_F(Handle, OutputColumnsOfAnIndexOnlyCursorAreTheIndexs) {
  Cursor cursor({.index = "by_a", .index_only = true});
  EXPECT_EQ(cursor_output_col_num(cursor.handle), 2u);
  EXPECT_EQ(cursor.output_columns(), (Names{"a", "id"}));
}

TEST_F(Handle, ExactlyAsManyNamesAsCountedAreWritten) {
  Cursor cursor({.index = "by_a"});
  const char sentinel[] = "untouched";
  std::vector<const char *> names(6, sentinel);
  cursor_output_col_names(cursor.handle, names.data());
  EXPECT_NE(names[3], sentinel);
  EXPECT_EQ(names[4], sentinel);
  EXPECT_EQ(names[5], sentinel);
  names.assign(6, sentinel);
  cursor_idx_col_names(cursor.handle, names.data());
  EXPECT_NE(names[1], sentinel);
  EXPECT_EQ(names[2], sentinel);
}

TEST_F(Handle, ColumnsOfAUniqueIndexAreInnodbsList) {
  Cursor cursor({.index = "by_b"});
  EXPECT_EQ(cursor.index_columns(), (Names{"b", "c", "id"}));
  EXPECT_EQ(cursor_idx_col_num(cursor.handle), 3u);
}

TEST_F(Handle, ColumnsOfAnotherIndexAreItsPartsAndThePrimaryKeys) {
  Cursor cursor({.index = "by_a"});
  EXPECT_EQ(cursor.index_columns(), (Names{"a", "id"}));
}

TEST_F(Handle, ColumnsOfThePrimaryKeyAreAllOfTheTable) {
  Cursor cursor;
  EXPECT_EQ(cursor.index_columns(),
            (Names{"id", "DB_TRX_ID", "DB_ROLL_PTR", "a", "b", "c"}));
}

TEST_F(Handle, PartsOfTheDefinitionAreCounted) {
  EXPECT_EQ(cursor_idx_user_col_num(Cursor().handle), 1u);
  EXPECT_EQ(cursor_idx_user_col_num(Cursor({.index = "by_a"}).handle), 1u);
  EXPECT_EQ(cursor_idx_user_col_num(Cursor({.index = "by_b"}).handle), 2u);
}

TEST_F(Handle, ColumnNumbersCountFromOne) {
  Cursor cursor;
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "id"), 1u);
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "c"), 4u);
}

TEST_F(Handle, ColumnNumbersIgnoreLetterCase) {
  Cursor cursor;
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "ID"), 1u);
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "B"), 3u);
}

TEST_F(Handle, UnknownColumnIsZero) {
  Cursor cursor;
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "nothing"), 0u);
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, ""), 0u);
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, nullptr), 0u);
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "DB_TRX_ID"), 0u);
}

/** Check that each function returns its failure result and writes nothing. */
void expect_refusal(uintptr_t handle) {
  const char *name = "untouched";
  uint32_t column = 0;
  EXPECT_EQ(cursor_output_col_num(handle), 0u);
  EXPECT_EQ(cursor_idx_col_num(handle), 0u);
  EXPECT_EQ(cursor_idx_user_col_num(handle), 0u);
  cursor_output_col_names(handle, &name);
  cursor_idx_col_names(handle, &name);
  EXPECT_STREQ(name, "untouched");
  EXPECT_EQ(cursor_col_fieldnr(handle, "id"), 0u);
  EXPECT_FALSE(
      cursor_set_read_range(handle, nullptr, nullptr, true, true, false));
  EXPECT_TRUE(cursor_advance(handle));
  cursor_set_readset(handle, 1, &column);
  long long integer = 77;
  double real = 77;
  char *text = nullptr;
  size_t size = 77;
  bool negative = true;
  int32_t words = 77, fraction = 77, *data = nullptr, date = 77;
  int64_t time = 77;
  EXPECT_TRUE(cursor_read_field_int(handle, 0, &integer));
  EXPECT_TRUE(cursor_read_field_real(handle, 0, &real));
  EXPECT_TRUE(cursor_read_field_str(handle, 0, &text, &size));
  EXPECT_TRUE(cursor_read_field_decimal(handle, 0, &negative, &words, &fraction,
                                        &data));
  EXPECT_TRUE(cursor_read_field_date(handle, 0, &date));
  EXPECT_TRUE(cursor_read_field_time(handle, 0, &time));
  EXPECT_TRUE(cursor_read_field_datetime(handle, 0, &time));
  EXPECT_EQ(integer, 77);
  EXPECT_EQ(real, 77);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(words + fraction + date + time, 4 * 77);
  EXPECT_EQ(data, nullptr);
  close_index_cursor(handle);
}

TEST_F(Handle, NullHandleIsRefusedByEveryFunction) { expect_refusal(0); }

TEST_F(Handle, ClosedHandleIsRefusedByEveryFunction) {
  Cursor cursor;
  const uintptr_t handle = cursor.handle;
  ASSERT_TRUE(cursor.set_range());
  cursor.close();
  expect_refusal(handle);
}

TEST_F(Handle, ClosedHandleStaysClosedWhenOthersOpen) {
  Cursor cursor;
  const uintptr_t handle = cursor.handle;
  cursor.close();
  Cursor other;
  ASSERT_TRUE(other.set_range());
  expect_refusal(handle);
  EXPECT_EQ(other.read_int(0), 1);
}

TEST_F(Handle, BadColumnNumbersHaveNoValue) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  for (const unsigned int column : {4u, 5u, 64u, 4096u, UINT32_MAX}) {
    EXPECT_FALSE(cursor.read_int(column)) << column;
    EXPECT_FALSE(cursor.read_real(column)) << column;
    EXPECT_FALSE(cursor.read_text(column)) << column;
    EXPECT_FALSE(cursor.read_decimal(column)) << column;
    EXPECT_FALSE(cursor.read_date(column)) << column;
    EXPECT_FALSE(cursor.read_time(column)) << column;
    EXPECT_FALSE(cursor.read_datetime(column)) << column;
  }
}

TEST_F(Handle, NoValueLeavesTheOutputsAlone) {
  sql.exec("INSERT INTO t VALUES (0, NULL, NULL, NULL)");
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  for (const unsigned int column : {1u, 99u}) {
    long long integer = 77;
    double real = 77;
    char *text = nullptr;
    size_t size = 77;
    bool negative = true;
    int32_t words = 77, fraction = 77, *data = nullptr, date = 77;
    int64_t time = 77;
    EXPECT_TRUE(cursor_read_field_int(cursor.handle, column, &integer));
    EXPECT_TRUE(cursor_read_field_real(cursor.handle, column, &real));
    EXPECT_TRUE(cursor_read_field_str(cursor.handle, column, &text, &size));
    EXPECT_TRUE(cursor_read_field_decimal(cursor.handle, column, &negative,
                                          &words, &fraction, &data));
    EXPECT_TRUE(cursor_read_field_date(cursor.handle, column, &date));
    EXPECT_TRUE(cursor_read_field_time(cursor.handle, column, &time));
    EXPECT_TRUE(cursor_read_field_datetime(cursor.handle, column, &time));
    EXPECT_EQ(integer + words + fraction + date + time, 5 * 77);
    EXPECT_EQ(real, 77);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(size, 77u);
    EXPECT_TRUE(negative);
    EXPECT_EQ(data, nullptr);
  }
}

// The cursor uses one buffer for all its string reads.
TEST_F(Handle, TwoTextReadsEachGiveTheirOwnValue) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  char *text;
  size_t size;
  ASSERT_FALSE(cursor_read_field_str(cursor.handle, 1, &text, &size));
  EXPECT_EQ(std::string(text, size), "10");
  ASSERT_FALSE(cursor_read_field_str(cursor.handle, 3, &text, &size));
  EXPECT_EQ(std::string(text, size), "5");
}

TEST_F(Handle, ManyColumns) {
  std::string columns, values;
  for (int i = 0; i < 1000; ++i) {
    columns += ", c" + std::to_string(i) + " INT";
    values += ", " + std::to_string(i * 3);
  }
  sql.exec("CREATE TABLE wide (id INT PRIMARY KEY" + columns + ")");
  sql.exec("INSERT INTO wide VALUES (1" + values + ")");
  Cursor cursor({.table = "wide"});
  EXPECT_EQ(cursor_col_fieldnr(cursor.handle, "c999"), 1001u);
  ASSERT_TRUE(cursor.set_range());
  for (unsigned int i = 0; i < 1000; ++i)
    ASSERT_EQ(cursor.read_int(i + 1), i * 3);
}

}  // namespace
