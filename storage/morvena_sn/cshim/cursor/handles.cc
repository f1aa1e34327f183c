// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Handles: the list of open ones, and closing them.

#include "cursor/handles.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "common.h"
#include "common/counters.h"
#include "common/thread_row.h"
#include "cursor/open.h"
#include "host.h"

namespace {

using namespace std::chrono_literals;

// How long the closing at shutdown waits for calls to return.
constexpr auto call_limit = 5s;
// Longer than any store stays in a processor's buffer.
constexpr auto store_visible_after = 10ms;

std::mutex open_handles_mutex;
std::unordered_set<CursorWrapper *> open_handles;  // under open_handles_mutex

bool membarrier(int command) {
  return syscall(SYS_membarrier, command, 0, 0) == 0;
}

// Every thread's earlier stores are visible here when this returns.
void pass_barrier_in_every_thread() {
  // The kernel wants to know beforehand that the process will ask.
  if (membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) &&
      membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) {
    return;
  }
  std::this_thread::sleep_for(store_visible_after);
}

void unlist(CursorWrapper *wrapper) {
  const std::lock_guard<std::mutex> lock(open_handles_mutex);
  open_handles.erase(wrapper);
}

void release(CursorWrapper *wrapper) {
  wrapper->calls->unlist();
  const thread_row::Bound row(wrapper->thd);
  row.enter(thread_row::State::CLOSING);
  counters::add(Tally::CURSORS_OPEN, -1);
  CommonApi::thd_attach(wrapper->thd, nullptr);
  wrapper->drop_cursor();
  wrapper->state.failure.end();
  CommonApi::unlock_table(wrapper->thd, wrapper->table);
  CommonApi::close_thd(wrapper->thd);
}

bool wait_for_calls(const CursorWrapper *wrapper,
                    std::chrono::steady_clock::time_point give_up) {
  while (wrapper->inside != 0 ||
         wrapper->reads_value.load(std::memory_order_acquire)) {
    if (std::chrono::steady_clock::now() > give_up) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

std::vector<CursorWrapper *> take_open_handles() {
  const std::lock_guard<std::mutex> lock(open_handles_mutex);
  std::vector<CursorWrapper *> handles(open_handles.begin(),
                                       open_handles.end());
  open_handles.clear();
  return handles;
}

}  // namespace

Call::Call(CursorWrapper *wrapper) : wrapper_(wrapper) {
  wrapper->state.failure.clear();
  // Ask before the cursor's session becomes the thread's.
  const uint32_t client = CommonApi::calling_client();
  CommonApi::thd_attach(wrapper->thd, nullptr);
  may_go_on_ = wrapper->calls->begin(client);
  if (!may_go_on_) wrapper->state.failure.set_interrupted();
}

Call::~Call() {
  const Failure &failure = wrapper_->state.failure;
  wrapper_->calls->end(failure.is_interruption());
  failure.count();
}

void Call::out_of_memory() {
  wrapper_->state.failure.raise(ER_OOM, "Out of memory");
}

void list_handle(CursorWrapper *wrapper) {
  const std::lock_guard<std::mutex> lock(open_handles_mutex);
  open_handles.insert(wrapper);
}

void close_handle(CursorWrapper *wrapper) {
  if (!wrapper->open.exchange(false)) return;
  unlist(wrapper);
  release(wrapper);
}

// A call that does not come back keeps its cursor: taking that away would crash
// the server for certain.
void close_leftover_handles() {
  for (const uint32_t donor : CommonApi::donors()) close_donor(donor);
  std::vector<CursorWrapper *> ours;
  for (CursorWrapper *wrapper : take_open_handles()) {
    if (wrapper->open.exchange(false)) ours.push_back(wrapper);
  }
  if (ours.empty()) return;
  pass_barrier_in_every_thread();
  const auto give_up = std::chrono::steady_clock::now() + call_limit;
  for (CursorWrapper *wrapper : ours) {
    if (wait_for_calls(wrapper, give_up)) release(wrapper);
  }
}
