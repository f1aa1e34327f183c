// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Texts, cut between two characters.

#include "common/text.h"

#include <cstring>

namespace {

constexpr size_t longest_character = 4;  // bytes, in UTF-8

bool continues_character(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

// How many bytes a character of UTF-8 has, by its first one; 1 for a byte that
// begins none.
size_t character_bytes(char first) {
  const auto byte = static_cast<unsigned char>(first);
  if (byte >= 0xf0) return 4;
  if (byte >= 0xe0) return 3;
  return byte >= 0xc0 ? 2 : 1;
}

// The length without a last character of which bytes are missing.
size_t whole_characters(const char *text, size_t length) {
  size_t last = length;
  while (last > 0 && length - last < longest_character) {
    --last;
    if (continues_character(text[last])) continue;
    return last + character_bytes(text[last]) > length ? last : length;
  }
  return length;
}

}  // namespace

void copy_text(char *to, size_t bytes, const char *text) {
  size_t length = strnlen(text, bytes - 1);
  if (length == bytes - 1) length = whole_characters(text, length);
  memcpy(to, text, length);
  to[length] = '\0';
}
