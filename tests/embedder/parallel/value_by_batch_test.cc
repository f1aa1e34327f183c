// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Values of every type, read from a batch by all seven functions.

#include <cmath>
#include <mutex>

#include "parallel_test.h"
#include "value_test.h"

namespace {

using namespace harness;

/** The results of the seven reads of one value. */
struct Reads {
  std::optional<long long> integer;
  std::optional<double> real;
  std::optional<std::string> text;
  std::optional<Decimal> decimal;
  std::optional<int32_t> date;
  std::optional<int64_t> time;
  std::optional<int64_t> datetime;
};

class ParallelValue : public Value_test {
 protected:
  void check(const std::string &type, const std::vector<std::string> &values,
             const Expected &expected = {}) {
    store_over_pages(type, values);
    // The server returns text in the column's own character set, without
    // conversion.
    sql.exec("SET character_set_results = NULL");
    const Rows rows =
        sql.query("SELECT " + expected.integer + "," + expected.real + "," +
                  expected.text + "," + expected.decimal + "," + expected.date +
                  "," + expected.time + "," + expected.datetime +
                  ", id, c IS NULL FROM t ORDER BY id");
    for (const size_t threads : thread_counts) {
      SCOPED_TRACE(type.substr(0, 50) + ", " + std::to_string(threads) +
                   " threads");
      const auto delivered = read_all(threads);
      ASSERT_EQ(delivered.size(), rows.size());
      for (const Row &row : rows)
        compare(delivered.at(std::stoll(row[7].value())), row);
      if (HasFailure()) break;
    }
    sql.exec("SET character_set_results = utf8mb4");
    sql.exec("DROP TABLE t");
  }

  /** Stores the values and then copies of the rows that are not too long, until
      the table has 24 pages of two rows each. */
  void store_over_pages(const std::string &type,
                        const std::vector<std::string> &values) {
    store(type, values);
    sql.exec("ALTER TABLE t ADD COLUMN " + filler(7000));
    while (sql.number("SELECT COUNT(*) FROM t") < 48)
      sql.exec("INSERT INTO t (id, c) SELECT id + " +
               sql.text("SELECT MAX(id) FROM t") +
               ", c FROM t WHERE c IS NULL OR LENGTH(c) < 70000");
  }

  std::map<long long, Reads> read_all(size_t threads) {
    std::map<long long, Reads> by_id;
    std::mutex mu;
    const Scan scan;
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      const std::lock_guard<std::mutex> lock(mu);
      for (unsigned int nr = 0; nr < batch.size(); ++nr)
        by_id[batch.read_int(0, nr).value()] = {
            batch.read_int(1, nr),     batch.read_real(1, nr),
            batch.read_text(1, nr),    batch.read_decimal(1, nr),
            batch.read_date(1, nr),    batch.read_time(1, nr),
            batch.read_datetime(1, nr)};
      return false;
    }));
    return by_id;
  }

  void compare(const Reads &reads, const Row &row) {
    SCOPED_TRACE("row " + row[7].value() + ": " +
                 row[2].value_or("NULL").substr(0, 100));
    const bool has_value = row[8] == "0";
    EXPECT_EQ(reads.integer.has_value(), has_value);
    EXPECT_EQ(reads.real.has_value(), has_value);
    EXPECT_TRUE(reads.text == row[2]);
    EXPECT_EQ(reads.decimal.has_value(), has_value);
    EXPECT_EQ(reads.date.has_value(), has_value);
    EXPECT_EQ(reads.time.has_value(), has_value);
    EXPECT_EQ(reads.datetime.has_value(), has_value);
    if (!has_value || HasFailure()) return;
    EXPECT_EQ(reads.integer, std::stoll(row[0].value()));
    const double real = strtod(row[1].value().c_str(), nullptr);
    EXPECT_EQ(reads.real, real);
    EXPECT_EQ(std::signbit(*reads.real), std::signbit(real));
    EXPECT_EQ(as_decimal(reads.decimal->text()), as_decimal(*row[3]));
    EXPECT_EQ(reads.date, std::stol(row[4].value()));
    EXPECT_EQ(reads.time, std::stoll(row[5].value()));
    EXPECT_EQ(reads.datetime, std::stoll(row[6].value()));
  }

  /** The same spelling for all equal decimal numbers. */
  std::string as_decimal(const std::string &text) {
    if (text.size() > 60) return text;
    std::string &decimal = decimals_[text];
    if (decimal.empty())
      decimal = sql.text("SELECT CAST('" + text + "' AS DECIMAL(65,30))");
    return decimal;
  }

  static Expected not_a_number() {
    Expected expected;
    expected.integer = expected.real = expected.decimal = "0";
    return expected;
  }

 private:
  std::map<std::string, std::string> decimals_;  // by the number's text
};

