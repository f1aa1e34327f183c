// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// callback: hands a batch to the caller's function.
// In: the worker's stored rows. Out: the caller's answer: go on, or stop.
// Holds: what the worker holds, mostly its leaf page. Threads: any worker, at
// the same time. Fails: the callback stops the read, or throws.

#include "innodb_api/callback.h"

#include <new>

#include "common.h"
#include "common/counters.h"
#include "innodb_api/in_callback.h"

namespace {

// Pages are added to the process's counters in steps of this many.
constexpr size_t pages_between_counts = 64;

// A number, not a flag: a callback may run a parallel read through another open
// handle, and that read calls its own callback in this thread.
thread_local size_t callbacks_entered = 0;

struct Callback_mark {
  Callback_mark() { ++callbacks_entered; }
  ~Callback_mark() { --callbacks_entered; }
  Callback_mark(const Callback_mark &) = delete;
  Callback_mark &operator=(const Callback_mark &) = delete;
};

}  // namespace

bool in_callback() { return callbacks_entered > 0; }

Batch_sender::Batch_sender(const Read_plan &plan, size_t worker,
                           const Load_callback &callback, Call_state *state)
    : plan_(plan),
      callback_(callback),
      state_(state),
      batch_(ThreadCtx::init_thread_ctx(plan, worker)) {
  if (batch_ == nullptr) throw std::bad_alloc();
}

// If the callback stops the read, the row is still stored and counted.
dberr_t Batch_sender::process_row(const Row_version &version) {
  dberr_t err = DB_SUCCESS;
  if (batch_->is_full()) {
    if (send_batch() != Load_answer::GO_ON) {
      state_->failure.set(er_callback_stopped, "The callback stopped the read");
      err = DB_ERROR;
    }
    batch_->clear();
  }
  if (!batch_->store_row(version)) {
    // As in SQL, leave out a row whose values are not written yet.
    if (plan_.reads_uncommitted()) return err;
    state_->failure.raise(ER_CHECKREAD,
                          "Cannot read a value that the donor is writing");
    return DB_ERROR;
  }
  ++n_read_;
  return err;
}

Load_answer Batch_sender::send_batch() {
  if (batch_->is_empty()) return Load_answer::GO_ON;
  batch_->show();
  counters::count(Tally::BATCHES);
  Load_answer answer = Load_answer::THROWN;
  try {
    const Callback_mark mark;
    const bool stop = callback_.fn(reinterpret_cast<uint64_t>(batch_.get()),
                                   worker(), callback_.argument);
    answer = stop ? Load_answer::STOP : Load_answer::GO_ON;
  } catch (...) {
    state_->failure.set(er_callback_stopped, "The callback threw an exception");
  }
  CommonApi::attach_over_own(batch_->session());
  return answer;
}

void Batch_sender::end_page() {
  if (++n_pages_ == pages_between_counts) count();
  state_->progress.pages.fetch_add(1, std::memory_order_relaxed);
  tell_progress();
}

void Batch_sender::end_unit() {
  tell_progress();
  count();
}

// All workers add to the same progress, so each adds only its new rows.
void Batch_sender::tell_progress() {
  state_->progress.rows.fetch_add(n_read_ - n_told_, std::memory_order_relaxed);
  n_told_ = n_read_;
}

void Batch_sender::count() {
  counters::add(Tally::ROWS_READ, static_cast<int64_t>(n_read_ - n_counted_));
  counters::add(Tally::PAGES_READ, static_cast<int64_t>(n_pages_));
  n_counted_ = n_read_;
  n_pages_ = 0;
}
