/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file udf.h
  What every SQL function of the example needs.
*/

#ifndef MORVENA_EXAMPLE_UDF_H
#define MORVENA_EXAMPLE_UDF_H

#include <cstdio>
#include <optional>
#include <string>

#include "my_sys.h"
#include "mysql/udf_registration_types.h"
#include "mysql_com.h"
#include "reader.h"

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

/** None for SQL's NULL. */
inline std::optional<std::string> text_of(const UDF_ARGS *args,
                                          unsigned int i) {
  if (args->args[i] == nullptr) return std::nullopt;
  return std::string(args->args[i], args->lengths[i]);
}

/** Raises what went wrong in the client's session, which must be in place. */
inline bool report(const Outcome &outcome) {
  if (outcome.error == 0) return false;
  my_printf_error(outcome.error, "%s", MYF(0), outcome.message.c_str());
  return true;
}

}  // namespace example

#endif  // MORVENA_EXAMPLE_UDF_H
