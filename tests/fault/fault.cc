// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only
#include "fault.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>

namespace fault {

namespace {

constexpr size_t never = std::numeric_limits<size_t>::max();

std::atomic<bool> armed{false};
std::atomic<size_t> allocations_left{never};
std::atomic<bool> failed{false};
std::atomic<size_t> threads_left{never};
std::atomic<size_t> refused{0};

std::mutex places_mutex;
std::set<const void *> failed_places;  // under places_mutex

// @return whether this allocation is the one that fails
bool fails(const void *place) {
  if (!armed || --allocations_left != 0) return false;
  failed = true;
  armed = false;
  const std::lock_guard<std::mutex> lock(places_mutex);
  failed_places.insert(place);
  return true;
}

}  // namespace

Failing_allocation::Failing_allocation(size_t n) {
  failed = false;
  allocations_left = n;
  armed = true;
}

Failing_allocation::~Failing_allocation() { armed = false; }

bool has_failed() { return failed; }

size_t places() {
  const std::lock_guard<std::mutex> lock(places_mutex);
  return failed_places.size();
}

Failing_threads::Failing_threads(size_t n) {
  refused = 0;
  threads_left = n;
}

Failing_threads::~Failing_threads() { threads_left = never; }

size_t threads_refused() { return refused; }

namespace {

// @return whether a thread may start
bool take_thread() {
  size_t left = threads_left;
  while (left != never && left != 0 &&
         !threads_left.compare_exchange_weak(left, left - 1)) {
  }
  if (left == 0) ++refused;
  return left != 0;
}

}  // namespace

}  // namespace fault

// The linker's option --wrap=NAME sends calls of NAME to __wrap_NAME, and calls
// of __real_NAME to the real NAME. NAME is a mangled name.
extern "C" {

void *__real__Znwm(size_t bytes);
void *__real__Znam(size_t bytes);
void *__real__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t &tag);
void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread *thread, std::unique_ptr<std::thread::_State> state,
    void (*depend)());

void *__wrap__Znwm(size_t bytes) {
  if (fault::fails(__builtin_return_address(0))) throw std::bad_alloc();
  return __real__Znwm(bytes);
}

void *__wrap__Znam(size_t bytes) {
  if (fault::fails(__builtin_return_address(0))) throw std::bad_alloc();
  return __real__Znam(bytes);
}

void *__wrap__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t &tag) {
  if (fault::fails(__builtin_return_address(0))) return nullptr;
  return __real__ZnwmRKSt9nothrow_t(bytes, tag);
}

void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread *thread, std::unique_ptr<std::thread::_State> state,
    void (*depend)()) {
  if (!fault::take_thread())
    throw std::system_error(
        std::make_error_code(std::errc::resource_unavailable_try_again));
  __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
      thread, std::move(state), depend);
}

}  // extern "C"
