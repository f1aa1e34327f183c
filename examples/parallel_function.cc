// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file parallel_function.cc
  parallel.cc as an SQL function, for tools/demo.py.

    CREATE FUNCTION morvena_parallel RETURNS STRING
      SONAME 'morvena_example.so';
    SELECT morvena_parallel('shop', 'orders', 'PRIMARY', 'id int,price decimal',
                            '100', '199', '', 4, 17);

  Arguments: database, table, index (NULL: the whole table), columns with their
  types (int, decimal, date), low and high bound of the first key part, words
  (index_only; enough followed by a number of rows), threads, and the donor's
  connection id, 0 for none.

  Answers, separated by tabs: the number of rows, for each column its sum (dates
  in days since 2000-01-01), and "stopped" where enough ended the read.
*/

#include <algorithm>
#include <sstream>

#include "mysqld_error.h"
#include "parallel.h"
#include "udf.h"

namespace {

using example::Summed_column;
using example::text_of;

enum {
  arg_db,
  arg_table,
  arg_index,
  arg_columns,
  arg_low,
  arg_high,
  arg_words,
  arg_threads,
  arg_donor,
  arg_count
};

unsigned long number_of(const UDF_ARGS *args, unsigned int i) {
  return strtoul(text_of(args, i).value_or("0").c_str(), nullptr, 10);
}

[[noreturn]] void refuse(const char *why) {
  throw morvena_sn::Error(ER_WRONG_ARGUMENTS, why);
}

std::vector<Summed_column> summed_columns(const std::string &list) {
  std::vector<Summed_column> columns;
  for (const auto &[name, type] : example::columns_of(list)) {
    if (type == "int")
      columns.push_back({name, Summed_column::Type::integer});
    else if (type == "decimal")
      columns.push_back({name, Summed_column::Type::decimal});
    else if (type == "date")
      columns.push_back({name, Summed_column::Type::date});
    else
      refuse("columns: name type, separated by commas");
  }
  if (columns.empty()) refuse("columns: name type, separated by commas");
  return columns;
}

void take_words(const std::string &list, example::Parallel_read *read) {
  std::istringstream words(list);
  for (std::string word; words >> word;) {
    if (word == "index_only")
      read->index_only = true;
    else if (word != "enough" || !(words >> read->enough_rows))
      refuse("an unknown word");
  }
}

std::string answer(const example::Sums &sums,
                   const std::vector<Summed_column> &columns) {
  std::string text = std::to_string(sums.rows);
  for (size_t i = 0; i < columns.size(); ++i) {
    const bool is_decimal = columns[i].type == Summed_column::Type::decimal;
    text += '\t';
    text += morvena_sn::to_text(sums.totals[i], is_decimal ? 9 : 0);
  }
  return sums.stopped ? text + "\tstopped" : text;
}

std::string sums_of(const UDF_ARGS *args) {
  const unsigned long most_threads = 256;  // what all reads together may have
  example::Parallel_read read;
  read.db = text_of(args, arg_db).value_or("");
  read.table = text_of(args, arg_table).value_or("");
  read.index = text_of(args, arg_index).value_or("");
  read.columns = summed_columns(text_of(args, arg_columns).value_or(""));
  read.low = text_of(args, arg_low);
  read.high = text_of(args, arg_high);
  take_words(text_of(args, arg_words).value_or(""), &read);
  read.threads = std::min(number_of(args, arg_threads), most_threads);
  read.donor = static_cast<uint32_t>(number_of(args, arg_donor));
  return answer(example::sum_on_client_thread(read), read.columns);
}

}  // namespace

extern "C" {

bool morvena_parallel_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  if (example::take_texts(init, args, arg_count, message,
                          "(database, table, index, columns, low, high, "
                          "words, threads, donor)"))
    return true;
  example::make_text(init);
  return false;
}

void morvena_parallel_deinit(UDF_INIT *init) { example::drop_text(init); }

char *morvena_parallel(UDF_INIT *init, UDF_ARGS *args, char *,
                       unsigned long *length, unsigned char *is_null,
                       unsigned char *error) {
  std::string text;
  if (example::fails([&] { text = sums_of(args); })) {
    *error = *is_null = 1;
    return nullptr;
  }
  return example::give_text(init, std::move(text), length);
}

}  // extern "C"
