// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file local_time.h
  UTC to the local time of a session, without asking the server for each value:
  for the system's time zone that is localtime_r(), whose lock all threads of
  the process share.
*/

#ifndef MORVENA_SN_LOCAL_TIME_H
#define MORVENA_SN_LOCAL_TIME_H

#include <cstdint>
#include <memory>

class THD;
class Time_zone;

/**
  The distance of local time from UTC, kept for stretches of time in which it
  does not change. Used by one thread at a time.

  A stretch counts as free of changes when the server gives the same distance
  for its first and its last second. A change in between would have to be taken
  back within the stretch, and so quickly no zone of the tz database, those with
  leap seconds included, goes back to a distance that it has left: that takes
  six days at the least. Zones change at any second (Monrovia in 1972 at
  00:44:30 UTC), so shorter stretches would prove nothing more. Of a stretch
  whose ends differ each value is the server's.
*/
class Local_time {
 public:
  Local_time() = default;
  explicit Local_time(const Time_zone *zone) : zone_(zone) {}

  /** Take a session's time zone, unless there is one. */
  void use_zone_of(const THD *thd) {
    if (zone_ == nullptr) set_zone(thd);
  }

  /** @param utc  seconds since 1970
      @return seconds from 2000-01-01 00:00:00, both local time */
  int64_t seconds(uint32_t utc) {
    if (utc >> stretch_bits != last_stretch_) return find(utc);
    return int64_t{utc} + last_distance_;
  }

 private:
  static constexpr int stretch_bits = 16;  // of seconds: 18 hours
  static constexpr uint32_t n_stretches = 1U << (31 - stretch_bits);
  // Beside distances, which are close to the 30 years before 2000.
  static constexpr int32_t unknown = 0;
  static constexpr int32_t changes = 1;

  void set_zone(const THD *thd);
  int64_t find(uint32_t utc);
  int32_t distance_in(uint32_t stretch) const;
  int64_t by_zone(uint32_t utc) const;

  const Time_zone *zone_ = nullptr;
  uint32_t last_stretch_ = UINT32_MAX;
  int32_t last_distance_ = 0;
  std::unique_ptr<int32_t[]> distances_;  // of each stretch up to 2038
};

#endif  // MORVENA_SN_LOCAL_TIME_H
