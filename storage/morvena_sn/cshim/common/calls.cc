// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Calls that others end.

#include "common/calls.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "common.h"
#include "common/failure.h"
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

  /** The clients of a session's calls, as they were a moment ago. */
  struct Clients {
    Session_calls *calls;
    uint32_t client;
    uint32_t owner;
  };

  void start();
  void run();
  std::vector<Clients> clients() const;
  void end_call(const Clients &of_killed);

  std::mutex mutex_;
  std::condition_variable changed_;             // with mutex_
  std::unordered_set<Session_calls *> listed_;  // under mutex_
  bool stopping_ = false;                       // under mutex_
  bool is_over_ = false;  // under mutex_: stopped for good
  std::thread thread_;    // under mutex_
};

namespace {

Watch watch;

// KILL_CONNECTION is the shutdown's and stays.
void wake(THD *thd, THD::killed_state state) {
  mysql_mutex_lock(&thd->LOCK_thd_data);
  if (thd->killed != THD::KILL_CONNECTION) thd->awake(state);
  mysql_mutex_unlock(&thd->LOCK_thd_data);
}

// A client that has gone does not count as killed: a snapshot outlives its
// donor.
bool is_killed(uint32_t client) {
  if (client == 0) return false;
  Find_thd_with_id finder = host::find_by_id(client);
  THD_ptr thd = Global_THD_manager::get_instance()->find_thd(&finder);
  return thd && thd->killed != THD::NOT_KILLED;
}

}  // namespace

// Without a thread calls cannot be ended while they wait; they work otherwise.
void Watch::start() {
  if (thread_.joinable() || stopping_ || is_over_) return;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (...) {
    write_to_log(
        "Cannot start the thread that looks whether clients are killed");
  }
}

// Clients are looked at without the mutex: who kills one may hold the client's
// own and wait for ours.
void Watch::run() {
  my_thread_init();
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    changed_.wait(lock, [this] { return stopping_ || !listed_.empty(); });
    std::vector<Clients> watched = clients();
    lock.unlock();
    watched.erase(std::remove_if(watched.begin(), watched.end(),
                                 [](const Clients &of) {
                                   return !is_killed(of.client) &&
                                          !is_killed(of.owner);
                                 }),
                  watched.end());
    lock.lock();
    for (const Clients &of_killed : watched) end_call(of_killed);
    changed_.wait_for(lock, interval, [this] { return stopping_; });
  }
  lock.unlock();
  my_thread_end();
}

std::vector<Watch::Clients> Watch::clients() const {
  std::vector<Clients> found;
  for (Session_calls *calls : listed_) {
    const uint32_t client = calls->client_;
    if (client != 0 || calls->owner_ != 0) {
      found.push_back({calls, client, calls->owner_});
    }
  }
  return found;
}

// Between two calls the mark is left for the next one, which looks again.
void Watch::end_call(const Clients &of_killed) {
  Session_calls *calls = of_killed.calls;
  if (!has(calls) || calls->client_ != of_killed.client) return;
  calls->to_be_ended_ = true;
  if (calls->number_ % 2 != 0) wake(calls->thd_, THD::KILL_QUERY);
}

void Watch::stop(bool for_good) {
  std::thread ending;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_over_ = is_over_ || for_good;
    // Somebody else may be ending it.
    if (!thread_.joinable()) return;
    stopping_ = true;
    changed_.notify_one();
    ending = std::move(thread_);
  }
  ending.join();
  const std::lock_guard<std::mutex> lock(mutex_);
  stopping_ = false;
  if (!listed_.empty()) start();
}

void Session_calls::list() { watch.add(this); }

void Session_calls::unlist() { watch.remove(this); }

bool Session_calls::begin(uint32_t client) {
  client_.store(client, std::memory_order_relaxed);
  number_.store(number_.load(std::memory_order_relaxed) + 1);
  if (!to_be_ended_.load() && !cancelled_.load()) return true;
  // The kill may have been that of an earlier statement.
  const bool is_killed_now =
      to_be_ended_ && (is_killed(client) || is_killed(owner_));
  const std::lock_guard<std::mutex> lock(watch.mutex());
  to_be_ended_ = false;
  clear_kill();
  return !cancelled_.exchange(false) && !is_killed_now;
}

void Session_calls::end(bool was_interrupted) {
  if (was_interrupted) {
    const std::lock_guard<std::mutex> lock(watch.mutex());
    const bool cancelled = cancelled_.exchange(false);
    if (to_be_ended_.exchange(false) || cancelled) clear_kill();
  }
  number_.store(number_.load(std::memory_order_relaxed) + 1,
                std::memory_order_release);
}

void Session_calls::cancel() {
  const std::lock_guard<std::mutex> lock(watch.mutex());
  if (!watch.has(this)) return;
  cancelled_ = true;
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
