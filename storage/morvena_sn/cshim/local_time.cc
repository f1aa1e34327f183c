// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// local_time: the server's time zones, asked twice for each stretch of time.
// In: seconds in UTC. Out: seconds in local time. Threads: the owner's.
// Fails: never; without memory the server is asked for each value.

#include "local_time.h"

#include <new>

#include "host.h"
#include "temporal.h"

#include "sql/tztime.h"

void Local_time::set_zone(const THD *thd) { zone_ = thd->variables.time_zone; }

int64_t Local_time::by_zone(uint32_t utc) const {
  MYSQL_TIME local;
  zone_->gmt_sec_to_TIME(&local, static_cast<my_time_t>(utc));
  const int64_t days = days_since_epoch(static_cast<int32_t>(local.year),
                                        static_cast<int32_t>(local.month),
                                        static_cast<int32_t>(local.day));
  return (days * USECS_PER_DAY +
          mysql_time2time(local.hour, local.minute, local.second, 0, false)) /
         USECS_PER_SEC;
}

int32_t Local_time::distance_in(uint32_t stretch) const {
  const uint32_t first = stretch << stretch_bits;
  const uint32_t last = first + (1U << stretch_bits) - 1;
  const int64_t at_first = by_zone(first) - first;
  const int64_t at_last = by_zone(last) - last;
  return at_first == at_last ? static_cast<int32_t>(at_first) : changes;
}

int64_t Local_time::find(uint32_t utc) {
  const uint32_t stretch = utc >> stretch_bits;
  if (stretch >= n_stretches) return by_zone(utc);
  if (distances_ == nullptr) {
    distances_.reset(new (std::nothrow) int32_t[n_stretches]());
    if (distances_ == nullptr) return by_zone(utc);
  }
  int32_t &distance = distances_[stretch];
  if (distance == unknown) distance = distance_in(stretch);
  if (distance == changes) return by_zone(utc);
  last_stretch_ = stretch;
  last_distance_ = distance;
  return int64_t{utc} + distance;
}
