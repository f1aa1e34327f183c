// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor/handles.h
  What a handle points to, and how an exported function uses one.

  A wrapper is never freed, so that a closed handle is recognised for good. Open
  wrappers are listed: what an embedder leaves open at shutdown is closed from
  the list.
*/

#ifndef MORVENA_SN_CURSOR_HANDLES_H
#define MORVENA_SN_CURSOR_HANDLES_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "common/call_state.h"
#include "common/calls.h"
#include "common/snapshot.h"

class THD;
struct TABLE;

enum class Handle_kind : uint32_t { INDEX_CURSOR = 0x1dcc, SEQSCAN = 0x5eca };

/** What a call does with a handle. */
enum class Use : uint32_t {
  LOOK = 1,            // at what stays the same while the handle is open
  PARALLEL = 1 << 30,  // read in parallel: others may look meanwhile
  ALONE = 1U << 31     // move, set or close: nobody else is inside
};

/** What a cursor is made on. */
struct Opened {
  THD *thd;              // attached
  TABLE *table;          // locked
  Session_calls *calls;  // of the session
  Snapshot snapshot;     // of the session's transaction
};

/**
  The part that all wrappers share. It owns its session and, through it, the
  locked table.

  A call enters before it looks at anything else. If others are inside beside
  whom it cannot run, it answers with its failure result. The closing at
  shutdown clears `open` and then waits until nobody is inside: of a call and
  the closing, whichever comes second sees the other.

  Typed reads are many to a row. They only set reads_value, with a plain store,
  and look whether anybody is inside; to see them the closing lets every thread
  pass a memory barrier. They do not keep each other out.
*/
struct CursorWrapper {
  CursorWrapper(Handle_kind handle_kind, const Opened &opened)
      : thd(opened.thd),
        table(opened.table),
        kind(handle_kind),
        calls(opened.calls),
        first_snapshot(opened.snapshot) {}
  virtual ~CursorWrapper() = default;
  /** Destroy the cursor; its session is attached. */
  virtual void drop_cursor() = 0;

  /** @return whether a call may go on. */
  [[nodiscard]] bool enter(Use use);
  void leave(Use use);

  THD *const thd;
  TABLE *const table;
  const Handle_kind kind;
  Session_calls *const calls;
  const Snapshot first_snapshot;         // from the opening
  Call_state state;                      // of the last call
  std::atomic<bool> open{true};          // cleared once, by whoever closes
  std::atomic<uint32_t> inside{0};       // sum of the uses
  std::atomic<bool> reads_value{false};  // release at the end of a typed read
};

inline bool CursorWrapper::enter(Use use) {
  const auto mine = static_cast<uint32_t>(use);
  uint32_t others = 0;
  if (use != Use::LOOK) {
    if (!inside.compare_exchange_strong(others, mine)) return false;
  } else {
    do {
      if ((others & static_cast<uint32_t>(Use::ALONE)) != 0) return false;
    } while (!inside.compare_exchange_weak(others, others + mine));
  }
  if (open && !reads_value.load(std::memory_order_relaxed)) return true;
  leave(use);
  return false;
}

inline void CursorWrapper::leave(Use use) {
  // Nobody enters beside a call that is alone.
  if (use == Use::ALONE) {
    inside.store(0, std::memory_order_release);
  } else {
    inside.fetch_sub(static_cast<uint32_t>(use));
  }
}

/** List an open wrapper. May throw std::bad_alloc. */
void list_handle(CursorWrapper *wrapper);

/** Close a handle: cursor, table, session. Nothing for one that is closed. */
void close_handle(CursorWrapper *wrapper);

/** Close the handles and snapshots that an embedder has left open. The sessions
    have been interrupted; a call that does not return in time keeps its cursor.
 */
void close_leftover_handles();

/** A handle's wrapper; null for a null handle and one of another kind.
    CursorWrapper itself stands for all kinds. */
template <class Wrapper>
Wrapper *wrapper_of(uintptr_t handle) {
  auto *head = reinterpret_cast<CursorWrapper *>(handle);
  if (head == nullptr) return nullptr;
  if constexpr (std::is_same_v<Wrapper, CursorWrapper>) {
    const bool is_known = head->kind == Handle_kind::INDEX_CURSOR ||
                          head->kind == Handle_kind::SEQSCAN;
    return is_known ? head : nullptr;
  } else {
    return head->kind == Wrapper::handle_kind ? static_cast<Wrapper *>(head)
                                              : nullptr;
  }
}

/** The use of a handle for the length of a call; false for one that is null,
    closed, of another kind or used by another call. */
template <class Wrapper, Use use>
class Handle_use {
 public:
  explicit Handle_use(uintptr_t handle)
      : wrapper_(wrapper_of<Wrapper>(handle)) {
    if (wrapper_ != nullptr && !wrapper_->enter(use)) wrapper_ = nullptr;
  }
  ~Handle_use() {
    if (wrapper_ != nullptr) wrapper_->leave(use);
  }
  Handle_use(const Handle_use &) = delete;
  Handle_use &operator=(const Handle_use &) = delete;

  explicit operator bool() const { return wrapper_ != nullptr; }
  Wrapper *operator->() const { return wrapper_; }
  Wrapper *get() const { return wrapper_; }

 private:
  Wrapper *wrapper_;
};

/**
  A call that may wait or read: the session is the thread's, the last call's
  failure is forgotten, and others can end the call from now on.
*/
class Call {
 public:
  explicit Call(CursorWrapper *wrapper);
  ~Call();
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  /** @return false if it was ended before it began; the failure says so */
  explicit operator bool() const { return may_go_on_; }
  /** Run a function that may throw; what it throws becomes the failure result.
   */
  template <class Function>
  bool run(bool failure, Function function) {
    try {
      return function();
    } catch (...) {
      out_of_memory();
      return failure;
    }
  }

 private:
  void out_of_memory();

  CursorWrapper *wrapper_;
  bool may_go_on_;
};

/** The use of a handle for the length of a typed read. */
template <class Wrapper>
class Value_use {
 public:
  explicit Value_use(uintptr_t handle) : wrapper_(wrapper_of<Wrapper>(handle)) {
    if (wrapper_ == nullptr) return;
    wrapper_->reads_value.store(true, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (wrapper_->open.load(std::memory_order_acquire) &&
        wrapper_->inside.load(std::memory_order_acquire) == 0) {
      return;
    }
    wrapper_->reads_value.store(false, std::memory_order_release);
    wrapper_ = nullptr;
  }
  ~Value_use() {
    if (wrapper_ == nullptr) return;
    wrapper_->reads_value.store(false, std::memory_order_release);
  }
  Value_use(const Value_use &) = delete;
  Value_use &operator=(const Value_use &) = delete;

  explicit operator bool() const { return wrapper_ != nullptr; }
  Wrapper *operator->() const { return wrapper_; }

 private:
  Wrapper *wrapper_;
};

#endif  // MORVENA_SN_CURSOR_HANDLES_H
