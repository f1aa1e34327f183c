// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Values of numbers, of text and of other types that have neither a date nor a
// time.

#include <cmath>

#include "value_test.h"

namespace {

using namespace harness;

class Value : public Value_test {
 protected:
  static std::vector<int32_t> words(const Decimal &value) {
    std::vector<int32_t> words;
    for (int32_t i = 0; i < value.integer_words() + value.fraction_words(); ++i)
      words.push_back(value.word(i));
    return words;
  }
};

TEST_F(Value, Tinyint) { check("TINYINT", {"-128", "127", "0", "-1"}); }

TEST_F(Value, TinyintUnsigned) {
  check("TINYINT UNSIGNED", {"0", "255", "128"});
}

TEST_F(Value, Smallint) { check("SMALLINT", {"-32768", "32767", "0"}); }

TEST_F(Value, SmallintUnsigned) { check("SMALLINT UNSIGNED", {"0", "65535"}); }

TEST_F(Value, Mediumint) { check("MEDIUMINT", {"-8388608", "8388607", "0"}); }

TEST_F(Value, MediumintUnsigned) {
  check("MEDIUMINT UNSIGNED", {"0", "16777215"});
}

TEST_F(Value, Int) { check("INT", {"-2147483648", "2147483647", "0"}); }

TEST_F(Value, IntUnsigned) { check("INT UNSIGNED", {"0", "4294967295"}); }

TEST_F(Value, IntZerofill) {
  check("INT(10) ZEROFILL", {"0", "42", "4294967295"});
}

TEST_F(Value, Bigint) {
  check("BIGINT", {"-9223372036854775808", "9223372036854775807", "0", "-1"});
}

// From 2^63 on, the integer read gives the negative number with the same bits.
TEST_F(Value, BigintUnsigned) {
  check("BIGINT UNSIGNED", {"0", "9223372036854775807", "9223372036854775808",
                            "18446744073709551615"});
  Cursor cursor;
  EXPECT_EQ(cursor.ints(1, {Keys().number(3), Keys().number(4)}),
            (std::vector<long long>{INT64_MIN, -1}));
}

TEST_F(Value, DecimalOfAllDigits) {
  const std::string digits = std::string(35, '9') + "." + std::string(30, '9');
  Expected expected;
  // For values outside the range of integers, a cast in SQL only gives an
  // error. The read gives the nearest integer.
  expected.integer =
      "IF(c > 9.3e18, 9223372036854775807,"
      " IF(c < -9.3e18, -9223372036854775808,"
      " CAST(c AS SIGNED)))";
  check(
      "DECIMAL(65,30)",
      {digits, "-" + digits, "0", "0.5", "-0.5", "1.5", "-1.49",
       "0.000000000000000000000000000001", "-0.000000000000000000000000000001"},
      expected);
}

TEST_F(Value, DecimalWithoutFraction) {
  Expected expected;
  expected.integer = "IF(c > 0, 9223372036854775807, -9223372036854775808)";
  expected.decimal = "c";
  const std::string digits(65, '9');
  check("DECIMAL(65,0)", {digits, "-" + digits}, expected);
}

// Each word holds nine digits. The last word of the fraction is filled up with
// zeros on its right.
TEST_F(Value, DecimalWords) {
  store("DECIMAL(12,3) NOT NULL", {"-12345.678"});
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  const Decimal value = cursor.read_decimal(1).value();
  EXPECT_TRUE(value.is_negative());
  EXPECT_EQ(value.integer_words(), 1);
  EXPECT_EQ(words(value), (std::vector<int32_t>{12345, 678000000}));
}

TEST_F(Value, DecimalWordsBeyondOne) {
  store("DECIMAL(30,10) NOT NULL", {"12345678901234567890.1234567891"});
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  const Decimal value = cursor.read_decimal(1).value();
  EXPECT_FALSE(value.is_negative());
  EXPECT_EQ(value.integer_words(), 3);
  EXPECT_EQ(words(value), (std::vector<int32_t>{12, 345678901, 234567890,
                                                123456789, 100000000}));
}

TEST_F(Value, DecimalHalfIsAWordFilledFromTheLeft) {
  store("DECIMAL(5,1) NOT NULL", {"0.5"});
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  const Decimal value = cursor.read_decimal(1).value();
  EXPECT_EQ(value.fraction_words(), 1);
  EXPECT_EQ(words(value).back(), 500000000);
}

TEST_F(Value, Float) {
  check("FLOAT", {"0", "0.5", "-0.25", "16777216", "1.5", "2.5", "-2.5"});
}

// The server decides which integer such a value becomes.
TEST_F(Value, FloatExtremes) {
  store("FLOAT NOT NULL", {"3.4028234e38", "-3.4028234e38", "1.17549435e-38"});
  const auto integers =
      as_ints(sql.query("SELECT CAST(c AS SIGNED) FROM t ORDER BY id"));
  Cursor cursor;
  EXPECT_EQ(cursor.ints(1), integers);
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_real(1), static_cast<double>(3.40282347e38f));
  ASSERT_TRUE(cursor.next() && cursor.next());
  EXPECT_EQ(cursor.read_real(1), static_cast<double>(-3.40282347e38f));
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.read_real(1), static_cast<double>(1.17549435e-38f));
}