TEST_F(ParallelValue, Integers) {
  check("TINYINT", {"-128", "127", "0"});
  check("TINYINT UNSIGNED", {"0", "255"});
  check("SMALLINT", {"-32768", "32767"});
  check("SMALLINT UNSIGNED", {"0", "65535"});
  check("MEDIUMINT", {"-8388608", "8388607"});
  check("MEDIUMINT UNSIGNED", {"0", "16777215"});
  check("INT", {"-2147483648", "2147483647", "0"});
  check("INT UNSIGNED", {"0", "4294967295"});
  check("INT NOT NULL", {"0", "-5"});
}

TEST_F(ParallelValue, LargeIntegers) {
  check("BIGINT", {"-9223372036854775808", "9223372036854775807", "0", "-1"});
  check("BIGINT UNSIGNED", {"0", "9223372036854775807", "9223372036854775808",
                            "18446744073709551615"});
}

TEST_F(ParallelValue, Decimals) {
  check("DECIMAL(12,3)", {"-12345.678", "0.5", "-0.5", "0", "999999999.999"});
  check("DECIMAL(30,10)", {"12345678901.1234567891", "-0.0000000001"});
  check("DECIMAL(1,0)", {"9", "-9", "0"});
}

std::vector<int32_t> words_of(const morvena_sn::Decimal &value) {
  std::vector<int32_t> words;
  for (int32_t i = 0; i < value.integer_words() + value.fraction_words(); ++i)
    words.push_back(value.word(i));
  return words;
}

TEST_F(ParallelValue, DecimalWords) {
  store_over_pages("DECIMAL(12,3)", {"-12345.678"});
  const Reads reads = read_all(2).at(1);
  EXPECT_TRUE(reads.decimal->is_negative());
  EXPECT_EQ(reads.decimal->integer_words(), 1);
  EXPECT_EQ(words_of(*reads.decimal), (std::vector<int32_t>{12345, 678000000}));
}

TEST_F(ParallelValue, DecimalOfAllDigits) {
  const std::string digits = std::string(35, '9') + "." + std::string(30, '9');
  store_over_pages("DECIMAL(65,30)", {digits, "-" + digits});
  const auto reads = read_all(2);
  EXPECT_EQ(reads.at(1).text, digits);
  EXPECT_EQ(reads.at(2).text, "-" + digits);
  // 35 digits fill three words and eight digits of a fourth; 30 digits fill
  // three words and three digits of a fourth.
  const std::vector<int32_t> words = {99999999,  999999999, 999999999,
                                      999999999, 999999999, 999999999,
                                      999999999, 999000000};
  EXPECT_EQ(reads.at(1).decimal->integer_words(), 4);
  EXPECT_EQ(words_of(*reads.at(1).decimal), words);
  EXPECT_EQ(words_of(*reads.at(2).decimal), words);
  EXPECT_TRUE(reads.at(2).decimal->is_negative());
}

TEST_F(ParallelValue, RealNumbers) {
  check("FLOAT", {"0", "0.5", "-0.25", "16777216", "-2.5"});
  check("DOUBLE", {"0e0", "-0e0", "0.5e0", "2.5e0", "-123456.789e0",
                   "9007199254740993e0"});
}

TEST_F(ParallelValue, Bits) {
  for (const int width : {1, 7, 8, 9, 13, 31, 63, 64}) {
    const std::string ones(static_cast<size_t>(width), '1');
    check("BIT(" + std::to_string(width) + ")",
          {"b'0'", "b'1'", "b'" + ones + "'"});
  }
}

TEST_F(ParallelValue, Characters) {
  check("CHAR(20)", {"''", "'a'", "'  b'", "'12.9'", "'-7 x'"});
  check("CHAR(10) CHARACTER SET latin1", {"'\u00e9t\u00e9'"});
  check("CHAR(10) CHARACTER SET utf8mb4", {"'\U0001f600'", "'a'", "''"});
  check("VARCHAR(10) CHARACTER SET utf8mb4", {"'\U0001f600\U0001f601'", "''"});
  check("VARCHAR(300)", {"'17'", "'-4.5'", "''", "REPEAT(' ', 300)"});
  check("VARCHAR(16000) CHARACTER SET latin1",
        {"''", "REPEAT('y', 255)", "REPEAT('y', 256)", "REPEAT('z', 16000)"},
        not_a_number());
}

