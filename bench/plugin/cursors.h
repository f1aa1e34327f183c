// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursors.h
  Opens the plug-in's cursors for the contenders.
*/

#ifndef MORVENA_SN_BENCH_CURSORS_H
#define MORVENA_SN_BENCH_CURSORS_H

#include <string>
#include <vector>

#include "contender.h"
#include "cursor.hpp"

namespace bench {

constexpr char schema[] = "bench";

inline morvena_sn::Cursor cursor_on(const Request &request) {
  return {schema,
          request.table,
          request.index,
          {request.donor, request.index_only}};
}

inline std::vector<std::string> names_of(const std::vector<Column> &columns) {
  std::vector<std::string> names;
  for (const Column &column : columns) names.push_back(column.name);
  return names;
}

/** Calls f with an index cursor, or with a scan of the whole table where no
    index is named; it reads the request's columns, whose positions f gets. */
template <class F>
void with_reader(const Request &request, F f) {
  const auto open = [&](auto reader) {
    f(reader, reader.select(names_of(request.columns)));
  };
  if (request.index.empty())
    open(morvena_sn::Sequential_scan(schema, request.table, {request.donor}));
  else
    open(cursor_on(request));
}

}  // namespace bench

#endif  // MORVENA_SN_BENCH_CURSORS_H
