// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file tally.h
  What a run counts, and the table that it prints at the end.
*/

#ifndef MORVENA_SN_TESTS_SOAK_TALLY_H
#define MORVENA_SN_TESTS_SOAK_TALLY_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace soak {

/** How one read ended. */
enum class Outcome { COMPLETE, STOPPED, KILLED, REFUSED, UNCHECKED };

class Tally {
 public:
  /** Count a read of a kind, with its rows. UNCHECKED: there was no donor to
      compare it with. */
  void count_read(const std::string &kind, Outcome outcome, uint64_t rows);
  /** Count another event. */
  void count(const std::string &group, const std::string &what);
  /** Report, in words, a result that differs from the donor's. */
  void report_difference(const std::string &text);
  size_t differences() const;
  /** The whole table. */
  std::string table() const;

 private:
  struct Reads {
    uint64_t by_outcome[5] = {};
    uint64_t rows = 0;
  };
  std::string reads_table() const;

  mutable std::mutex mu_;
  std::map<std::string, Reads> reads_;  // this and the following: under mu_
  std::map<std::string, std::map<std::string, uint64_t>> events_;
  std::vector<std::string> differences_;
};

}  // namespace soak

#endif  // MORVENA_SN_TESTS_SOAK_TALLY_H
