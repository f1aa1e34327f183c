/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// Calls that others end.

#include "common/calls.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_set>

#include "common.h"
#include "host.h"

// The sessions whose calls can be ended, and the thread that looks at their
// clients.
class Watch {
 public:
  ~Watch() { stop(true); }

  void add(Session_calls *calls) {
    const std::lock_guard<std::mutex> lock(mutex_);
    listed_.insert(calls);
    start();
    changed_.notify_one();
  }
  void remove(Session_calls *calls) {
    const std::lock_guard<std::mutex> lock(mutex_);
    listed_.erase(calls);
  }
  bool has(Session_calls *calls) const { return listed_.count(calls) != 0; }
  template <class Function>
  void for_each(Function function) {
    for (Session_calls *calls : listed_) function(calls);
  }
  void stop(bool for_good);

  std::mutex &mutex() { return mutex_; }

 private:
  // A client is noticed to be killed within this time.
  static constexpr std::chrono::milliseconds interval{50};

  void start();
  void look();

  std::mutex mutex_;
  std::condition_variable changed_;             // with mutex_
  std::unordered_set<Session_calls *> listed_;  // under mutex_
  bool stopping_ = false;                       // under mutex_
  std::thread thread_;                          // under mutex_
};

namespace {

Watch watch;

// KILL_CONNECTION is the shutdown's and stays.
void wake(THD *thd, THD::killed_state state) {
  mysql_mutex_lock(&thd->LOCK_thd_data);
  if (thd->killed != THD::KILL_CONNECTION) thd->awake(state);
  mysql_mutex_unlock(&thd->LOCK_thd_data);
}

// One that has gone is not taken for killed: a snapshot outlives its donor.
bool is_killed(uint32_t client) {
  if (client == 0) return false;
  Find_thd_with_id finder = host::find_by_id(client);
  THD_ptr thd = Global_THD_manager::get_instance()->find_thd(&finder);
  return thd && thd->killed != THD::NOT_KILLED;
}

}  // namespace

// Without a thread calls cannot be ended while they wait; they work otherwise.
void Watch::start() {
  if (thread_.joinable() || stopping_) return;
  try {
    thread_ = std::thread([this] { look(); });
  } catch (...) {
  }
}

void Watch::look() {
  my_thread_init();
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    changed_.wait(lock, [this] { return stopping_ || !listed_.empty(); });
    for_each([](Session_calls *calls) { calls->interrupt_if_killed(); });
    changed_.wait_for(lock, interval, [this] { return stopping_; });
  }
  lock.unlock();
  my_thread_end();
}

void Watch::stop(bool for_good) {
  std::thread ending;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = for_good || thread_.joinable();
    if (!thread_.joinable()) return;
    changed_.notify_one();
    ending = std::move(thread_);
  }
  ending.join();
  const std::lock_guard<std::mutex> lock(mutex_);
  stopping_ = for_good;
  if (!listed_.empty()) start();
}

void Session_calls::list() { watch.add(this); }

void Session_calls::unlist() { watch.remove(this); }

bool Session_calls::begin(uint32_t client) {
  client_.store(client, std::memory_order_relaxed);
  number_.store(number_.load(std::memory_order_relaxed) + 1);
  if (to_be_ended_.load() == 0 && !cancelled_.load()) return true;
  const std::lock_guard<std::mutex> lock(watch.mutex());
  // The client's kill was that of an earlier call.
  to_be_ended_ = 0;
  clear_kill();
  return !cancelled_.exchange(false);
}

void Session_calls::end(bool was_interrupted) {
  const uint64_t number = number_.load(std::memory_order_relaxed);
  if (was_interrupted) {
    const std::lock_guard<std::mutex> lock(watch.mutex());
    const bool cancelled = cancelled_.exchange(false);
    if (cancelled || to_be_ended_ == number) clear_kill();
    to_be_ended_ = 0;
  }
  number_.store(number + 1, std::memory_order_release);
}

void Session_calls::cancel() {
  const std::lock_guard<std::mutex> lock(watch.mutex());
  if (!watch.has(this)) return;
  cancelled_ = true;
  wake(thd_, THD::KILL_QUERY);
}

void Session_calls::interrupt_if_killed() {
  const uint64_t number = number_.load();
  if (number % 2 == 0 || to_be_ended_ == number) return;
  if (!is_killed(client_.load(std::memory_order_relaxed)) && !is_killed(owner_))
    return;
  to_be_ended_ = number;
  if (number_.load() != number) return;
  wake(thd_, THD::KILL_QUERY);
}

void Session_calls::interrupt_openings() {
  const std::lock_guard<std::mutex> lock(watch.mutex());
  watch.for_each([](Session_calls *calls) {
    if (calls->opening_) wake(calls->thd_, THD::KILL_CONNECTION);
  });
}

void Session_calls::stop_watching(bool for_good) { watch.stop(for_good); }

// On the session's thread. The fatal error that a kill leaves would make later
// reads of virtual columns fail.
void Session_calls::clear_kill() {
  mysql_mutex_lock(&thd_->LOCK_thd_data);
  const bool is_ours = thd_->killed == THD::KILL_QUERY;
  if (is_ours) thd_->killed = THD::NOT_KILLED;
  mysql_mutex_unlock(&thd_->LOCK_thd_data);
  if (is_ours) thd_->reset_for_next_command();
}
