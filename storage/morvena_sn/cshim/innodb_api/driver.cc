// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// driver: runs a read: reserves threads, cuts the range, joins the workers.
// In: a plan, a range and a callback. Out: the result of the read. Holds:
// threads of the budget and the index latch, both given back before the result.
// Threads: the caller's, which waits for its workers. Fails: any worker's
// failure, no threads or memory, a kill.

#include <algorithm>
#include <cstdio>
#include <future>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "common.h"
#include "common/counters.h"
#include "common/pool.h"
#include "common/thread_row.h"
#include "innodb_api.h"
#include "innodb_api/callback.h"
#include "innodb_api/descent.h"
#include "innodb_api/latch.h"
#include "innodb_api/partition.h"
#include "innodb_api/queue.h"
#include "innodb_api/stop.h"
#include "innodb_api/traverse.h"

namespace {

// A worker keeps one page and waits for another. As many again are left to the
// rest of the server.
constexpr size_t pool_pages_per_worker = 4;

// The number of reserved threads that are too many for the buffer pool. If the
// pages that workers keep filled the pool, neither they nor anybody else would
// get another page.
size_t n_beyond_the_buffer_pool() {
  const size_t bearable = buf_pool_get_n_pages() / pool_pages_per_worker;
  const size_t reserved = ThreadBudget::s_active_threads;
  return reserved > bearable ? reserved - bearable : 0;
}

// The threads that one read reserves. Handing the work to a single thread gains
// nothing, so the calling thread then reads alone.
class Reserved_threads {
 public:
  explicit Reserved_threads(size_t wanted)
      : n_(ThreadBudget::available_threads(wanted)) {
    give_back(std::min(n_, n_beyond_the_buffer_pool()));
    if (n_ == 1) give_back(1);
  }
  ~Reserved_threads() { give_back(n_); }
  Reserved_threads(const Reserved_threads &) = delete;
  Reserved_threads &operator=(const Reserved_threads &) = delete;
  size_t count() const { return n_; }

 private:
  void give_back(size_t n) {
    if (n > 0) ThreadBudget::release_threads(n);
    n_ -= n;
  }
  size_t n_;
};

// Describes a worker in its row of performance_schema.threads.
void tell(const thread_row::Bound &row, size_t worker, const THD *cursors,
          const TABLE *table, const char *index_name) {
  char text[2 * NAME_LEN + 64];
  snprintf(text, sizeof text, "worker %zu on %.*s index %.*s of session %u",
           worker, NAME_LEN, table->s->table_name.str, NAME_LEN, index_name,
           static_cast<uint>(cursors->thread_id()));
  row.tell(table->s->db.str, text);
  row.enter(thread_row::State::READING);
}

// A session for a worker's thread, with the settings of the cursor's session.
class Worker_session {
 public:
  Worker_session(size_t worker, const THD *cursors, const TABLE *table,
                 const char *index_name)
      : thd_(CommonApi::create_thd(Session_role::WORKER)), row_(thd_) {
    if (thd_ == nullptr) throw std::bad_alloc();
    CommonApi::copy_settings(cursors, thd_);
    tell(row_, worker, cursors, table, index_name);
  }
  ~Worker_session() { CommonApi::close_thd(thd_); }
  Worker_session(const Worker_session &) = delete;
  Worker_session &operator=(const Worker_session &) = delete;
  THD *get() const { return thd_; }

 private:
  THD *const thd_;
  const thread_row::Bound row_;
  const counters::Running running_{Tally::WORKERS_RUNNING};
};

// Reports in words how the read ended. A failure that was reported before, by
// the callback or by reading a value, stays.
void tell_end(dberr_t err, Failure *failure) {
  if (err == DB_SUCCESS) {
    // Nothing was left to stop when the callback refused a last batch.
    failure->clear();
    return;
  }
  if (err == DB_INTERRUPTED) {
    failure->set_interrupted();
    return;
  }
  const std::string text =
      std::string("Parallel scan failed: ") + ut_strerr(err);
  if (err != DB_ERROR) write_to_log(text.c_str());
  if (err == DB_OUT_OF_MEMORY) {
    failure->set(ER_OOM, "Out of memory");
  } else {
    failure->set(ER_GET_ERRNO, text.c_str());
  }
}

// One run of a read: its units and its workers.
class Parallel_run {
 public:
  Parallel_run(const Read_plan &plan, const Range &range,
               const Load_callback &callback, Call_state *state)
      : plan_(plan),
        range_(range),
        callback_(callback),
        state_(state),
        latch_(plan.tree.index),
        stop_(plan.trx) {}
  Parallel_run(const Parallel_run &) = delete;
  Parallel_run &operator=(const Parallel_run &) = delete;

  dberr_t run(size_t n_threads);

 private:
  void cut_and_read(size_t n_threads);
  void parallel_read(size_t n_threads);
  void submit_workers();
  void parallel_read_worker(Batch_sender *sender);
  void work_until_done(Batch_sender *sender);
  dberr_t read_unit(const Ctx &ctx, Batch_sender *sender);
  void fail(dberr_t err);
  void report(size_t n_threads) const;

