// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/callback.h
  A worker's sink: it fills a batch and hands full batches to the callback.
*/

#ifndef MORVENA_SN_INNODB_API_CALLBACK_H
#define MORVENA_SN_INNODB_API_CALLBACK_H

#include <cstddef>
#include <cstdint>

#include "common/call_state.h"
#include "innodb_api/batch.h"
#include "innodb_api/plan.h"
#include "innodb_api/row_version.h"

/** The load callback: (batch handle, worker number, the caller's argument);
    true stops the whole read. */
using Parallel_load_fn = bool (*)(uint64_t handle, uint64_t thread_id,
                                  void *argument);

/** The function that gets the batches. */
struct Load_callback {
  Parallel_load_fn fn = nullptr;
  void *argument = nullptr;
};

/** What became of a batch. */
enum class Load_answer {
  GO_ON,
  STOP,   // the callback asked to stop the read
  THROWN  // the callback threw; the read's failure says so
};

/** One worker's sink: its batch, and the callback that gets it when full. */
class Batch_sender {
 public:
  /** @param state  where the read reports progress and failure; it and the
                    plan outlive the sender
      Throws std::bad_alloc. */
  Batch_sender(const Read_plan &plan, size_t worker,
               const Load_callback &callback, Call_state *state);
  Batch_sender(const Batch_sender &) = delete;
  Batch_sender &operator=(const Batch_sender &) = delete;

  /** Set the session of the worker's thread. */
  void set_session(THD *session) { batch_->set_session(session); }

  /** Store a row. If the batch is full, hand it to the callback first. */
  [[nodiscard]] dberr_t process_row(const Row_version &version);
  /** Report one more page and the rows stored from it. */
  void end_page();
  /** Report the rows that end_page() has not reported. */
  void end_unit();
  /** Hand the stored rows to the callback, if there are any. */
  [[nodiscard]] Load_answer send_batch();

  size_t worker() const { return batch_->id(); }
  /** Rows stored, in all batches. */
  size_t n_read() const { return n_read_; }

 private:
  void tell_progress();
  void count();

  const Read_plan &plan_;
  const Load_callback callback_;
  Call_state *const state_;
  const ThreadCtx::Owner batch_;
  size_t n_read_ = 0;
  size_t n_told_ = 0;     // rows added to the read's progress
  size_t n_counted_ = 0;  // rows added to the process's counters
  size_t n_pages_ = 0;    // pages not yet added to those counters
};

#endif  // MORVENA_SN_INNODB_API_CALLBACK_H
