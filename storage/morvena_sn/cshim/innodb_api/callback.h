// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/callback.h
  The sink of a read that hands its batches to a callback.
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

/** Whom batches go to. */
struct Load_callback {
  Parallel_load_fn fn = nullptr;
  void *argument = nullptr;
};

/** What became of a batch. */
enum class Load_answer {
  GO_ON,
  STOP,   // the callback has refused
  THROWN  // the callback has thrown; the failure says so
};

/** One worker's sink: its batch, and whom it goes to when it is full. */
class Batch_sender {
 public:
  /** @param state  where the read tells of itself; outlives the sender, as the
                    plan does
      Throws std::bad_alloc. */
  Batch_sender(const Read_plan &plan, size_t worker,
               const Load_callback &callback, Call_state *state);
  Batch_sender(const Batch_sender &) = delete;
  Batch_sender &operator=(const Batch_sender &) = delete;

  /** The session of the thread that works. */
  void set_session(THD *session) { batch_->set_session(session); }

  /** Store a row, handing a full batch over first. */
  [[nodiscard]] dberr_t process_row(const Row_version &version);
  /** Tell of the rows and of one page more. */
  void end_page();
  /** Tell of the rows that no page's end has told of. */
  void end_unit();
  /** Hand the waiting rows over, if there are any. */
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
  size_t n_told_ = 0;     // rows that the progress has
  size_t n_counted_ = 0;  // rows that the process's counters have
  size_t n_pages_ = 0;    // that they do not have
};

#endif  // MORVENA_SN_INNODB_API_CALLBACK_H
