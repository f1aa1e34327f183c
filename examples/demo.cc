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

#include "cursor.hpp"
#include "cursor_session.hpp"
#include "mysqld_error.h"
#include "reader.h"
#include "udf.h"

namespace {

using example::text_of;
using morvena_sn::Int128;
using morvena_sn::Row;

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

/** A column's value as text, and the amount that it adds to the column's sum.
 */
struct Value {
  bool null;
  std::string text;
  Int128 amount;
};

const Value null_value{true, "", 0};

Value value_of(std::optional<int64_t> number) {
  if (!number) return null_value;
  return {false, std::to_string(*number), *number};
}

Value read_int(const Row &row, uint32_t field) {
  return value_of(row.get<int64_t>(field));
}

Value read_date(const Row &row, uint32_t field) {
  const auto date = row.get<morvena_sn::Date>(field);
  if (!date) return null_value;
  return value_of((*date - morvena_sn::epoch).count());
}

Value read_time(const Row &row, uint32_t field) {
  const auto time = row.get<morvena_sn::Duration>(field);
  if (!time) return null_value;
  return value_of(time->count());
}

Value read_datetime(const Row &row, uint32_t field) {
  const auto time = row.get<morvena_sn::Datetime>(field);
  if (!time) return null_value;
  return value_of((*time - morvena_sn::epoch).count());
}

Value read_str(const Row &row, uint32_t field) {
  const auto text = row.get<std::string>(field);
  if (!text) return null_value;
  return {false, *text, static_cast<Int128>(text->size())};
}

Value read_decimal(const Row &row, uint32_t field) {
  const auto decimal = row.get<morvena_sn::Decimal>(field);
  if (!decimal) return null_value;
  const auto billionths = decimal->scaled(9);
  if (!billionths) return {false, "too long for this demo", 0};
  return {false, decimal->text(9), *billionths};
}

using Read_function = Value (*)(const Row &, uint32_t);

Read_function read_named(const std::string &type) {
  if (type == "int") return read_int;
  if (type == "str") return read_str;
  if (type == "decimal") return read_decimal;
  if (type == "date") return read_date;
  if (type == "time") return read_time;
  if (type == "datetime") return read_datetime;
  return nullptr;
}

/** Takes rows and computes figures that SQL can compute as well. */
class Digest {
 public:
  /** Parse "name type,name type". @return false for a type without a read */
  bool set_columns(const std::string &list, std::vector<std::string> *names) {
    for (const auto &[name, type] : example::columns_of(list)) {
      names->push_back(name);
      reads_.push_back(read_named(type));
      if (reads_.back() == nullptr) return false;
    }
    sums_.resize(reads_.size());
    return !reads_.empty();
  }

  void add_row(const Row &row, const std::vector<uint32_t> &fields) {
    std::string text;
    for (size_t i = 0; i < fields.size(); ++i) {
      const Value value = reads_[i](row, fields[i]);
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
      text += reads_[i] == read_decimal ? morvena_sn::to_text(sums_[i], 9)
                                        : morvena_sn::to_text(sums_[i]);
    }
    return show ? text + shown_ : text;
  }

 private:
  static constexpr uint64_t rows_to_show = 20;

  std::vector<Read_function> reads_;
  std::vector<Int128> sums_;
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

/** What the words ask for. */
struct Wishes {
  bool backward = false, index_only = false, show = false;
  bool low_included = true, high_included = true;
};

[[noreturn]] void refuse(const char *why) {
  throw morvena_sn::Error(ER_WRONG_ARGUMENTS, why);
}

Wishes wishes_of(const std::string &list) {
  Wishes wishes;
  std::istringstream words(list);
  for (std::string word; words >> word;) {
    if (word == "backward")
      wishes.backward = true;
    else if (word == "index_only")
      wishes.index_only = true;
    else if (word == "without_low")
      wishes.low_included = false;
    else if (word == "without_high")
      wishes.high_included = false;
    else if (word == "show")
      wishes.show = true;
    else
      refuse("an unknown word");
  }
  return wishes;
}

std::string read_and_digest(const UDF_ARGS *args) {
  example::Range_read read;
  Digest digest;
  if (!digest.set_columns(text_of(args, arg_columns).value_or(""),
                          &read.columns))
    refuse("columns: name type, separated by commas");
  const Wishes wishes = wishes_of(text_of(args, arg_words).value_or(""));
  read.db = text_of(args, arg_db).value_or("");
  read.table = text_of(args, arg_table).value_or("");
  read.index = text_of(args, arg_index).value_or("");
  read.range =
      example::range_of(text_of(args, arg_low), text_of(args, arg_high),
                        wishes.low_included, wishes.high_included);
  read.range.set_reverse(wishes.backward);
  read.index_only = wishes.index_only;
  const std::string donor = text_of(args, arg_donor).value_or("0");
  read.donor = static_cast<uint32_t>(strtoul(donor.c_str(), nullptr, 10));
  morvena_sn::on_own_thread([&] {
    example::read_range(read, [&](const auto &row, const auto &fields) {
      digest.add_row(row, fields);
    });
  });
  return digest.text(wishes.show);
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
  std::string text;
  if (example::fails([&] { text = read_and_digest(args); })) {
    *error = *is_null = 1;
    return nullptr;
  }
  return example::give_text(init, std::move(text), length);
}

}  // extern "C"
