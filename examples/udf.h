// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file udf.h
  What every SQL function of the example needs.
*/

#ifndef MORVENA_EXAMPLE_UDF_H
#define MORVENA_EXAMPLE_UDF_H

#include <cstdio>
#include <exception>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cursor.hpp"
#include "my_sys.h"
#include "mysql/udf_registration_types.h"
#include "mysql_com.h"
#include "mysqld_error.h"

namespace example {

/** For an _init function: `count` arguments, given as text whatever they are.
 */
inline bool take_texts(UDF_INIT *init, UDF_ARGS *args, unsigned int count,
                       char *message, const char *usage) {
  if (args->arg_count != count) {
    snprintf(message, MYSQL_ERRMSG_SIZE, "%s", usage);
    return true;
  }
  for (unsigned int i = 0; i < count; ++i) args->arg_type[i] = STRING_RESULT;
  init->maybe_null = true;
  init->const_item = false;
  return false;
}

/** @return the argument; empty if it is NULL */
inline std::optional<std::string> text_of(const UDF_ARGS *args,
                                          unsigned int i) {
  if (args->args[i] == nullptr) return std::nullopt;
  return std::string(args->args[i], args->lengths[i]);
}

/** Split "name type,name type" into pairs; a missing type becomes empty. */
inline std::vector<std::pair<std::string, std::string>> columns_of(
    const std::string &list) {
  std::vector<std::pair<std::string, std::string>> columns;
  std::istringstream texts(list);
  for (std::string text; std::getline(texts, text, ',');) {
    std::istringstream words(text);
    auto &column = columns.emplace_back();
    words >> column.first >> column.second;
  }
  return columns;
}

/** For a function that returns a text of some length, which `init` keeps. */
inline void make_text(UDF_INIT *init) {
  init->max_length = 65535;
  init->ptr = reinterpret_cast<char *>(new std::string);
}

inline void drop_text(UDF_INIT *init) {
  delete reinterpret_cast<std::string *>(init->ptr);
}

inline char *give_text(UDF_INIT *init, std::string text,
                       unsigned long *length) {
  auto *kept = reinterpret_cast<std::string *>(init->ptr);
  *kept = std::move(text);
  *length = kept->size();
  return kept->data();
}

/** Calls f and raises what it throws in the client's session, which must be in
    place again by then. @return whether it threw */
template <class F>
bool fails(F f) {
  try {
    f();
    return false;
  } catch (const morvena_sn::Error &error) {
    my_printf_error(error.code(), "%s", MYF(0), error.what());
  } catch (const std::exception &error) {
    my_printf_error(ER_UNKNOWN_ERROR, "%s", MYF(0), error.what());
  }
  return true;
}

}  // namespace example

#endif  // MORVENA_EXAMPLE_UDF_H
