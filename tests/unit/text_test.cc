// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "common/text.h"

#include <cstring>
#include <string>

#include "gtest/gtest.h"

namespace {

/** The text after it was copied into a buffer of eight bytes. */
std::string in_eight_bytes(const char *text) {
  char buffer[9];
  memset(buffer, '#', sizeof buffer);
  copy_text(buffer, 8, text);
  EXPECT_EQ(buffer[8], '#') << "written beyond the buffer";
  return buffer;
}

TEST(CopiedText, IsWholeWhereItFits) {
  EXPECT_EQ(in_eight_bytes(""), "");
  EXPECT_EQ(in_eight_bytes("123456"), "123456");
  EXPECT_EQ(in_eight_bytes("1234567"), "1234567");
}

TEST(CopiedText, IsCutWhereItDoesNot) {
  EXPECT_EQ(in_eight_bytes("12345678"), "1234567");
}

// Two, three and four bytes, cut after each of their bytes.
TEST(CopiedText, EndsWithAWholeCharacter) {
  EXPECT_EQ(in_eight_bytes("123456\xc3\xa4"), "123456");
  EXPECT_EQ(in_eight_bytes("12345\xc3\xa4z"), "12345\xc3\xa4");
  EXPECT_EQ(in_eight_bytes("123456\xe2\x82\xac"), "123456");
  EXPECT_EQ(in_eight_bytes("12345\xe2\x82\xac"), "12345");
  EXPECT_EQ(in_eight_bytes("1234\xe2\x82\xacz"), "1234\xe2\x82\xac");
  EXPECT_EQ(in_eight_bytes("123456\xf0\x9f\x98\x80"), "123456");
  EXPECT_EQ(in_eight_bytes("12345\xf0\x9f\x98\x80"), "12345");
  EXPECT_EQ(in_eight_bytes("1234\xf0\x9f\x98\x80"), "1234");
  EXPECT_EQ(in_eight_bytes("123\xf0\x9f\x98\x80z"), "123\xf0\x9f\x98\x80");
}

TEST(CopiedText, IsCutBetweenTwoCharactersOfAnyLength) {
  // Two, three and four bytes a character, after 0 to 3 single ones.
  for (const std::string character : {"\u00e4", "\u20ac", "\U0001f600"}) {
    for (size_t before = 0; before < 4; ++before) {
      std::string text(before, 'x');
      while (text.size() < 600) text += character;
      char cut[512];
      memset(cut, '#', sizeof cut);
      copy_text(cut, sizeof cut, text.c_str());
      const size_t length = strlen(cut);
      EXPECT_EQ((length - before) % character.size(), 0u);
      EXPECT_GT(length + character.size(), 511u);
      EXPECT_EQ(text.compare(0, length, cut), 0);
      // The text was cut inside a character before.
      char again[512];
      copy_text(again, sizeof again, text.substr(0, 511).c_str());
      EXPECT_STREQ(again, cut);
    }
  }
  char short_text[512];
  copy_text(short_text, sizeof short_text, "short");
  EXPECT_STREQ(short_text, "short");
}

// The server may have cut it in the middle of a character.
TEST(CopiedText, ThatFillsTheBufferLosesAHalfCharacter) {
  EXPECT_EQ(in_eight_bytes("123456\xc3"), "123456");
  EXPECT_EQ(in_eight_bytes("12345\xe2\x82"), "12345");
}

// Bytes that begin no character are not a part of one that was cut.
TEST(CopiedText, KeepsBytesThatAreNotUtf8) {
  EXPECT_EQ(in_eight_bytes("\x80\x80\x80\x80\x80\x80\x80\x80"),
            "\x80\x80\x80\x80\x80\x80\x80");
}

}  // namespace
