// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The cases write the values of their rows byte by byte.

#include "row_column.h"

#include <algorithm>
#include <vector>

#include "gtest/gtest.h"

namespace {

/** A column whose value lies three bytes into a row. */
Row_column column_of(Column_form form, uint8_t bytes, uint8_t precision = 0) {
  Row_column column;
  column.form_ = form;
  column.offset_ = 3;
  column.bytes_ = bytes;
  column.precision_ = precision;
  return column;
}

/** A row with this value. */
std::vector<uchar> row_with(const std::vector<uchar> &value) {
  std::vector<uchar> row(3 + value.size() + 8, 0xAA);
  std::copy(value.begin(), value.end(), row.begin() + 3);
  return row;
}

longlong integer(Column_form form, const std::vector<uchar> &value) {
  const auto bytes = static_cast<uint8_t>(value.size());
  return column_of(form, bytes).integer(row_with(value).data());
}

struct Decimal {
  bool negative;
  int32_t intg, frac;
  std::vector<int32_t> words;
  bool operator==(const Decimal &other) const {
    return negative == other.negative && intg == other.intg &&
           frac == other.frac && words == other.words;
  }
};

/** The value of a decimal column with this many digits and fraction digits. */
Decimal decimal(uint8_t precision, uint8_t fraction,
                const std::vector<uchar> &value) {
  int32_t words[9];
  Decimal result{};
  const Row_column column =
      column_of(Column_form::DECIMAL, fraction, precision);
  EXPECT_TRUE(column.decimal(row_with(value).data(), words, &result.negative,
                             &result.intg, &result.frac));
  result.words.assign(words, words + result.intg + result.frac);
  return result;
}

TEST(RowColumn, IntegersLieLeastSignificantByteFirst) {
  EXPECT_EQ(integer(Column_form::SIGNED, {0x7F}), 127);
  EXPECT_EQ(integer(Column_form::SIGNED, {0x01, 0x02}), 0x201);
  EXPECT_EQ(integer(Column_form::SIGNED, {0x01, 0x02, 0x03}), 0x30201);
  EXPECT_EQ(integer(Column_form::SIGNED, {1, 2, 3, 4}), 0x4030201);
  EXPECT_EQ(integer(Column_form::SIGNED, {1, 2, 3, 4, 5, 6, 7, 8}),
            0x807060504030201);
}

TEST(RowColumn, SignedIntegersKeepTheirSign) {
  for (const size_t bytes : {1, 2, 3, 4, 8}) {
    EXPECT_EQ(integer(Column_form::SIGNED, std::vector<uchar>(bytes, 0xFF)), -1)
        << bytes;
  }
}

TEST(RowColumn, UnsignedIntegersHaveNone) {
  EXPECT_EQ(integer(Column_form::UNSIGNED, {0xFF}), 255);
  EXPECT_EQ(integer(Column_form::UNSIGNED, {0xFF, 0xFF}), 65535);
  EXPECT_EQ(integer(Column_form::UNSIGNED, {0xFF, 0xFF, 0xFF}), 16777215);
  EXPECT_EQ(integer(Column_form::UNSIGNED, {0xFF, 0xFF, 0xFF, 0xFF}),
            4294967295);
}

TEST(RowColumn, NullIsOneBitOfTheRow) {
  Row_column column = column_of(Column_form::SIGNED, 1);
  column.null_byte_ = 1;
  column.null_bit_ = 0x04;
  const uchar null_row[] = {0, 0x04, 0, 5};
  const uchar other_row[] = {0x04, 0xFB, 0x04, 5};
  EXPECT_TRUE(column.is_null(null_row));
  EXPECT_FALSE(column.is_null(other_row));
  column.null_bit_ = 0;
  EXPECT_FALSE(column.is_null(null_row));
}

TEST(RowColumn, TextComesAfterItsLength) {
  const auto short_row = row_with({3, 'a', 'b', 'c', 'd'});
  const auto long_row = row_with({2, 0, 'a', 'b', 'c'});
  char *text;
  size_t bytes;
  column_of(Column_form::VARCHAR, 1).text(short_row.data(), &text, &bytes);
  EXPECT_EQ(std::string(text, bytes), "abc");
  column_of(Column_form::VARCHAR, 2).text(long_row.data(), &text, &bytes);
  EXPECT_EQ(std::string(text, bytes), "ab");
}

// year * 512 + month * 32 + day
TEST(RowColumn, DateIsInThreeBytes) {
  const auto date = [](int packed) {
    const auto row =
        row_with({static_cast<uchar>(packed), static_cast<uchar>(packed >> 8),
                  static_cast<uchar>(packed >> 16)});
    return column_of(Column_form::DATE, 0).date(row.data());
  };
  EXPECT_EQ(date(2000 * 512 + 1 * 32 + 1), 0);
  EXPECT_EQ(date(1999 * 512 + 12 * 32 + 31), -1);
  EXPECT_EQ(date(2024 * 512 + 2 * 32 + 29), 8825);
  EXPECT_EQ(date(0), -730517);
}

// (year * 13 + month) * 32 + day, 17 bits of time, above 2^39.
TEST(RowColumn, DatetimeIsInFiveBytesAndAFraction) {
  const int64_t packed = 0x8000000000 +
                         (((int64_t{2000} * 13 + 1) * 32 + 2) << 17) +
                         (3 << 12) + (4 << 6) + 5;
  std::vector<uchar> value;
  for (int shift = 32; shift >= 0; shift -= 8)
    value.push_back(static_cast<uchar>(packed >> shift));
  const int64_t seconds = 86400 + 3 * 3600 + 4 * 60 + 5;
  const auto datetime = [&](uint8_t digits, std::vector<uchar> fraction) {
    auto bytes = value;
    bytes.insert(bytes.end(), fraction.begin(), fraction.end());
    return column_of(Column_form::DATETIME, digits)
        .datetime(row_with(bytes).data());
  };
  EXPECT_EQ(datetime(0, {}), seconds * USECS_PER_SEC);
  EXPECT_EQ(datetime(1, {90}), seconds * USECS_PER_SEC + 900000);
  EXPECT_EQ(datetime(2, {98}), seconds * USECS_PER_SEC + 980000);
  EXPECT_EQ(datetime(4, {0x26, 0x94}), seconds * USECS_PER_SEC + 987600);
  EXPECT_EQ(datetime(6, {0x0F, 0x12, 0x06}), seconds * USECS_PER_SEC + 987654);
}

TEST(RowColumn, DecimalHasNineDigitsAWord) {
  // 12.34
  EXPECT_EQ(decimal(4, 2, {0x80 | 12, 34}),
            (Decimal{false, 1, 1, {12, 340000000}}));
  // 1234567890.1234567891
  EXPECT_EQ(
      decimal(20, 10,
              {0x80 | 1, 0x0D, 0xFB, 0x38, 0xD2, 0x07, 0x5B, 0xCD, 0x15, 1}),
      (Decimal{false, 2, 2, {1, 234567890, 123456789, 100000000}}));
}

TEST(RowColumn, NegativeDecimalHasItsBitsInverted) {
  EXPECT_EQ(decimal(4, 2, {0x7F ^ 12, 0xFF ^ 34}),
            (Decimal{true, 1, 1, {12, 340000000}}));
}

TEST(RowColumn, DecimalHasNoWordsOfZeroInFront) {
  EXPECT_EQ(decimal(12, 0, {0x80, 0, 0, 0, 0, 7}), (Decimal{false, 1, 0, {7}}));
  EXPECT_EQ(decimal(4, 2, {0x80, 5}), (Decimal{false, 0, 1, {50000000}}));
}

TEST(RowColumn, ZeroOfADecimalHasOneWordAndNoSign) {
  EXPECT_EQ(decimal(5, 0, {0x80, 0, 0}), (Decimal{false, 1, 0, {0}}));
  EXPECT_EQ(decimal(5, 0, {0x7F, 0xFF, 0xFF}), (Decimal{false, 1, 0, {0}}));
}

TEST(RowColumn, DecimalOfMoreThanNineDigitsAWordIsNone) {
  int32_t words[9], intg, frac;
  bool negative;
  const auto row = row_with({0x80 | 0x3B, 0x9A, 0xCA, 0x00});  // 10^9
  EXPECT_FALSE(column_of(Column_form::DECIMAL, 0, 9)
                   .decimal(row.data(), words, &negative, &intg, &frac));
}

}  // namespace
