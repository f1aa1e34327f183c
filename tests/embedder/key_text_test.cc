// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Bounds on columns of text and of bytes, for whole columns and for prefixes.

#include "key_test.h"

namespace {

using namespace harness;

class TextKey : public Key_of {};

TEST_F(TextKey, CaseInsensitiveText) {
  store("VARCHAR(20) COLLATE utf8mb4_0900_ai_ci",
        {"'apple'", "'APPLE'", "'\u00c4pple'", "'banana'", "''"});
  expect_same(Keys().text("Apple"), "'Apple'");
  expect_same(Keys().text("BANANA"), "'BANANA'");
  expect_same(Keys().text(""), "''");
  expect_same(Keys().text("b"), "'b'");
}

TEST_F(TextKey, TextWithPaddedSpaces) {
  store("VARCHAR(20) COLLATE utf8mb4_general_ci",
        {"'a'", "'a '", "'A  '", "'b'"});
  expect_same(Keys().text("a"), "'a'");
  expect_same(Keys().text("a   "), "'a   '");
}

TEST_F(TextKey, CaseSensitiveText) {
  store("VARCHAR(20) COLLATE utf8mb4_bin", {"'A'", "'a'", "'b'", "'\u20ac'"});
  expect_same(Keys().text("A"), "'A'");
  expect_same(Keys().text("\u20ac"), "'\u20ac'");
}

TEST_F(TextKey, Chars) {
  store("CHAR(6) CHARACTER SET latin1",
        {"'abc'", "'abcdef'", "''", "'\u00e9'"});
  expect_same(Keys().text("abc"), "'abc'");
  expect_same(Keys().text("\xe9"), "'\u00e9'");
  expect_same(Keys().text(""), "''");
}

TEST_F(TextKey, TextTooLongIsCut) {
  store("VARCHAR(5)", {"'abcde'", "'abcdf'", "'b'"});
  expect_same(Keys().text("abcdefgh"), "'abcde'");
  expect_same(Keys().text(std::string(100000, 'b')), "'bbbbb'");
}

TEST_F(TextKey, Binaries) {
  store("BINARY(4)", {"X'00000000'", "X'00FF0001'", "'ab'", "X'FFFFFFFF'"});
  expect_same(Keys().text(std::string("\0\xff\0\1", 4)), "X'00FF0001'");
  expect_same(Keys().text(std::string("ab\0\0", 4)), "X'61620000'");
}

TEST_F(TextKey, Varbinaries) {
  store("VARBINARY(300)", {"X''", "X'00'", "X'0000'", "REPEAT(X'FE', 300)"});
  expect_same(Keys().text(""), "X''");
  expect_same(Keys().text(std::string(1, '\0')), "X'00'");
  expect_same(Keys().text(std::string(300, '\xfe')), "REPEAT(X'FE', 300)");
}

TEST_F(TextKey, LongVarchars) {
  store("VARCHAR(3072) CHARACTER SET latin1",
        {"REPEAT('q', 3072)", "REPEAT('q', 3071)", "'q'"});
  expect_same(Keys().text(std::string(3072, 'q')), "REPEAT('q', 3072)");
  expect_same(Keys().text(std::string(3071, 'q')), "REPEAT('q', 3071)");
}

// A key part that holds a prefix compares the prefix only, and the cursor does
// not check the rest of the value.
TEST_F(TextKey, PrefixOfAVarchar) {
  store("VARCHAR(50)", {"'abcd'", "'abce'", "'abd'", "'ab'"}, "c(3)");
  Cursor cursor({.index = "k"});
  const Keys key = Keys().text("abcd");
  EXPECT_EQ(cursor.ints(0, {key, key}), (Ints{1, 2}));
  EXPECT_EQ(cursor.ints(0, {key, {}}), (Ints{1, 2, 3}));
  EXPECT_EQ(cursor.ints(0, {key, {}, false}), (Ints{3}));
  EXPECT_EQ(cursor.texts({1}, {key, key}), (Rows{{"abcd"}, {"abce"}}));
}

TEST_F(TextKey, PrefixOfAText) {
  store("TEXT", {"REPEAT('x', 20000)", "'xyz'", "'y'"}, "c(10)");
  Cursor cursor({.index = "k"});
  EXPECT_EQ(cursor.ints(0, {Keys().text("xyz"), Keys().text("xyz")}),
            (Ints{2}));
  EXPECT_EQ(cursor.ints(0, {Keys().text(std::string(10, 'x')), {}}),
            (Ints{1, 2, 3}));
  EXPECT_EQ(cursor.ints(0, {Keys().text("y"), {}}), (Ints{3}));
}

TEST_F(TextKey, PrefixOfABlob) {
  store("BLOB", {"REPEAT(X'01', 20000)", "X'0102'", "X'02'"}, "c(5)");
  Cursor cursor({.index = "k"});
  EXPECT_EQ(cursor.ints(0, {Keys().text("\x01\x02"), Keys().text("\x01\x02")}),
            (Ints{2}));
  EXPECT_EQ(cursor.ints(0, {Keys().text("\x02"), {}}), (Ints{3}));
}

TEST_F(TextKey, UnicodePrefixCountsCharacters) {
  store("VARCHAR(20) COLLATE utf8mb4_bin",
        {"'\u20ac\u20ac1'", "'\u20ac\u20ac2'", "'\u20ac'"}, "c(2)");
  Cursor cursor({.index = "k"});
  const Keys key = Keys().text("\u20ac\u20ac1");
  EXPECT_EQ(cursor.ints(0, {key, key}), (Ints{1, 2}));
}

}  // namespace
