// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file global_setting.h
  A global variable of the server that a case changes.
*/

#ifndef MORVENA_SN_TESTS_GLOBAL_SETTING_H
#define MORVENA_SN_TESTS_GLOBAL_SETTING_H

#include <string>

#include "client.h"

namespace harness {

/** Sets a global variable and restores its value, however the case ends. */
class Global_setting {
 public:
  /** @param value  a SQL expression */
  Global_setting(const std::string &name, const std::string &value)
      : name_(name) {
    // A user variable keeps the type of the value.
    sql_.exec("SET @before = @@GLOBAL." + name_);
    set(value);
  }
  ~Global_setting() { sql_.attempt("SET GLOBAL " + name_ + " = @before"); }
  Global_setting(const Global_setting &) = delete;
  Global_setting &operator=(const Global_setting &) = delete;

  void set(const std::string &value) {
    sql_.exec("SET GLOBAL " + name_ + " = " + value);
  }

 private:
  Client sql_;
  const std::string name_;
};

}  // namespace harness

#endif  // MORVENA_SN_TESTS_GLOBAL_SETTING_H
