// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Checks what Local_time assumes of time zones, with the zones of the machine.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "gtest/gtest.h"

namespace {

/** A compiled zone file; see tzfile(5). Its second part has times of eight
    bytes. */
class Zone_file {
 public:
  explicit Zone_file(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (bytes_.compare(0, 4, "TZif") != 0 || bytes_[4] < '2') return;
    read_counts();
    at_ += n_times_ * 5 + n_types_ * 6 + n_letters_ + n_leaps_ * 8 + n_flags_;
    read_counts();
    is_valid_ = true;
    const size_t types = at_ + n_times_ * 9;
    const size_t leaps = types + n_types_ * 6 + n_letters_;
    int64_t distance = number(types, 4);
    for (size_t i = 0; i < n_times_; ++i) {
      const auto type =
          static_cast<unsigned char>(bytes_[at_ + n_times_ * 8 + i]);
      const int64_t next = number(types + type * size_t{6}, 4);
      if (next != distance) changes_[number(at_ + i * 8, 8)] += next - distance;
      distance = next;
    }
    int64_t corrected = 0;
    for (size_t i = 0; i < n_leaps_; ++i) {
      const int64_t correction = number(leaps + i * 12 + 8, 4);
      changes_[number(leaps + i * 12, 8)] += corrected - correction;
      corrected = correction;
    }
  }

  bool is_valid() const { return is_valid_; }
  /** The changes of the distance from UTC, by the second when they begin. */
  const std::map<int64_t, int64_t> &changes() const { return changes_; }

 private:
  int64_t number(size_t at, int n_bytes) const {
    int64_t value = static_cast<signed char>(bytes_.at(at));
    for (int i = 1; i < n_bytes; ++i)
      value = value * 256 + static_cast<unsigned char>(
                                bytes_.at(at + static_cast<size_t>(i)));
    return value;
  }

  size_t count(int i) const {
    return static_cast<size_t>(
        number(at_ + 20 + static_cast<size_t>(i) * 4, 4));
  }

  void read_counts() {
    n_flags_ = count(0) + count(1);
    n_leaps_ = count(2);
    n_times_ = count(3);
    n_types_ = count(4);
    n_letters_ = count(5);
    at_ += 44;
  }

  std::string bytes_;
  bool is_valid_ = false;
  size_t at_ = 0, n_flags_ = 0, n_leaps_ = 0, n_times_ = 0, n_types_ = 0,
         n_letters_ = 0;
  std::map<int64_t, int64_t> changes_;
};

// When a zone changes its distance from UTC, the earlier distance does not come
// back within six days. So if it is equal at both ends of eighteen hours, it is
// the same throughout.
TEST(TimeZones, DoNotReturnToADistanceWithinDays) {
  const std::filesystem::path folder = "/usr/share/zoneinfo";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no zones here";
  size_t n_changes = 0;
  for (const auto &entry :
       std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const Zone_file zone(entry.path());
    if (!zone.is_valid()) continue;
    const auto &changes = zone.changes();
    for (auto left = changes.lower_bound(0); left != changes.end(); ++left) {
      ++n_changes;
      int64_t moved = left->second;
      for (auto next = std::next(left); next != changes.end() && moved != 0;
           ++next) {
        moved += next->second;
        if (moved != 0) continue;
        EXPECT_GT(next->first - left->first, 6 * 86400)
            << entry.path() << " at " << left->first;
      }
    }
  }
  EXPECT_GT(n_changes, 1000u);
}

}  // namespace
