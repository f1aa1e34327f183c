// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file functions.cc
  SQL functions over reader.cc.

    CREATE FUNCTION morvena_sum RETURNS INTEGER SONAME 'morvena_example.so';
    CREATE FUNCTION morvena_average RETURNS REAL SONAME 'morvena_example.so';
    SELECT morvena_sum('shop', 'orders', 'PRIMARY', 'amount', '100', '199');

  Both take (database, table, index, column, low, high), read the rows whose
  first key part lies between low and high (NULL: no bound) as the calling
  session's transaction sees them, and leave out NULLs as SUM() and AVG() do.
  morvena_sum reads on the client's thread, by sum.c, morvena_average on a
  thread of its own, by reader.cc.
*/

#include "cursor.hpp"
#include "cursor_session.hpp"
#include "reader.h"
#include "sum.h"
#include "udf.h"

using example::text_of;

namespace {

constexpr char usage[] = "(database, table, index, column, low, high)";

/** The arguments as sum.c takes them. */
long long sum_of(const UDF_ARGS *args, uint64_t *count) {
  const auto db = text_of(args, 0).value_or("");
  const auto table = text_of(args, 1).value_or("");
  const auto index = text_of(args, 2).value_or("");
  const auto column = text_of(args, 3).value_or("");
  const auto low = text_of(args, 4), high = text_of(args, 5);
  const example_sum_read read = {db.c_str(),
                                 table.c_str(),
                                 index.c_str(),
                                 column.c_str(),
                                 low ? low->data() : nullptr,
                                 high ? high->data() : nullptr,
                                 low ? low->size() : 0,
                                 high ? high->size() : 0,
                                 current_thd->thread_id()};
  // A kill of the client ends the calls that are made on its thread. The client
  // has its own session back before the server goes on with the statement.
  const morvena_sn::Session_keeper keeper;
  const morvena_sn::Reading reading;
  long long sum = 0;
  char message[MORVENA_SN_MESSAGE_BYTES] = "";
  const unsigned int error = example_sum(&read, &sum, count, message);
  if (error != 0) throw morvena_sn::Error(error, message);
  return sum;
}

double average_of(const UDF_ARGS *args, uint64_t *count) {
  example::Range_read read;
  read.db = text_of(args, 0).value_or("");
  read.table = text_of(args, 1).value_or("");
  read.index = text_of(args, 2).value_or("");
  read.columns = {text_of(args, 3).value_or("")};
  read.range = example::range_of(text_of(args, 4), text_of(args, 5));
  read.donor = current_thd->thread_id();
  double sum = 0;
  morvena_sn::on_own_thread([&] {
    example::read_range(read, [&](const auto &row, const auto &fields) {
      const auto value = row.template get<double>(fields[0]);
      if (!value) return;  // NULL
      sum += *value;
      ++*count;
    });
  });
  return *count == 0 ? 0 : sum / static_cast<double>(*count);
}

}  // namespace

extern "C" {

bool morvena_sum_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  return example::take_texts(init, args, 6, message, usage);
}

long long morvena_sum(UDF_INIT *, UDF_ARGS *args, unsigned char *is_null,
                      unsigned char *error) {
  long long sum = 0;
  uint64_t count = 0;
  *error = example::fails([&] { sum = sum_of(args, &count); });
  *is_null = count == 0;
  return sum;
}

bool morvena_average_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  init->decimals = 31;  // not fixed: as many as the value has
  return example::take_texts(init, args, 6, message, usage);
}

double morvena_average(UDF_INIT *, UDF_ARGS *args, unsigned char *is_null,
                       unsigned char *error) {
  double average = 0;
  uint64_t count = 0;
  *error = example::fails([&] { average = average_of(args, &count); });
  *is_null = count == 0;
  return average;
}

}  // extern "C"
