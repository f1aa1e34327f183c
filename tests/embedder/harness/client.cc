// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "client.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "my_config.h"

#include "my_thread.h"
#include "mysql.h"
#include "sql/mysqld.h"

namespace harness {

class Client::Worker {
 public:
  Worker() : thread_([this] { run(); }) {}

  ~Worker() {
    post(nullptr);
    thread_.join();
  }

  template <class Result>
  std::future<Result> start(std::function<Result()> f) {
    auto task = std::make_shared<std::packaged_task<Result()>>(std::move(f));
    auto result = task->get_future();
    post([task] { (*task)(); });
    return result;
  }

  std::string connect(unsigned int seconds) {
    mysql_ = mysql_init(nullptr);
    if (mysql_ == nullptr) return "out of memory";
    mysql_options(mysql_, MYSQL_OPT_CONNECT_TIMEOUT, &seconds);
    // Without this option, a client inside the server's process uses the
    // server's net_read_timeout.
    const unsigned int patience = 300;
    mysql_options(mysql_, MYSQL_OPT_READ_TIMEOUT, &patience);
    mysql_options(mysql_, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    if (mysql_real_connect(mysql_, nullptr, "root", "", nullptr, 0,
                           mysqld_unix_port, 0) == nullptr)
      return mysql_error(mysql_);
    id_ = static_cast<uint32_t>(mysql_->thread_id);
    return {};
  }

  Reply run_statement(const std::string &sql) {
    Reply reply;
    if (mysql_ == nullptr) return {1, "not connected", {}};
    if (mysql_real_query(mysql_, sql.data(), sql.size())) return failure();
    MYSQL_RES *result = mysql_store_result(mysql_);
    if (result == nullptr) return mysql_errno(mysql_) ? failure() : reply;
    const unsigned int columns = mysql_num_fields(result);
    while (MYSQL_ROW row = mysql_fetch_row(result)) {
      const unsigned long *lengths = mysql_fetch_lengths(result);
      Row copy;
      for (unsigned int i = 0; i < columns; ++i)
        copy.push_back(row[i] ? Value(std::string(row[i], lengths[i]))
                              : Value());
      reply.rows.push_back(std::move(copy));
    }
    mysql_free_result(result);
    return reply;
  }

  void close() {
    if (mysql_ != nullptr) mysql_close(mysql_);
    mysql_ = nullptr;
  }

  uint32_t id() const { return id_; }

 private:
  Reply failure() { return {mysql_errno(mysql_), mysql_error(mysql_), {}}; }

  // A null task tells the thread to end.
  void post(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(mu_);
    tasks_.push_back(std::move(task));
    changed_.notify_one();
  }

  std::function<void()> take() {
    std::unique_lock<std::mutex> lock(mu_);
    changed_.wait(lock, [this] { return !tasks_.empty(); });
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  void run() {
    my_thread_init();
    while (auto task = take()) task();
    close();
    my_thread_end();
  }

  std::mutex mu_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> tasks_;  // under mu_
  MYSQL *mysql_ = nullptr;                   // used by the thread alone
  uint32_t id_ = 0;  // written by the thread before connect() is answered
  std::thread thread_;
};

Client::Client(unsigned int seconds) : worker_(std::make_unique<Worker>()) {
  Worker *worker = worker_.get();
  const std::string error =
      worker->start<std::string>([=] { return worker->connect(seconds); })
          .get();
  if (!error.empty()) throw std::runtime_error("cannot connect: " + error);
  // If a case forgets to release a lock, only that case fails, not the whole
  // run.
  exec("SET lock_wait_timeout = 20, innodb_lock_wait_timeout = 20");
}

Client::~Client() = default;

uint32_t Client::id() const { return worker_->id(); }

std::future<Reply> Client::send(const std::string &sql) {
  Worker *worker = worker_.get();
  return worker->start<Reply>(
      [worker, sql] { return worker->run_statement(sql); });
}

Reply Client::attempt(const std::string &sql) { return send(sql).get(); }

Rows Client::query(const std::string &sql) {
  Reply reply = attempt(sql);
  if (reply.error != 0)
    throw std::runtime_error(std::to_string(reply.error) + " " + reply.message +
                             " for: " + sql.substr(0, 300));
  return std::move(reply.rows);
}

Value Client::value(const std::string &sql) {
  Rows rows = query(sql);
  if (rows.size() != 1 || rows[0].size() != 1)
    throw std::runtime_error("not one value: " + sql);
  return rows[0][0];
}

std::string Client::text(const std::string &sql) {
  Value result = value(sql);
  if (!result) throw std::runtime_error("NULL: " + sql);
  return *result;
}

int64_t Client::number(const std::string &sql) { return std::stoll(text(sql)); }

void Client::disconnect() {
  Worker *worker = worker_.get();
  worker->start<void>([worker] { worker->close(); }).get();
}

}  // namespace harness