TEST_F(ParallelValue, TwoByteCharacters) {
  check("VARCHAR(10) CHARACTER SET ucs2", {"'ab'", "'\u20ac'"}, not_a_number());
  check("CHAR(10) CHARACTER SET utf16", {"'ab'", "'\U0001f600'"},
        not_a_number());
}

TEST_F(ParallelValue, Bytes) {
  check("BINARY(5)", {"X'00FF00'", "''", "X'0102030405'"}, not_a_number());
  check("VARBINARY(300)", {"X'00'", "''", "REPEAT(X'FF', 300)"},
        not_a_number());
  check("VARBINARY(30)", {"'123'", "'-4.5'"});
}

TEST_F(ParallelValue, Texts) {
  check("TINYTEXT", {"''", "'17'", "REPEAT(' ', 255)"});
  check("TEXT", {"''", "'x'", "REPEAT('abcdefg', 9000)"}, not_a_number());
  check("MEDIUMTEXT", {"'x'", "REPEAT('abcdefg', 200000)"}, not_a_number());
  check("LONGTEXT", {"'x'", "REPEAT('abcdefg', 500000)", "'y'"},
        not_a_number());
}

TEST_F(ParallelValue, Blobs) {
  check("TINYBLOB", {"''", "REPEAT(X'00', 255)"}, not_a_number());
  check("BLOB", {"''", "REPEAT(X'FE', 65535)"}, not_a_number());
  check("MEDIUMBLOB", {"REPEAT(X'00FF', 300000)"}, not_a_number());
  check("LONGBLOB", {"REPEAT(X'0102', 1500000)", "X'03'"}, not_a_number());
}

TEST_F(ParallelValue, EnumsAndSets) {
  std::string members;
  for (int i = 1; i <= 300; ++i)
    members += (i > 1 ? ",'m" : "'m") + std::to_string(i) + "'";
  check("ENUM(" + members + ")", {"'m1'", "'m255'", "'m256'", "'m300'"});
  check("ENUM('a','b')", {"'a'", "'b'"});
  check("SET('a','b','c')", {"''", "'a'", "'a,c'"});
}

TEST_F(ParallelValue, Json) {
  Expected expected;
  expected.integer = "IF(JSON_TYPE(c) IN ('INTEGER'), CAST(c AS SIGNED), 0)";
  expected.real = "IF(JSON_TYPE(c) IN ('INTEGER'), c + 0e0, 0)";
  expected.decimal = "IF(JSON_TYPE(c) IN ('INTEGER'), c + 0, 0)";
  check("JSON",
        {"'5'", "'-17'", "'{\"b\": [1, true, null], \"a\": \"x\"}'", "'[]'",
         "CONCAT('[\"', REPEAT('z', 100000), '\"]')"},
        expected);
}

TEST_F(ParallelValue, Geometry) {
  check(
      "GEOMETRY",
      {"ST_GeomFromText('POINT(1 2)', 4326)",
       "ST_GeomFromText('LINESTRING(0 0, 1 1, 2 2)')",
       "ST_GeomFromText(CONCAT('LINESTRING(0 0', REPEAT(',1 1', 9000), ')'))"},
      not_a_number());
  check("POINT", {"ST_GeomFromText('POINT(1 2)')"}, not_a_number());
}

TEST_F(ParallelValue, Year) { check("YEAR", {"1901", "2155", "2026", "0"}); }

TEST_F(ParallelValue, Dates) {
  check("DATE",
        {"'2000-01-01'", "'1999-12-31'", "'1970-01-01'", "'2024-02-29'",
         "'9999-12-31'", "'0001-01-01'"},
        dates());
}

TEST_F(ParallelValue, ZeroDates) {
  sql.exec("SET sql_mode = ''");
  for (const char *type : {"DATE", "DATETIME(6)", "TIMESTAMP"}) {
    store_over_pages(std::string(type) + " NOT NULL", {"0"});
    const Reads reads = read_all(2).at(1);
    EXPECT_EQ(reads.date, no_date);
    EXPECT_EQ(reads.time, 0);
    EXPECT_EQ(reads.datetime, no_date * usecs_per_day);
    sql.exec("DROP TABLE t");
  }
}