TEST_F(Value, Double) {
  check("DOUBLE", {"0e0", "-0e0", "0.5e0", "1.5e0", "2.5e0", "-123456.789e0",
                   "9007199254740993e0"});
}

TEST_F(Value, DoubleExtremes) {
  store("DOUBLE", {"1.7976931348623157e308", "-1.7976931348623157e308",
                   "2.2250738585072014e-308"});
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_real(1), 1.7976931348623157e308);
  EXPECT_EQ(cursor.read_int(1), INT64_MAX);
  EXPECT_EQ(cursor.read_text(1), "1.7976931348623157e308");
  ASSERT_TRUE(cursor.next() && cursor.next());
  EXPECT_EQ(cursor.read_real(1), -1.7976931348623157e308);
  EXPECT_EQ(cursor.read_int(1), INT64_MIN);
  ASSERT_TRUE(cursor.next());
  EXPECT_EQ(cursor.read_real(1), 2.2250738585072014e-308);
  EXPECT_EQ(cursor.read_date(1), no_date);
}

TEST_F(Value, BitOfEachWidth) {
  for (int width = 1; width <= 64; ++width) {
    SCOPED_TRACE(width);
    const std::string ones(static_cast<size_t>(width), '1');
    check("BIT(" + std::to_string(width) + ")",
          {"b'0'", "b'1'", "b'" + ones + "'"});
    if (HasFailure()) return;
    sql.exec("DROP TABLE t");
  }
}

TEST_F(Value, BitInTheMiddleOfARow) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, c BIT(13), d BIT(3), e INT)");
  sql.exec("INSERT INTO t VALUES (1, b'1010101010101', b'101', 7)");
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_int(1), 0b1010101010101);
  EXPECT_EQ(cursor.read_int(2), 5);
  EXPECT_EQ(cursor.read_int(3), 7);
}

TEST_F(Value, Char) {
  check("CHAR(20)",
        {"''", "'a'", "'  b'", "'12.9'", "'-7 x'", "'1234567890123456789'"});
}

TEST_F(Value, CharFillsItsWidth) { check("CHAR(255)", {"REPEAT('x', 255)"}); }

TEST_F(Value, CharKeepsTheColumnsCharacterSet) {
  check("CHAR(10) CHARACTER SET latin1", {"'\u00e9t\u00e9'"});
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  EXPECT_EQ(cursor.read_text(1), "\xe9t\xe9");
}

TEST_F(Value, VarcharOfFourByteCharacters) {
  check("VARCHAR(10) CHARACTER SET utf8mb4", {"'\U0001f600\U0001f601'"});
}

TEST_F(Value, VarcharOfTwoByteCharacters) {
  Expected expected;
  expected.real = "0e0";
  expected.integer = "0";
  expected.decimal = "0";
  check("VARCHAR(10) CHARACTER SET ucs2", {"'ab'", "'\u20ac'"}, expected);
}

