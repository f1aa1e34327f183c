// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file udf_text.h
  SQL functions that take one text and return one text.
*/

#ifndef MORVENA_SN_TESTS_UDF_TEXT_H
#define MORVENA_SN_TESTS_UDF_TEXT_H

#include <cstring>
#include <string>

#include "my_config.h"
#include "mysql.h"

namespace harness {

inline bool start_text_function(UDF_INIT *init, UDF_ARGS *args, char *message) {
  init->ptr = nullptr;
  if (args->arg_count == 1 && args->arg_type[0] == STRING_RESULT) {
    // The text of a failure can exceed the default limit of 255 bytes.
    init->max_length = 1 << 20;
    init->ptr = reinterpret_cast<char *>(new std::string);
    return false;
  }
  strcpy(message, "one text is expected");
  return true;
}

inline void end_text_function(UDF_INIT *init) {
  delete reinterpret_cast<std::string *>(init->ptr);
}

inline std::string argument(const UDF_ARGS *args) {
  return args->args[0] ? std::string(args->args[0], args->lengths[0]) : "";
}

/** Keeps the returned text alive until the statement ends. */
inline char *answer(UDF_INIT *init, std::string text, unsigned long *length) {
  auto *kept = reinterpret_cast<std::string *>(init->ptr);
  *kept = std::move(text);
  *length = kept->size();
  return kept->data();
}

}  // namespace harness

#endif  // MORVENA_SN_TESTS_UDF_TEXT_H