TEST_F(ParallelValue, Datetimes) {
  for (const char *digits : {"0", "1", "2", "3", "4", "5", "6"})
    check("DATETIME(" + std::string(digits) + ")",
          {"'2000-01-01 00:00:00'", "'1999-12-31 23:59:59.999999'",
           "'1970-01-01 00:00:00'", "'2026-11-21 12:34:56.123456'"},
          datetimes());
}

TEST_F(ParallelValue, DatetimeMicroseconds) {
  store_over_pages("DATETIME(6)",
                   {"'1970-01-01'", "'1999-12-31 23:59:59.999999'"});
  const auto reads = read_all(2);
  EXPECT_EQ(reads.at(1).datetime, -946684800000000);
  EXPECT_EQ(reads.at(2).datetime, -1);
}

TEST_F(ParallelValue, Timestamps) {
  for (const char *digits : {"0", "3", "6"})
    check("TIMESTAMP(" + std::string(digits) + ") NULL",
          {"'1970-01-02 00:00:01'", "'2038-01-18 03:14:07'",
           "'2026-11-21 12:34:56.654321'"},
          datetimes());
}

TEST_F(ParallelValue, TimestampsReadInTheGlobalTimeZone) {
  store_over_pages("TIMESTAMP(3) NULL", {"'2026-11-21 12:34:56.654'"});
  sql.exec("SET GLOBAL time_zone = '+05:30'");
  sql.exec("SET time_zone = '+05:30'");
  const std::string text = sql.text("SELECT c FROM t WHERE id = 1");
  const int64_t datetime = sql.number(
      "SELECT TIMESTAMPDIFF(MICROSECOND, '2000-01-01', c) FROM t WHERE id = 1");
  for (const size_t threads : thread_counts) {
    const Reads reads = read_all(threads).at(1);
    EXPECT_EQ(reads.text, text) << threads;
    EXPECT_EQ(reads.datetime, datetime) << threads;
  }
  sql.exec("SET GLOBAL time_zone = DEFAULT");
}

TEST_F(ParallelValue, TimestampsReadInTheTimeZoneOfTheOpening) {
  store("TIMESTAMP(3) NULL", {"'2026-11-21 12:34:56.654'"});
  const int64_t datetime = sql.number(
      "SELECT TIMESTAMPDIFF(MICROSECOND, '2000-01-01', c) FROM t WHERE id = 1");
  // The rows fill more than one page, so that each worker reads some.
  sql.exec("DELETE FROM t WHERE id <> 1");
  for (int rows = 1; rows <= 4096; rows *= 2)
    sql.exec("INSERT INTO t SELECT id + " + std::to_string(rows) +
             ", c FROM t");
  const Scan scan;
  sql.exec("SET GLOBAL time_zone = '+11:30'");
  for (const size_t threads : thread_counts) {
    EXPECT_TRUE(read_parallel(scan, threads, [&](const Batch &batch) {
      for (unsigned int nr = 0; nr < batch.size(); ++nr) {
        EXPECT_EQ(batch.read_datetime(1, nr), datetime) << threads;
      }
      return false;
    }));
  }
  sql.exec("SET GLOBAL time_zone = DEFAULT");
}

TEST_F(ParallelValue, Times) {
  for (const char *digits : {"0", "2", "6"})
    check("TIME(" + std::string(digits) + ")",
          {"'00:00:00'", "'838:59:59'", "'-838:59:59'", "'-00:00:01.5'",
           "'23:59:59.999999'"},
          times());
}

// Numbers with no short decimal form, and both ends of the range.
TEST_F(ParallelValue, RealNumbersOfAllDigits) {
  store_over_pages("DOUBLE", {"1e0/3", "-1e0/7", "1.7976931348623157e308",
                              "2.2250738585072014e-308", "PI()", "1e22"});
  const Rows rows = sql.query("SELECT id, c FROM t WHERE c IS NOT NULL");
  for (const size_t threads : thread_counts) {
    const auto delivered = read_all(threads);
    for (const Row &row : rows) {
      const Reads &reads = delivered.at(std::stoll(row[0].value()));
      EXPECT_EQ(reads.real, strtod(row[1].value().c_str(), nullptr));
      EXPECT_EQ(reads.text, row[1]);
    }
  }
}

TEST_F(ParallelValue, TimeMicroseconds) {
  store_over_pages("TIME(1)", {"'-00:00:01.5'", "'838:59:59'"});
  const auto reads = read_all(2);
  EXPECT_EQ(reads.at(1).time, -1500000);
  EXPECT_EQ(reads.at(2).time, 3020399000000);
}

}  // namespace
