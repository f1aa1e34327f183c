/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

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

enum class Handle_kind : uint32_t { INDEX_CURSOR = 0x1dcc, SEQSCAN = 0x5eca };

/**
  The part that all wrappers share. It owns its session and, through it, the
  locked table.

  A call and the closing at shutdown agree without a lock: the call raises
  in_call and then looks at open; the closing clears open, has every thread pass
  a memory barrier, and then waits for in_call. Whichever comes second sees the
  other. The call pays two plain stores.
*/
struct CursorWrapper {
  CursorWrapper(Handle_kind handle_kind, void *session, void *open_table)
      : thd(session), table(open_table), kind(handle_kind) {}
  virtual ~CursorWrapper() = default;
  /** Destroy the cursor; its session is attached. */
  virtual void drop_cursor() = 0;

  void *thd;
  void *table;
  const Handle_kind kind;
  std::atomic<bool> open{true};      // cleared once, by whoever closes
  std::atomic<bool> in_call{false};  // release at the end of a call
};

/** List an open wrapper. May throw std::bad_alloc. */
void list_handle(CursorWrapper *wrapper);

/** Close an open handle: cursor, table, session. @return false if it was closed
    already */
bool close_handle(CursorWrapper *wrapper);

/** The use of a handle for the length of a call; false for one that is null,
    closed or of another kind. */
template <class Wrapper>
class Handle_use {
 public:
  explicit Handle_use(uintptr_t handle) {
    auto *head = reinterpret_cast<CursorWrapper *>(handle);
    if (head == nullptr) return;
    was_in_call_ = head->in_call.load(std::memory_order_relaxed);
    head->in_call.store(true, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (head->open.load(std::memory_order_acquire) &&
        head->kind == Wrapper::handle_kind) {
      wrapper_ = static_cast<Wrapper *>(head);
    } else {
      head->in_call.store(was_in_call_, std::memory_order_release);
    }
  }
  ~Handle_use() {
    if (wrapper_ == nullptr) return;
    wrapper_->in_call.store(was_in_call_, std::memory_order_release);
  }
  Handle_use(const Handle_use &) = delete;
  Handle_use &operator=(const Handle_use &) = delete;

  explicit operator bool() const { return wrapper_ != nullptr; }
  Wrapper *operator->() const { return wrapper_; }
  Wrapper *get() const { return wrapper_; }

 private:
  Wrapper *wrapper_ = nullptr;
  bool was_in_call_ = false;
};

#endif  // MORVENA_SN_CURSOR_HANDLES_H
