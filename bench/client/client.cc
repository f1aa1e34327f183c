// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file client.cc
  A client of the server, through its local socket, for the runner.

    bench_client SOCKET

  Commands come on standard input, a line each, words separated by tabs; each is
  answered by a line: nanoseconds until the client had the whole result, rows,
  and what the command says; or ERROR and a text.

    run STATEMENT            the first row's columns
    text STATEMENT           reads all rows as text; the bytes of all values
    prepared N STATEMENT     N times, prepared before; the values of each column
                             as their type says: the sum of integers, of the
                             rest the bytes; rows are those of all N
    points N KEYS STATEMENT  the same, with a key of keys.h for the parameter
*/

#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "../keys.h"
#include "mysql.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Answer {
  int64_t ns = 0;
  uint64_t rows = 0;
  std::vector<std::string> texts;
};

class Connection {
 public:
  explicit Connection(const char *socket) : mysql_(mysql_init(nullptr)) {
    mysql_options(mysql_, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    if (mysql_real_connect(mysql_, nullptr, "root", "", nullptr, 0, socket,
                           0) == nullptr)
      fail();
  }
  ~Connection() { mysql_close(mysql_); }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  MYSQL *get() const { return mysql_; }
  [[noreturn]] void fail() const {
    throw std::runtime_error(mysql_error(mysql_));
  }

 private:
  MYSQL *mysql_;
};

Answer run(const Connection &connection, const std::string &statement) {
  Answer answer;
  const auto start = Clock::now();
  MYSQL *mysql = connection.get();
  if (mysql_real_query(mysql, statement.data(), statement.size()) != 0)
    connection.fail();
  MYSQL_RES *result = mysql_store_result(mysql);
  answer.ns = std::chrono::nanoseconds(Clock::now() - start).count();
  if (result == nullptr && mysql_errno(mysql) != 0) connection.fail();
  if (result == nullptr) return answer;
  answer.rows = mysql_num_rows(result);
  if (MYSQL_ROW row = mysql_fetch_row(result)) {
    const unsigned long *lengths = mysql_fetch_lengths(result);
    for (unsigned int i = 0; i < mysql_num_fields(result); ++i)
      answer.texts.push_back(row[i] ? std::string(row[i], lengths[i]) : "NULL");
  }
  mysql_free_result(result);
  return answer;
}

Answer read_text(const Connection &connection, const std::string &statement) {
  Answer answer;
  uint64_t bytes = 0;
  const auto start = Clock::now();
  MYSQL *mysql = connection.get();
  if (mysql_real_query(mysql, statement.data(), statement.size()) != 0)
    connection.fail();
  MYSQL_RES *result = mysql_use_result(mysql);
  if (result == nullptr) connection.fail();
  const unsigned int columns = mysql_num_fields(result);
  while (mysql_fetch_row(result) != nullptr) {
    const unsigned long *lengths = mysql_fetch_lengths(result);
    for (unsigned int i = 0; i < columns; ++i) bytes += lengths[i];
    ++answer.rows;
  }
  mysql_free_result(result);
  if (mysql_errno(mysql) != 0) connection.fail();
  answer.ns = std::chrono::nanoseconds(Clock::now() - start).count();
  answer.texts = {std::to_string(bytes)};
  return answer;
}

/** A prepared statement with its result bound to variables. */
class Statement {
 public:
  Statement(const Connection &connection, const std::string &text)
      : statement_(mysql_stmt_init(connection.get())) {
    if (mysql_stmt_prepare(statement_, text.data(), text.size()) != 0) fail();
    if (mysql_stmt_param_count(statement_) == 1) bind_key();
    bind_result();
  }
  ~Statement() { mysql_stmt_close(statement_); }
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;

  void execute(int64_t key) {
    key_ = key;
    if (mysql_stmt_execute(statement_) != 0) fail();
    int end;
    while ((end = mysql_stmt_fetch(statement_)) == 0) take_row();
    if (end != MYSQL_NO_DATA) fail();
    mysql_stmt_free_result(statement_);
  }

  uint64_t rows() const { return rows_; }
  std::vector<std::string> totals() const {
    std::vector<std::string> texts;
    for (const Column &column : columns_)
      texts.push_back(std::to_string(column.total));
    return texts;
  }

 private:
  static constexpr unsigned long longest_value = 1 << 16;

