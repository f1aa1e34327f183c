// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file demo.cc
  A range read in a form that SQL can check, for tools/demo.py.

    CREATE FUNCTION morvena_read RETURNS STRING SONAME 'morvena_example.so';
    SELECT morvena_read('shop', 'orders', 'PRIMARY', 'id int,price decimal',
                        '100', '199', 'backward', 17);

  Arguments: database, table, index, columns with the read to use for each (int,
  str, decimal, date, time, datetime), low and high bound of the first key part,
  words (backward, index_only, without_low, without_high, show), and the donor's
  connection id, 0 for none.

  Answers, separated by tabs: the number of rows; the CRC-32, as SQL's CRC32(),
  of the rows' text in the order they were read (columns joined by "|", rows by
  a line feed, NULL as "NULL"); then for each column its sum, of a string the
  bytes. With "show" the first rows' text follows, a line each.
*/

#include <array>
#include <sstream>

#include "cursor.h"
#include "exact.h"
#include "mysqld_error.h"
#include "reader.h"
#include "udf.h"

namespace {

using example::text_of;
using example::Wide;

/** CRC-32 with the reflected polynomial 0xEDB88320, byte by byte. */
class Crc32 {
 public:
  void add(const std::string &bytes) {
    static const std::array<uint32_t, 256> table = make_table();
    for (const unsigned char byte : bytes)
      state_ = table[(state_ ^ byte) & 0xff] ^ (state_ >> 8);
  }
  uint32_t value() const { return ~state_; }

 private:
  static std::array<uint32_t, 256> make_table() {
    std::array<uint32_t, 256> table;
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t entry = i;
      for (int bit = 0; bit < 8; ++bit)
        entry = (entry >> 1) ^ (entry & 1 ? 0xEDB88320u : 0);
      table[i] = entry;
    }
    return table;
  }

  uint32_t state_ = 0xffffffffu;
};

/** A column's value as text, and as what it adds to the column's sum. */
struct Value {
  bool null;
  std::string text;
  Wide amount;
};

Value value_of(bool null, long long number) {
  return {null, std::to_string(number), number};
}

Value read_int(uintptr_t cursor, uint32_t field) {
  long long value = 0;
  const bool null = cursor_read_field_int(cursor, field, &value);
  return value_of(null, value);
}

Value read_date(uintptr_t cursor, uint32_t field) {
  int32_t days = 0;
  const bool null = cursor_read_field_date(cursor, field, &days);
  return value_of(null, days);
}

Value read_time(uintptr_t cursor, uint32_t field) {
  int64_t microseconds = 0;
  const bool null = cursor_read_field_time(cursor, field, &microseconds);
  return value_of(null, microseconds);
}

Value read_datetime(uintptr_t cursor, uint32_t field) {
  int64_t microseconds = 0;
  const bool null = cursor_read_field_datetime(cursor, field, &microseconds);
  return value_of(null, microseconds);
}

Value read_str(uintptr_t cursor, uint32_t field) {
  char *bytes = nullptr;
  size_t size = 0;
  if (cursor_read_field_str(cursor, field, &bytes, &size)) return {true, "", 0};
  return {false, std::string(bytes, size), static_cast<Wide>(size)};
}

Value read_decimal(uintptr_t cursor, uint32_t field) {
  bool negative = false;
  int32_t intg = 0, frac = 0;
  int32_t *words = nullptr;
  if (cursor_read_field_decimal(cursor, field, &negative, &intg, &frac, &words))
    return {true, "", 0};
  const std::optional<Wide> billionths =
      example::billionths_of(negative, intg, frac, words);
  if (!billionths) return {false, "too long for this demo", 0};
  return {false, example::billionths_text(*billionths), *billionths};
}

using Read_function = Value (*)(uintptr_t, uint32_t);

Read_function read_named(const std::string &type) {
  if (type == "int") return read_int;
  if (type == "str") return read_str;
  if (type == "decimal") return read_decimal;
  if (type == "date") return read_date;
  if (type == "time") return read_time;
  if (type == "datetime") return read_datetime;
  return nullptr;
}

