// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file exact.h
  Integers of 128 bits for exact sums, as text, and decimals as such integers.
*/

#ifndef MORVENA_EXAMPLE_EXACT_H
#define MORVENA_EXAMPLE_EXACT_H

#include <cstdint>
#include <optional>
#include <string>

namespace example {

using Wide = __int128;

/** A number with an absolute value below 10^38, in digits. */
inline std::string number_text(Wide number) {
  std::string digits;
  Wide rest = number < 0 ? -number : number;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + rest % 10));
    rest /= 10;
  } while (rest != 0);
  return (number < 0 ? "-" : "") + digits;
}

/** A count of 10^-9 units as a decimal with nine digits of fraction. */
inline std::string billionths_text(Wide count) {
  std::string digits = number_text(count < 0 ? -count : count);
  if (digits.size() < 10) digits.insert(0, 10 - digits.size(), '0');
  digits.insert(digits.size() - 9, 1, '.');
  return (count < 0 ? "-" : "") + digits;
}

/**
  A decimal, as the reads give it in words of nine digits, in 10^-9 units. None
  for one with more than three words in front of the point or one behind it:
  sums of such do not fit.
*/
inline std::optional<Wide> billionths_of(bool negative, int32_t intg,
                                         int32_t frac, const int32_t *words) {
  if (intg > 3 || frac > 1) return std::nullopt;
  Wide billionths = 0;
  for (int32_t i = 0; i < intg + frac; ++i)
    billionths = billionths * 1000000000 + words[i];
  if (frac == 0) billionths *= 1000000000;
  return negative ? -billionths : billionths;
}

}  // namespace example

#endif  // MORVENA_EXAMPLE_EXACT_H