TEST_F(Value, VarcharWithTwoLengthBytes) {
  check("VARCHAR(16000) CHARACTER SET latin1",
        {"''", "REPEAT('y', 255)", "REPEAT('y', 256)", "REPEAT('z', 16000)"},
        [] {
          Expected expected;
          expected.integer = expected.real = expected.decimal = "0";
          return expected;
        }());
}

TEST_F(Value, Binary) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("BINARY(5)", {"X'00FF00'", "''", "X'0102030405'"}, expected);
}

TEST_F(Value, Varbinary) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("VARBINARY(300)", {"X'00'", "''", "REPEAT(X'FF', 300)"}, expected);
}

TEST_F(Value, VarbinaryOfDigits) {
  check("VARBINARY(30)", {"'123'", "'-4.5'"});
}

TEST_F(Value, Tinytext) {
  check("TINYTEXT", {"''", "'17'", "REPEAT(' ', 255)"});
}

TEST_F(Value, TextOffThePage) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("TEXT", {"''", "'x'", "REPEAT('abcdefg', 9000)"}, expected);
}

TEST_F(Value, MediumtextOffThePage) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("MEDIUMTEXT", {"'x'", "REPEAT('abcdefg', 200000)"}, expected);
}

TEST_F(Value, LongtextOffThePage) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("LONGTEXT", {"'x'", "REPEAT('abcdefg', 500000)", "'y'"}, expected);
}

TEST_F(Value, Tinyblob) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("TINYBLOB", {"''", "REPEAT(X'00', 255)"}, expected);
}

TEST_F(Value, BlobOffThePage) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("BLOB", {"''", "REPEAT(X'FE', 65535)"}, expected);
}

TEST_F(Value, MediumblobOffThePage) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("MEDIUMBLOB", {"REPEAT(X'00FF', 300000)"}, expected);
}

TEST_F(Value, LongblobOffThePage) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("LONGBLOB", {"REPEAT(X'0102', 1500000)", "X'03'"}, expected);
}

// There are more members than one byte can number.
TEST_F(Value, EnumPast255) {
  std::string members;
  for (int i = 1; i <= 300; ++i)
    members += (i > 1 ? ",'m" : "'m") + std::to_string(i) + "'";
  check("ENUM(" + members + ")", {"'m1'", "'m255'", "'m256'", "'m300'"});
}

TEST_F(Value, EnumOfAnInvalidWord) {
  sql.exec("SET sql_mode = ''");
  check("ENUM('a','b')", {"'a'", "'nothing'", "'b'"});
}

TEST_F(Value, SetOf64Members) {
  std::string members;
  for (int i = 1; i <= 64; ++i)
    members += (i > 1 ? ",'m" : "'m") + std::to_string(i) + "'";
  check("SET(" + members + ")",
        {"''", "'m1'", "'m1,m9'", "1 << 63", "0xFFFFFFFFFFFFFFFF + 0"});
}

TEST_F(Value, Json) {
  Expected expected;
  expected.integer = "IF(JSON_TYPE(c) IN ('INTEGER'), CAST(c AS SIGNED), 0)";
  expected.real = "IF(JSON_TYPE(c) IN ('INTEGER'), c + 0e0, 0)";
  expected.decimal = "IF(JSON_TYPE(c) IN ('INTEGER'), c + 0, 0)";
  check("JSON",
        {"'5'", "'-17'", "'{\"b\": [1, true, null], \"a\": \"x\"}'", "'[]'",
         "CONCAT('[\"', REPEAT('z', 100000), '\"]')"},
        expected);
}

TEST_F(Value, Geometry) {
  Expected expected;
  expected.integer = expected.real = expected.decimal = "0";
  check("GEOMETRY",
        {"ST_GeomFromText('POINT(1 2)', 4326)",
         "ST_GeomFromText('LINESTRING(0 0, 1 1, 2 2)')"},
        expected);
}

TEST_F(Value, Year) { check("YEAR", {"1901", "2155", "2026", "0"}); }

TEST_F(Value, NotNullColumnsHaveValues) { check("INT NOT NULL", {"0", "1"}); }

}  // namespace
