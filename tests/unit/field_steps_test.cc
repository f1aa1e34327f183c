// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The cases write their records byte by byte.

#include "innodb_api/field_steps.h"

#include <string>
#include <vector>

#include "gtest/gtest.h"

namespace {

constexpr Field_steps::Step fixed(uint16_t bytes, int32_t slot) {
  return {bytes, false, false, slot};
}
constexpr Field_steps::Step varying(int32_t slot) {
  return {0, false, false, slot};
}
constexpr Field_steps::Step long_varying(int32_t slot) {
  return {0, false, true, slot};
}
constexpr Field_steps::Step nullable(Field_steps::Step step) {
  step.is_nullable = true;
  return step;
}

/** Reads a record that has these fields. */
class Record {
 public:
  Record(const std::vector<Field_steps::Step> &steps, size_t n_wanted)
      : fields_(n_wanted, {nullptr, 99}) {
    for (const auto &step : steps) steps_.add(step);
    steps_.end();
  }
  Field_steps &steps() { return steps_; }

  /** @param nulls_and_lengths  as they lie, from the lowest address
      @return whether the wanted fields could be located */
  bool locate(const std::string &nulls_and_lengths, const std::string &data) {
    bytes_ = nulls_and_lengths + data;
    const auto *from = reinterpret_cast<const byte *>(bytes_.data());
    const byte *fields = from + nulls_and_lengths.size();
    return steps_.locate(fields - 1, fields, fields_.data());
  }
  std::string field(size_t i) const {
    if (fields_[i].data == nullptr) return "NULL";
    return {reinterpret_cast<const char *>(fields_[i].data), fields_[i].bytes};
  }

 private:
  Field_steps steps_;
  std::string bytes_;
  std::vector<Located_field> fields_;
};

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text.push_back(static_cast<char>(value));
  return text;
}

TEST(FieldSteps, FixedFieldsLieOneAfterAnother) {
  Record record({fixed(2, 0), fixed(3, -1), fixed(1, 1)}, 2);
  ASSERT_TRUE(record.locate("", "aabbbc"));
  EXPECT_EQ(record.field(0), "aa");
  EXPECT_EQ(record.field(1), "c");
}

TEST(FieldSteps, SlotsMayComeInAnyOrder) {
  Record record({fixed(1, 2), fixed(1, 0), fixed(1, 1)}, 3);
  ASSERT_TRUE(record.locate("", "abc"));
  EXPECT_EQ(record.field(0) + record.field(1) + record.field(2), "bca");
}

TEST(FieldSteps, LengthsLieBackwards) {
  Record record({varying(0), varying(1), varying(2)}, 3);
  ASSERT_TRUE(record.locate(bytes({3, 0, 2}), "aaccc"));
  EXPECT_EQ(record.field(0), "aa");
  EXPECT_EQ(record.field(1), "");
  EXPECT_EQ(record.field(2), "ccc");
}

TEST(FieldSteps, NullFieldHasNoLengthAndNoBytes) {
  Record record({nullable(varying(0)), nullable(fixed(2, 1)), varying(2)}, 3);
  ASSERT_TRUE(record.locate(bytes({1, 0b11}), "c"));
  EXPECT_EQ(record.field(0), "NULL");
  EXPECT_EQ(record.field(1), "NULL");
  EXPECT_EQ(record.field(2), "c");
  ASSERT_TRUE(record.locate(bytes({1, 2, 0b10}), "aac"));
  EXPECT_EQ(record.field(0), "aa");
  EXPECT_EQ(record.field(1), "NULL");
  EXPECT_EQ(record.field(2), "c");
}

// The ninth nullable field has its bit in a second byte, which lies before.
TEST(FieldSteps, NullBitsFillSeveralBytes) {
  std::vector<Field_steps::Step> steps;
  for (int i = 0; i < 9; ++i) steps.push_back(nullable(fixed(1, i)));
  Record record(steps, 9);
  ASSERT_TRUE(record.locate(bytes({0b1, 0b10000000}), "abcdefg"));
  EXPECT_EQ(record.field(6), "g");
  EXPECT_EQ(record.field(7), "NULL");
  EXPECT_EQ(record.field(8), "NULL");
}

// Lengths lie before all null bits, also before those of fields not wanted.
TEST(FieldSteps, NullBitsOfUnwantedFieldsCount) {
  std::vector<Field_steps::Step> steps{varying(0)};
  for (int i = 0; i < 9; ++i) steps.push_back(nullable(fixed(1, -1)));
  Record record(steps, 1);
  ASSERT_TRUE(record.locate(bytes({2, 0, 0}), "aabbbbbbbbb"));
  EXPECT_EQ(record.field(0), "aa");
}

TEST(FieldSteps, LongLengthTakesASecondByteFrom128On) {
  Record record({long_varying(0), fixed(1, 1)}, 2);
  ASSERT_TRUE(record.locate(bytes({127}), std::string(127, 'a') + "b"));
  EXPECT_EQ(record.field(0), std::string(127, 'a'));
  ASSERT_TRUE(record.locate(bytes({128, 0x80}), std::string(128, 'a') + "b"));
  EXPECT_EQ(record.field(0), std::string(128, 'a'));
  ASSERT_TRUE(
      record.locate(bytes({300 - 256, 0x81}), std::string(300, 'a') + "b"));
  EXPECT_EQ(record.field(0), std::string(300, 'a'));
  EXPECT_EQ(record.field(1), "b");
}

TEST(FieldSteps, ShortLengthHasAllEightBits) {
  Record record({varying(0), fixed(1, 1)}, 2);
  ASSERT_TRUE(record.locate(bytes({200}), std::string(200, 'a') + "b"));
  EXPECT_EQ(record.field(0), std::string(200, 'a'));
  EXPECT_EQ(record.field(1), "b");
}

TEST(FieldSteps, WantedFieldOffThePageIsRefused) {
  Record record({long_varying(0), fixed(1, 1)}, 2);
  EXPECT_FALSE(record.locate(bytes({20, 0xC0}), std::string(20, 'r') + "b"));
}

// The page holds only a reference of twenty bytes, which is skipped.
TEST(FieldSteps, UnwantedFieldOffThePageIsSkipped) {
  Record record({long_varying(-1), fixed(1, 0)}, 1);
  ASSERT_TRUE(record.locate(bytes({20, 0xC0}), std::string(20, 'r') + "b"));
  EXPECT_EQ(record.field(0), "b");
}

TEST(FieldSteps, MissingFieldHasItsDefault) {
  static const byte value[] = {'d', 'd'};
  Record record({fixed(1, 0)}, 3);
  record.steps().add_missing(1, {value, 2});
  record.steps().add_missing(2, {nullptr, 0});
  ASSERT_TRUE(record.locate("", "a"));
  EXPECT_EQ(record.field(0), "a");
  EXPECT_EQ(record.field(1), "dd");
  EXPECT_EQ(record.field(2), "NULL");
}

}  // namespace