  const Read_plan &plan_;
  const Range &range_;
  const Load_callback &callback_;
  Call_state *const state_;
  Index_latch latch_;
  Read_stop stop_;
  Unit_queue queue_;
  std::vector<std::unique_ptr<Batch_sender>> senders_;  // one for each worker
  std::vector<std::future<void>> parallel_threads_;
};

dberr_t Parallel_run::run(size_t n_threads) {
  state_->progress.restart(host::n_leaf_pages(plan_.tree.index));
  const Reserved_threads threads(n_threads);
  const Index_latch::Hold hold(&latch_);
  try {
    cut_and_read(threads.count());
  } catch (...) {
    fail(DB_OUT_OF_MEMORY);
  }
  for (std::future<void> &worker : parallel_threads_) worker.wait();
  if (threads.count() > 0) report(threads.count());
  // A kill is reported even if there was nothing to read.
  const dberr_t err = stop_.get_error() != DB_SUCCESS ? stop_.get_error()
                                                      : stop_.reason_to_stop();
  tell_end(err, &state_->failure);
  return err;
}

void Parallel_run::cut_and_read(size_t n_threads) {
  const dberr_t err = setup_ctx(plan_.tree, stop_, range_, n_threads, &queue_);
  if (err != DB_SUCCESS) fail(err);
  // Waking workers takes longer than reading a single page.
  parallel_read(is_one_page(plan_.tree) ? 0 : n_threads);
}

void Parallel_run::parallel_read(size_t n_threads) {
  const size_t n_senders = n_threads > 0 ? n_threads : 1;
  senders_.reserve(n_senders);
  parallel_threads_.reserve(n_threads);
  for (size_t i = 0; i < n_senders; ++i) {
    senders_.push_back(
        std::make_unique<Batch_sender>(plan_, i, callback_, state_));
  }
  if (n_threads > 0) {
    submit_workers();
  } else {
    queue_.open();
    parallel_read_worker(senders_[0].get());
  }
}

void Parallel_run::submit_workers() {
  try {
    const ThreadPool::Hold hold;
    ThreadPool *const pool = hold.get();
    if (pool == nullptr) throw std::bad_alloc();
    for (const std::unique_ptr<Batch_sender> &sender : senders_) {
      parallel_threads_.push_back(pool->submit(
          [this, sender = sender.get()] { parallel_read_worker(sender); }));
    }
    queue_.open();
  } catch (...) {
    // There is no thread or no memory, or the pool has stopped. Workers that
    // have started take no unit.
    fail(DB_OUT_OF_MEMORY);
  }
}

void Parallel_run::parallel_read_worker(Batch_sender *sender) {
  THD *cursors = plan_.trx->mysql_thd;
  try {
    if (senders_.size() == 1) {
      sender->set_session(cursors);
      work_until_done(sender);
      return;
    }
    const Worker_session session(sender->worker(), cursors, plan_.mysql_table,
                                 plan_.tree.index->name());
    sender->set_session(session.get());
    work_until_done(sender);
  } catch (...) {
    fail(DB_OUT_OF_MEMORY);
  }
}

void Parallel_run::work_until_done(Batch_sender *sender) {
  while (queue_.wait_for_unit()) {
    const std::shared_ptr<Ctx> ctx = queue_.deque();
    if (ctx == nullptr) continue;
    dberr_t err = read_unit(*ctx, sender);
    if (err == DB_SUCCESS) err = stop_.reason_to_stop();
    if (err != DB_SUCCESS) return fail(err);
    queue_.complete();
  }
  if (stop_.get_error() != DB_SUCCESS) return;
  // The last, partial batch. Nothing is left to stop, so STOP has no effect.
  if (sender->send_batch() == Load_answer::THROWN) fail(DB_ERROR);
}

dberr_t Parallel_run::read_unit(const Ctx &ctx, Batch_sender *sender) {
  const Index_latch::In_tree in_tree(&latch_);
  if (ctx.split_) {
    return split_ctx(plan_.tree, stop_, ctx, senders_.size(), &queue_);
  }
  const dberr_t err =
      Traversal(plan_, stop_, &latch_, ctx.range_, sender).traverse();
  sender->end_unit();
  return err;
}

// The other workers stop at their next check.
void Parallel_run::fail(dberr_t err) {
  stop_.set_error(err);
  queue_.close();
}

void Parallel_run::report(size_t n_threads) const {
  for (size_t id = 0; id < n_threads; ++id) {
    const size_t n_read = id < senders_.size() ? senders_[id]->n_read() : 0;
    std::cout << "thread(" << id << ") read tuples: " << n_read << std::endl;
  }
}

}  // namespace

bool ParallelIndexReader::run(size_t n_threads) {
  counters::count(Tally::PARALLEL_READS);
  const counters::Running running(Tally::PARALLEL_READS_RUNNING);
  error_ = Parallel_run(*plan_, range_, callback_, state_).run(n_threads);
  return error_ == DB_SUCCESS;
}