  struct Column {
    enum_field_types type;
    bool null = false;
    unsigned long bytes = 0;
    long long number = 0;
    MYSQL_TIME time{};
    std::vector<char> text;
    long long total = 0;
  };

  [[noreturn]] void fail() const {
    throw std::runtime_error(std::string("prepared statement: ") +
                             mysql_stmt_error(statement_));
  }

  void bind_key() {
    MYSQL_BIND bind{};
    bind.buffer_type = MYSQL_TYPE_LONGLONG;
    bind.buffer = &key_;
    if (mysql_stmt_bind_param(statement_, &bind)) fail();
  }

  void bind_result() {
    MYSQL_RES *names = mysql_stmt_result_metadata(statement_);
    if (names == nullptr) fail();
    const unsigned int n = mysql_num_fields(names);
    columns_.resize(n);
    std::vector<MYSQL_BIND> binds(n);
    for (unsigned int i = 0; i < n; ++i)
      bind_column(mysql_fetch_field_direct(names, i)->type, &columns_[i],
                  &binds[i]);
    mysql_free_result(names);
    if (mysql_stmt_bind_result(statement_, binds.data())) fail();
  }

  static void bind_column(enum_field_types type, Column *column,
                          MYSQL_BIND *bind) {
    *bind = MYSQL_BIND{};
    bind->is_null = &column->null;
    bind->length = &column->bytes;
    switch (type) {
      case MYSQL_TYPE_TINY:
      case MYSQL_TYPE_SHORT:
      case MYSQL_TYPE_INT24:
      case MYSQL_TYPE_LONG:
      case MYSQL_TYPE_LONGLONG:
        column->type = MYSQL_TYPE_LONGLONG;
        bind->buffer = &column->number;
        break;
      case MYSQL_TYPE_DATE:
      case MYSQL_TYPE_DATETIME:
        column->type = type;
        bind->buffer = &column->time;
        break;
      default:
        column->type = MYSQL_TYPE_STRING;
        column->text.resize(longest_value);
        bind->buffer = column->text.data();
        bind->buffer_length = longest_value;
    }
    bind->buffer_type = column->type;
  }

  void take_row() {
    for (Column &column : columns_) {
      if (column.null) continue;
      column.total += column.type == MYSQL_TYPE_LONGLONG
                          ? column.number
                          : static_cast<long long>(column.bytes);
    }
    ++rows_;
  }

  MYSQL_STMT *statement_;
  std::vector<Column> columns_;
  int64_t key_ = 0;
  uint64_t rows_ = 0;
};

Answer read_prepared(const Connection &connection, uint64_t times,
                     uint64_t keys, const std::string &text) {
  Statement statement(connection, text);
  const auto start = Clock::now();
  for (uint64_t i = 0; i < times; ++i)
    statement.execute(keys == 0 ? 0 : bench::nth_key(i, keys));
  Answer answer;
  answer.ns = std::chrono::nanoseconds(Clock::now() - start).count();
  answer.rows = statement.rows();
  answer.texts = statement.totals();
  return answer;
}

Answer take_command(const Connection &connection, const std::string &line) {
  std::istringstream words(line);
  const auto word = [&] {
    std::string text;
    std::getline(words, text, '\t');
    return text;
  };
  const auto rest = [&] { return line.substr(words.tellg()); };
  const std::string command = word();
  if (command == "run") return run(connection, rest());
  if (command == "text") return read_text(connection, rest());
  if (command == "prepared") {
    const uint64_t times = std::stoull(word());
    return read_prepared(connection, times, 0, rest());
  }
  if (command == "points") {
    const uint64_t times = std::stoull(word());
    const uint64_t keys = std::stoull(word());
    return read_prepared(connection, times, keys, rest());
  }
  throw std::runtime_error("no such command: " + command);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::cerr << "bench_client SOCKET\n";
    return 2;
  }
  try {
    const Connection connection(argv[1]);
    for (std::string line; std::getline(std::cin, line);) {
      try {
        const Answer answer = take_command(connection, line);
        std::cout << answer.ns << '\t' << answer.rows;
        for (const std::string &text : answer.texts) std::cout << '\t' << text;
      } catch (const std::exception &error) {
        std::cout << "ERROR\t" << error.what();
      }
      std::cout << std::endl;
    }
  } catch (const std::exception &error) {
    std::cerr << "bench_client: " << error.what() << '\n';
    return 1;
  }
}