/** Takes rows and answers with what SQL can compute as well. */
class Digest {
 public:
  /** "name type,name type"; false: a type that there is no read for. */
  bool set_columns(const std::string &list, std::vector<std::string> *names) {
    for (const auto &[name, type] : example::columns_of(list)) {
      names->push_back(name);
      reads_.push_back(read_named(type));
      if (reads_.back() == nullptr) return false;
    }
    sums_.resize(reads_.size());
    return !reads_.empty();
  }

  void add_row(uintptr_t cursor, const std::vector<uint32_t> &fields) {
    std::string text;
    for (size_t i = 0; i < fields.size(); ++i) {
      const Value value = reads_[i](cursor, fields[i]);
      if (i > 0) text += '|';
      text += value.null ? "NULL" : value.text;
      if (!value.null) sums_[i] += value.amount;
    }
    if (rows_ > 0) crc_.add("\n");
    crc_.add(text);
    if (++rows_ <= rows_to_show) shown_ += '\n' + text;
  }

  std::string text(bool show) const {
    std::string text = std::to_string(rows_) + '\t';
    text += std::to_string(crc_.value());
    for (size_t i = 0; i < sums_.size(); ++i) {
      text += '\t';
      text += reads_[i] == read_decimal ? example::billionths_text(sums_[i])
                                        : example::number_text(sums_[i]);
    }
    return show ? text + shown_ : text;
  }

 private:
  static constexpr uint64_t rows_to_show = 20;

  std::vector<Read_function> reads_;
  std::vector<Wide> sums_;
  uint64_t rows_ = 0;
  Crc32 crc_;
  std::string shown_;
};

enum {
  arg_db,
  arg_table,
  arg_index,
  arg_columns,
  arg_low,
  arg_high,
  arg_words,
  arg_donor,
  arg_count
};

/** False: a word that means nothing here. */
bool take_words(const std::string &list, example::Range_read *read,
                bool *show) {
  std::istringstream words(list);
  for (std::string word; words >> word;) {
    if (word == "backward")
      read->backward = true;
    else if (word == "index_only")
      read->index_only = true;
    else if (word == "without_low")
      read->low_included = false;
    else if (word == "without_high")
      read->high_included = false;
    else if (word == "show")
      *show = true;
    else
      return false;
  }
  return true;
}

example::Range_read read_of(const UDF_ARGS *args) {
  example::Range_read read;
  read.db = text_of(args, arg_db).value_or("");
  read.table = text_of(args, arg_table).value_or("");
  read.index = text_of(args, arg_index).value_or("");
  read.low = text_of(args, arg_low);
  read.high = text_of(args, arg_high);
  const std::string donor = text_of(args, arg_donor).value_or("0");
  read.donor = static_cast<uint32_t>(strtoul(donor.c_str(), nullptr, 10));
  return read;
}

}  // namespace

extern "C" {

bool morvena_read_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  if (example::take_texts(
          init, args, arg_count, message,
          "(database, table, index, columns, low, high, words, donor)"))
    return true;
  example::make_text(init);
  return false;
}

void morvena_read_deinit(UDF_INIT *init) { example::drop_text(init); }

char *morvena_read(UDF_INIT *init, UDF_ARGS *args, char *,
                   unsigned long *length, unsigned char *is_null,
                   unsigned char *error) {
  example::Range_read read = read_of(args);
  bool show = false;
  Digest digest;
  example::Outcome outcome;
  if (!digest.set_columns(text_of(args, arg_columns).value_or(""),
                          &read.columns))
    outcome = {ER_WRONG_ARGUMENTS, "columns: name type, separated by commas",
               0};
  else if (!take_words(text_of(args, arg_words).value_or(""), &read, &show))
    outcome = {ER_WRONG_ARGUMENTS, "an unknown word", 0};
  else
    outcome = example::read_range_on_own_thread(
        read, [&](uintptr_t cursor, const std::vector<uint32_t> &fields) {
          digest.add_row(cursor, fields);
        });
  if (example::report(outcome)) {
    *error = *is_null = 1;
    return nullptr;
  }
  return example::give_text(init, digest.text(show), length);
}

}  // extern "C"
