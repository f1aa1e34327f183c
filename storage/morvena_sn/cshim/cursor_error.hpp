// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_error.hpp
  How the C++ interface tells of failures. Include cursor.hpp; this file is a
  part of it.
*/

#ifndef MORVENA_SN_CURSOR_ERROR_HPP
#define MORVENA_SN_CURSOR_ERROR_HPP

#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

namespace morvena_sn {

/** Why something failed: an error number of cursor.h, and what() as text. */
class Error : public std::runtime_error {
 public:
  Error(unsigned int code, const std::string &text)
      : std::runtime_error(text), code_(code) {}

  /** @return a MORVENA_SN_ERROR_... number or another one of the server's;
      never 0 */
  [[nodiscard]] unsigned int code() const noexcept { return code_; }

 private:
  unsigned int code_;
};

/** A value, or why there is none. */
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::move(value)) {}
  Result(Error error) : state_(std::move(error)) {}

  [[nodiscard]] bool has_value() const noexcept { return state_.index() == 0; }

  /** The value; throws the Error if there is none. */
  T &value() & {
    check();
    return *std::get_if<0>(&state_);
  }
  const T &value() const & {
    check();
    return *std::get_if<0>(&state_);
  }
  T &&value() && {
    check();
    return std::move(*std::get_if<0>(&state_));
  }

  /** The error; only where has_value() is false. */
  [[nodiscard]] const Error &error() const { return std::get<1>(state_); }

 private:
  void check() const {
    if (!has_value()) throw std::get<1>(state_);
  }

  std::variant<T, Error> state_;
};

}  // namespace morvena_sn

#endif  // MORVENA_SN_CURSOR_ERROR_HPP
