// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Timestamps in time zones of all kinds, also close to changes of their
// distance from UTC.

#include <cstdlib>
#include <ctime>
#include <thread>

#include "parallel_test.h"
#include "value_test.h"

namespace {

using namespace harness;

/** Sets the system's time zone for this process, and restores it at the end. */
class System_zone {
 public:
  explicit System_zone(const char *zone) {
    const char *before = getenv("TZ");
    if (before != nullptr) before_ = before;
    set(zone);
  }
  ~System_zone() { set(before_ ? before_->c_str() : nullptr); }
  System_zone(const System_zone &) = delete;
  System_zone &operator=(const System_zone &) = delete;

 private:
  static void set(const char *zone) {
    if (zone != nullptr) {
      setenv("TZ", zone, 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  std::optional<std::string> before_;
};

/** From this second in UTC on, local time is that many seconds ahead of UTC. */
struct Change {
  int64_t at;
  int seconds;
};

class Timestamps : public Parallel_test {
 protected:
  Timestamps() {
    sql.exec("SET time_zone = '+00:00', sql_mode = ''");
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT,"
        " c TIMESTAMP(6) NULL, pad CHAR(30) DEFAULT '')");
  }
  ~Timestamps() override { sql.attempt("SET GLOBAL time_zone = 'SYSTEM'"); }

  /** From 1970 to 2038, one timestamp in every 15 hours. */
  void store_all_years() {
    fill("t (c)", 40000, "FROM_UNIXTIME(1 + i * 53687.0912345)");
  }

  /** Timestamps close to a second, and close to the ends of its stretch: the
      plug-in keeps the distance from UTC for stretches of 65536 seconds, about
      eighteen hours. */
  void store_around(int64_t second) {
    std::string values;
    for (const int64_t away :
         {-70000, -65536, -3601, -3600, -1800, -900,  -61,  -2,
          -1,     0,      1,     59,    60,    899,   900,  1799,
          1800,   3599,   3600,  3601,  65535, 65536, 70000}) {
      for (const char *fraction : {"", ".999999"})
        values += "(FROM_UNIXTIME(" + std::to_string(second + away) + fraction +
                  ")),";
    }
    for (const int64_t end : {second >> 16 << 16, (second >> 16 << 16) + 65536})
      for (const int64_t away : {-1, 0, 1})
        values += "(FROM_UNIXTIME(" + std::to_string(end + away) + ")),";
    values.pop_back();
    sql.exec("INSERT INTO t (c) VALUES " + values);
  }

  /** Define a time zone with these changes in the server.
      @return its name */
  std::string define(const std::vector<Change> &changes) {
    const std::string name = "morvena/" + sql.text("SELECT UUID_SHORT()");
    sql.exec("INSERT INTO mysql.time_zone (use_leap_seconds) VALUES ('N')");
    const std::string id = sql.text("SELECT LAST_INSERT_ID()");
    sql.exec("INSERT INTO mysql.time_zone_name VALUES ('" + name + "', " + id +
             ")");
    std::string types = "(" + id + ", 0, 0, 0, 'OLD')", transitions;
    int type = 0;
    for (const Change &change : changes) {
      const std::string number = std::to_string(++type);
      types += ", (" + id + ", " + number + ", " +
               std::to_string(change.seconds) + ", 0, 'NEW')";
      if (type > 1) transitions += ", ";
      transitions +=
          "(" + id + ", " + std::to_string(change.at) + ", " + number + ")";
    }
    sql.exec("INSERT INTO mysql.time_zone_transition_type VALUES " + types);
    sql.exec("INSERT INTO mysql.time_zone_transition VALUES " + transitions);
    return name;
  }

  static Row row(long long id, int32_t date, int64_t time, int64_t datetime) {
    return {std::to_string(id), std::to_string(date), std::to_string(time),
            std::to_string(datetime)};
  }

  /** The expected values of all rows, by SQL. */
  Rows selected() {
    const Expected expected = datetimes();
    const auto or_zero = [](const std::string &value, const std::string &zero) {
      return "IF(c = 0, " + zero + ", " + value + ")";
    };
    Rows rows = sql.query("SELECT id, " + or_zero(expected.date, "-730517") +
                          ", " + or_zero(expected.time, "0") + ", " +
                          or_zero(expected.datetime, "-730517 * 86400000000") +
                          " FROM t WHERE c IS NOT NULL");
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  static Rows delivered(const Scan &scan, size_t threads) {
    Rows rows;
    std::mutex mu;
    const auto caller = std::this_thread::get_id();
    size_t elsewhere = 0;
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      const std::lock_guard<std::mutex> lock(mu);
      if (std::this_thread::get_id() != caller) ++elsewhere;
      for (unsigned int nr = 0; nr < batch.size(); ++nr) {
        const auto date = batch.read_date(1, nr);
        const auto time = batch.read_time(1, nr);
        const auto datetime = batch.read_datetime(1, nr);
        EXPECT_EQ(date.has_value(), datetime.has_value());
        if (date)
          rows.push_back(row(batch.read_int(0, nr).value(), *date, time.value(),
                             datetime.value()));
      }
      return false;
    }));
    EXPECT_EQ(elsewhere > 0, threads > 1);
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  static Rows row_by_row() {
    Rows rows;
    Cursor cursor;
    if (!cursor.set_range()) return rows;
    while (cursor.next()) {
      if (const auto datetime = cursor.read_datetime(1))
        rows.push_back(row(cursor.read_int(0).value(),
                           cursor.read_date(1).value(),
                           cursor.read_time(1).value(), *datetime));
    }
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  /** Compare the values of all kinds of reads with SQL, in one time zone. */
  void compare(const std::string &zone) {
    SCOPED_TRACE(zone);
    sql.exec("SET GLOBAL time_zone = '" + zone + "'");
    sql.exec("SET time_zone = '" + zone + "'");
    const Rows rows = selected();
    ASSERT_FALSE(rows.empty());
    const Scan scan;
    for (const size_t threads : {0, 3}) {
      SCOPED_TRACE(threads);
      expect_rows(delivered(scan, threads), rows);
    }
    SCOPED_TRACE("row by row");
    expect_rows(row_by_row(), rows);
    sql.exec("SET time_zone = '+00:00'");
  }

  /** How many different distances from UTC the rows have in a time zone. */
  int64_t distances(const std::string &zone) {
    return sql.number(
        "SELECT COUNT(DISTINCT TIMESTAMPDIFF(SECOND, c, CONVERT_TZ(c, '+00:00',"
        " '" +
        zone + "'))) FROM t WHERE c > 0");
  }
};

TEST_F(Timestamps, AreReadInZonesWithoutChanges) {
  store_all_years();
  for (const char *zone : {"+00:00", "+02:00", "-12:59", "+14:00", "+05:45"})
    compare(zone);
}

TEST_F(Timestamps, AreReadInTheSystemsZone) {
  store_all_years();
  compare("SYSTEM");
}

// Daylight saving time begins on the last Sunday of March and ends on the last
// Sunday of October, each time at 1 o'clock UTC.
TEST_F(Timestamps, AreReadWhereTheSystemsZoneChanges) {
  const System_zone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  store_all_years();
  for (const int64_t change : {1711846800, 1729990800}) store_around(change);
  // Two hours ahead of UTC in summer, one hour in winter.
  ASSERT_EQ(distances("SYSTEM"), 2);
  EXPECT_EQ(sql.text("SELECT CONVERT_TZ('2024-03-31 00:59:59', '+00:00',"
                     " 'SYSTEM')"),
            "2024-03-31 01:59:59");
  EXPECT_EQ(sql.text("SELECT CONVERT_TZ('2024-03-31 01:00:00', '+00:00',"
                     " 'SYSTEM')"),
            "2024-03-31 03:00:00");
  compare("SYSTEM");
}

// Changes at one minute past midnight, by half an hour, and by more than an
// hour.
TEST_F(Timestamps, AreReadWhereChangesAreOdd) {
  store_all_years();
  for (const char *rules : {"NST3:30NDT,M4.1.0/0:01,M10.5.0/0:01",
                            "LHST-10:30LHDT-11,M10.1.0,M4.1.0",
                            "AAA0BBB-2:17:41,J60/13:59:59,J300/3:00:01"}) {
    const System_zone zone(rules);
    EXPECT_EQ(distances("SYSTEM"), 2) << rules;
    compare("SYSTEM");
  }
}

// The seconds of the changes have no relation to hours, days or stretches, or
// are the first or last second of one of these. Some distances occur more than
// once.
TEST_F(Timestamps, AreReadInTheServersZones) {
  const std::vector<Change> changes = {
      {63593070, -2670},         {500000000, 3600},
      {500000000 + 86400, 7200}, {500000000 + 2 * 86400, 3600},
      {15000 * 65536LL, 0},      {15002 * 65536LL - 1, 5400},
      {15003 * 65536LL + 1, 0},  {20000 * 65536LL + 32768, -43200},
      {20001 * 65536LL, 50400},  {2147400000, 1}};
  const std::string zone = define(changes);
  store_all_years();
  for (const Change &change : changes) {
    if (change.at < 2147400000) store_around(change.at);
  }
  ASSERT_EQ(distances(zone), 8);
  compare(zone);
}

TEST_F(Timestamps, AreReadWithFractionsOfEachLength) {
  const std::string zone = define({{1700000000, 3600}, {1710000000, 7200}});
  for (int digits = 0; digits <= 6; ++digits) {
    SCOPED_TRACE(digits);
    const std::string type = "TIMESTAMP(" + std::to_string(digits) + ")";
    sql.exec("DROP TABLE t");
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY AUTO_INCREMENT, c " + type +
             " NULL, pad CHAR(200) DEFAULT '')");
    fill("t (c)", 500, "FROM_UNIXTIME(1700000000.123456 + i * 100000.1)");
    sql.exec(
        "INSERT INTO t (c) VALUES (0), (NULL), (FROM_UNIXTIME(1)),"
        " (FROM_UNIXTIME(2147483647.5))");
    compare(zone);
    if (HasFailure()) return;
  }
}

TEST_F(Timestamps, AreReadInTheZoneOfTheOpening) {
  store_all_years();
  sql.exec("SET GLOBAL time_zone = '+03:00'");
  sql.exec("SET time_zone = '+03:00'");
  const Rows rows = selected();
  const Scan scan;
  sql.exec("SET GLOBAL time_zone = '-05:00'");
  expect_rows(delivered(scan, 2), rows);
}

}  // namespace
