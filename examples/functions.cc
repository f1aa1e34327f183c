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
  morvena_sum reads on the client's thread, morvena_average on one of its own.
*/

#include "cursor.h"
#include "reader.h"
#include "sql/current_thd.h"
#include "sql/sql_class.h"
#include "udf.h"

using example::Outcome;
using example::Range_read;
using example::text_of;

namespace {

constexpr char usage[] = "(database, table, index, column, low, high)";

Range_read read_of(const UDF_ARGS *args) {
  Range_read read;
  read.db = text_of(args, 0).value_or("");
  read.table = text_of(args, 1).value_or("");
  read.index = text_of(args, 2).value_or("");
  read.columns = {text_of(args, 3).value_or("")};
  read.low = text_of(args, 4);
  read.high = text_of(args, 5);
  read.donor = current_thd->thread_id();
  return read;
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
  const Outcome outcome = example::read_range_on_client_thread(
      read_of(args),
      [&](uintptr_t cursor, const std::vector<uint32_t> &fields) {
        long long value;
        if (cursor_read_field_int(cursor, fields[0], &value)) return;  // NULL
        sum += value;
        ++count;
      });
  *error = example::report(outcome);
  *is_null = count == 0;
  return sum;
}

bool morvena_average_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  init->decimals = 31;  // not fixed: as many as the value has
  return example::take_texts(init, args, 6, message, usage);
}

double morvena_average(UDF_INIT *, UDF_ARGS *args, unsigned char *is_null,
                       unsigned char *error) {
  double sum = 0;
  uint64_t count = 0;
  const Outcome outcome = example::read_range_on_own_thread(
      read_of(args),
      [&](uintptr_t cursor, const std::vector<uint32_t> &fields) {
        double value;
        if (cursor_read_field_real(cursor, fields[0], &value)) return;  // NULL
        sum += value;
        ++count;
      });
  *error = example::report(outcome);
  *is_null = count == 0;
  return count == 0 ? 0 : sum / static_cast<double>(count);
}

}  // extern "C"
