// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file functions.cc
  The plug-in that holds the contenders, and the SQL function that runs them:

    CREATE FUNCTION morvena_bench RETURNS STRING SONAME 'morvena_bench.so';
    SELECT morvena_bench('parallel_read', 'table=lineitem threads=2
                          columns=price:decimal,ship_date:date');

  Words of the second argument, besides those: index, index_only=1, donor,
  count, keys, low, high. Answers, separated by tabs: nanoseconds, rows, totals;
  or ERROR and a text.
*/

#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>

#include "contender.h"
#include "cursor_plugin.hpp"
#include "cursor_session.hpp"
#include "mysql.h"

namespace bench {
namespace {

std::mutex running;  // held by a contender

std::vector<Column> columns_of(const std::string &list) {
  static const std::map<std::string, Type> types = {
      {"int", Type::integer},   {"decimal", Type::decimal},
      {"date", Type::date},     {"datetime", Type::datetime},
      {"string", Type::string},
  };
  std::vector<Column> columns;
  std::istringstream texts(list);
  for (std::string text; std::getline(texts, text, ',');) {
    const size_t colon = text.find(':');
    const auto type = types.find(text.substr(colon + 1));
    if (colon == std::string::npos || type == types.end())
      throw std::runtime_error("not a column: " + text);
    columns.push_back({text.substr(0, colon), type->second});
  }
  return columns;
}

Request request_of(const std::string &words) {
  std::map<std::string, std::string> values;
  std::istringstream texts(words);
  for (std::string text; texts >> text;) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
      throw std::runtime_error("no value: " + text);
    values[text.substr(0, equals)] = text.substr(equals + 1);
  }
  const auto number = [&](const char *name) {
    return strtoll(values[name].c_str(), nullptr, 10);
  };
  Request request;
  request.table = values["table"];
  request.index = values["index"];
  request.index_only = number("index_only") != 0;
  request.columns = columns_of(values["columns"]);
  request.donor = static_cast<uint32_t>(number("donor"));
  request.threads = static_cast<size_t>(number("threads"));
  request.count = static_cast<uint64_t>(number("count"));
  request.keys = static_cast<uint64_t>(number("keys"));
  request.low = number("low");
  request.high = number("high");
  return request;
}

Answer run(const std::string &name, const std::string &words) {
  static const std::map<std::string, Answer (*)(const Request &)> contenders = {
      {"parallel_read", parallel_read},
      {"parallel_read_alone", parallel_read_alone},
      {"parallel_memory", parallel_memory},
      {"cursor_range", cursor_range},
      {"cursor_points", cursor_points},
      {"cursor_openings", cursor_openings},
      {"handler_loop", handler_loop},
      {"handler_parallel_scan", handler_parallel_scan},
      {"touch_pages", touch_pages},
  };
  const auto contender = contenders.find(name);
  if (contender == contenders.end())
    throw std::runtime_error("no contender " + name);
  const morvena_sn::Reading reading;
  const std::lock_guard<std::mutex> lock(running);
  return contender->second(request_of(words));
}

std::string text_of(const Answer &answer) {
  std::string text = std::to_string(answer.ns);
  text += '\t' + std::to_string(answer.rows);
  for (const std::string &total : answer.totals) text += '\t' + total;
  return text;
}

// Runs on another thread than the client's, because cursors replace the
// thread's session.
std::string run_on_own_thread(const std::string &name,
                              const std::string &words) {
  try {
    return morvena_sn::on_own_thread([&] { return text_of(run(name, words)); });
  } catch (const std::exception &error) {
    return std::string("ERROR\t") + error.what();
  }
}

}  // namespace
}  // namespace bench

extern "C" {

bool morvena_bench_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  if (args->arg_count != 2 || args->arg_type[0] != STRING_RESULT ||
      args->arg_type[1] != STRING_RESULT) {
    strcpy(message, "two texts are expected: contender, words");
    return true;
  }
  init->max_length = 65535;
  init->const_item = false;
  init->ptr = reinterpret_cast<char *>(new std::string);
  return false;
}

void morvena_bench_deinit(UDF_INIT *init) {
  delete reinterpret_cast<std::string *>(init->ptr);
}

char *morvena_bench(UDF_INIT *init, UDF_ARGS *args, char *,
                    unsigned long *length, unsigned char *, unsigned char *) {
  const auto text = [&](unsigned int i) {
    return args->args[i] ? std::string(args->args[i], args->lengths[i]) : "";
  };
  auto *kept = reinterpret_cast<std::string *>(init->ptr);
  *kept = bench::run_on_own_thread(text(0), text(1));
  *length = kept->size();
  return kept->data();
}

}  // extern "C"

MORVENA_SN_PLUGIN(morvena_bench, "the morvena_sn authors",
                  "The contenders of the comparison that run inside the "
                  "server");
