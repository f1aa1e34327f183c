// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "local_time.h"

#include <cstdint>
#include <ctime>

#include "gtest/gtest.h"
#include "host.h"

#include "sql/tztime.h"

namespace {

// 1970-01-01 to 2000-01-01: 30 years with 7 leap days.
constexpr int64_t epochs_apart = (30 * 365 + 7) * int64_t{86400};

/** A zone whose distance from UTC changes once. */
class Changing_zone final : public Time_zone {
 public:
  Changing_zone(int64_t change, int before, int after)
      : change_(change), before_(before), after_(after) {}

  int64_t expected(uint32_t utc) const {
    return utc + (utc < change_ ? before_ : after_) - epochs_apart;
  }
  int asked() const { return asked_; }

  void gmt_sec_to_TIME(MYSQL_TIME *local, my_time_t utc) const override {
    ++asked_;
    const time_t seconds = utc + (utc < change_ ? before_ : after_);
    tm parts;
    gmtime_r(&seconds, &parts);
    *local = MYSQL_TIME{};
    local->year = static_cast<unsigned>(parts.tm_year + 1900);
    local->month = static_cast<unsigned>(parts.tm_mon + 1);
    local->day = static_cast<unsigned>(parts.tm_mday);
    local->hour = static_cast<unsigned>(parts.tm_hour);
    local->minute = static_cast<unsigned>(parts.tm_min);
    local->second = static_cast<unsigned>(parts.tm_sec);
  }
  using Time_zone::gmt_sec_to_TIME;
  my_time_t TIME_to_gmt_sec(const MYSQL_TIME *, bool *) const override {
    return 0;
  }
  const String *get_name() const override { return nullptr; }
  tz_type get_timezone_type() const override { return TZ_DB; }
  long get_timezone_offset() const override { return 0; }

 private:
  const int64_t change_;
  const int before_, after_;  // seconds
  mutable int asked_ = 0;
};

constexpr uint32_t one_stretch = 65536;  // seconds

TEST(LocalTime, IsTheZonesBeforeAndAfterAChange) {
  constexpr uint32_t change = 71 * one_stretch + 12345;
  const Changing_zone zone(change, 3600, 7200);
  Local_time local(&zone);
  for (uint32_t utc = change - 3 * one_stretch; utc < change + 3 * one_stretch;
       utc += 501)
    ASSERT_EQ(local.seconds(utc), zone.expected(utc)) << utc;
  for (const uint32_t utc : {change - 1, change, change + 1})
    EXPECT_EQ(local.seconds(utc), zone.expected(utc)) << utc;
}

TEST(LocalTime, MayBeBehindUtc) {
  const Changing_zone zone(0, 0, -5 * 3600);
  Local_time local(&zone);
  EXPECT_EQ(local.seconds(0), -5 * 3600 - epochs_apart);
  EXPECT_EQ(local.seconds(2147483647), zone.expected(2147483647));
}

TEST(LocalTime, AsksTwiceForAStretchWithoutAChange) {
  const Changing_zone zone(0, 0, 3600);
  Local_time local(&zone);
  for (uint32_t utc = one_stretch; utc < 2 * one_stretch; ++utc)
    ASSERT_EQ(local.seconds(utc), zone.expected(utc));
  EXPECT_EQ(zone.asked(), 2);
  // Read another stretch and come back: the first one is still known.
  local.seconds(5 * one_stretch);
  local.seconds(one_stretch);
  EXPECT_EQ(zone.asked(), 4);
}

// Times beyond the TIMESTAMP type's are not kept.
TEST(LocalTime, AsksForEachTimeAfter2038) {
  const Changing_zone zone(0, 0, 3600);
  Local_time local(&zone);
  EXPECT_EQ(local.seconds(3000000000), zone.expected(3000000000));
  EXPECT_EQ(local.seconds(3000000001), zone.expected(3000000001));
  EXPECT_EQ(zone.asked(), 2);
}

}  // namespace
