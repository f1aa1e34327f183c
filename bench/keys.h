// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file keys.h
  The keys of the point reads: the same ones for every contender, spread over
  the table without order.
*/

#ifndef MORVENA_SN_BENCH_KEYS_H
#define MORVENA_SN_BENCH_KEYS_H

#include <cstdint>

namespace bench {

/** The n-th key, from 1 to rows: splitmix64 of n. */
inline int64_t nth_key(uint64_t n, uint64_t rows) {
  uint64_t z = (n + 1) * 0x9e3779b97f4a7c15u;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return static_cast<int64_t>((z ^ (z >> 31)) % rows + 1);
}

}  // namespace bench

#endif  // MORVENA_SN_BENCH_KEYS_H
