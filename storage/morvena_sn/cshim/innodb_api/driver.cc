// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// driver: the rooms together: reserve, cut, work, join, result.
// In: a reader with its range and callback. Out: whether the read ended well.
// Holds: threads of the budget and the index latch, both given back before the
// result. Threads: the caller's, which waits for its workers. Fails: any
// worker's failure, threads or memory that cannot be had, a kill.

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <new>
#include <string>

#include "common.h"
#include "common/counters.h"
#include "common/thread_row.h"
#include "innodb_api.h"
#include "innodb_api/scope.h"

namespace {

// The page that a worker keeps, the one that it waits for, and as much again
// for everybody else.
constexpr size_t pool_pages_per_worker = 4;

// How many of the process's workers are too many for the buffer pool: once the
// pages that they keep fill it, none of them gets another, and nobody else
// does.
size_t n_beyond_the_buffer_pool() {
  const size_t bearable = buf_pool_get_n_pages() / pool_pages_per_worker;
  const size_t reserved = ThreadBudget::s_active_threads;
  return reserved > bearable ? reserved - bearable : 0;
}

// The threads of one read. A single one is not worth a hand-over: the calling
// thread then reads alone.
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

// What a worker's row in performance_schema.threads says.
void tell(const thread_row::Bound &row, size_t worker, const THD *cursors,
          const TABLE *table, const char *index_name) {
  char text[2 * NAME_LEN + 64];
  snprintf(text, sizeof text, "worker %zu on %.*s index %.*s of session %u",
           worker, NAME_LEN, table->s->table_name.str, NAME_LEN, index_name,
           static_cast<uint>(cursors->thread_id()));
  row.tell(table->s->db.str, text);
  row.enter(thread_row::State::READING);
}

// A session for a worker's thread, with the settings of the cursor's.
class Worker_session {
 public:
  Worker_session(size_t worker, const THD *cursors, const TABLE *table,
                 const char *index_name)
      : thd_(static_cast<THD *>(CommonApi::create_thd(Session_role::WORKER))),
        row_(thd_) {
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

void report(const std::vector<ThreadCtx *> &workers, size_t n_threads) {
  for (size_t id = 0; id < n_threads; ++id) {
    const size_t n_read = id < workers.size() ? workers[id]->n_read_ : 0;
    std::cout << "thread(" << id << ") read tuples: " << n_read << std::endl;
  }
}

}  // namespace

bool ParallelIndexReader::run(size_t n_threads) {
  counters::count(Tally::PARALLEL_READS);
  const counters::Running running(Tally::PARALLEL_READS_RUNNING);
  state_->progress.restart(host::n_leaf_pages(index_));
  const Reserved_threads threads(n_threads);
  index_s_lock();
  try {
    setup_ctx(threads.count());
    // Waking workers takes longer than to read a page.
    parallel_read(is_one_page() ? 0 : threads.count());
  } catch (...) {
    set_error(DB_OUT_OF_MEMORY);
    os_event_set(event_);
  }
  for (std::future<void> &worker : parallel_threads_) worker.wait();
  if (threads.count() > 0) report(thread_ctxs_, threads.count());
  // A kill counts also where there was nothing to read.
  if (get_error() == DB_SUCCESS && trx_is_interrupted(trx_)) {
    set_error(DB_INTERRUPTED);
  }
  const dberr_t err = get_error();
  tell_end(err);
  index_s_unlock();
  return err == DB_SUCCESS;
}

// In words. What a callback or a value's reading has reported stays.
void ParallelIndexReader::tell_end(dberr_t err) {
  Failure &failure = state_->failure;
  if (err == DB_SUCCESS) {
    // The answer to a last batch stops nothing.
    failure.clear();
    return;
  }
  if (err == DB_INTERRUPTED) {
    failure.set_interrupted();
    return;
  }
  const std::string text =
      std::string("Parallel scan failed: ") + ut_strerr(err);
  if (err != DB_ERROR) write_to_log(text.c_str());
  if (err == DB_OUT_OF_MEMORY) {
    failure.set(ER_OOM, "Out of memory");
  } else {
    failure.set(ER_GET_ERRNO, text.c_str());
  }
}

// Once a page: workers share what they add to.
void ParallelIndexReader::tell_progress(ThreadCtx *tctx, uint64_t n_pages) {
  Progress &progress = state_->progress;
  progress.pages.fetch_add(n_pages, std::memory_order_relaxed);
  progress.rows.fetch_add(tctx->n_read_ - tctx->n_told_,
                          std::memory_order_relaxed);
  tctx->n_told_ = tctx->n_read_;
}

// Under the read's latch, but others may add pages at any time.
bool ParallelIndexReader::is_one_page() const {
  Read_mtr mtr;
  const buf_block_t *root = host::page_get_s_latched(
      page_id_t(index_->space, index_->page), page_size_, mtr.start());
  return page_is_leaf(buf_block_get_frame(root));
}

void ParallelIndexReader::parallel_read(size_t n_threads) {
  const size_t n_contexts = n_threads > 0 ? n_threads : 1;
  thread_ctxs_.reserve(n_contexts);
  parallel_threads_.reserve(n_threads);
  for (size_t i = 0; i < n_contexts; ++i) {
    ThreadCtx *tctx = init_thread_ctx(i);
    if (tctx == nullptr) {
      set_error(DB_OUT_OF_MEMORY);
      return;
    }
    thread_ctxs_.push_back(tctx);
  }
  if (n_threads == 0) {
    os_event_set(event_);
    parallel_read_worker(thread_ctxs_[0]);
    return;
  }
  try {
    const ThreadPool::Hold hold;
    ThreadPool *const pool = hold.get();
    if (pool == nullptr) throw std::bad_alloc();
    for (ThreadCtx *tctx : thread_ctxs_) {
      parallel_threads_.push_back(
          pool->submit([this, tctx] { parallel_read_worker(tctx); }));
    }
  } catch (...) {
    // No thread, no memory or a stopped pool. Workers that have started stop at
    // their next check.
    set_error(DB_OUT_OF_MEMORY);
  }
  // Releases the workers' first wait.
  os_event_set(event_);
}

void ParallelIndexReader::parallel_read_worker(ThreadCtx *tctx) {
  try {
    if (thread_ctxs_.size() == 1) {
      tctx->thd_ = trx_->mysql_thd;
      work_until_done(tctx, false);
      return;
    }
    os_event_wait_low(event_, static_cast<int64_t>(m_sig_count));
    const Worker_session session(tctx->id_, trx_->mysql_thd, mysql_table_,
                                 index_->name());
    tctx->thd_ = session.get();
    work_until_done(tctx, true);
  } catch (...) {
    set_error(DB_OUT_OF_MEMORY);
    os_event_set(event_);
  }
}

// The event's count is taken before the queue is looked at: a unit that comes
// in between ends the wait at once.
void ParallelIndexReader::work_until_done(ThreadCtx *tctx, bool waits) {
  for (;;) {
    const int64_t signals = os_event_reset(event_);
    const size_t n_done = take_units(tctx);
    if (get_error() != DB_SUCCESS) {
      os_event_set(event_);
      return;
    }
    completed_.fetch_add(n_done);
    // In this order: units are counted before those that they came from.
    const size_t n_completed = completed_.load();
    if (n_completed == ctx_id_.load()) {
      os_event_set(event_);
      // The last, partial batch; there is nothing left for its answer to stop.
      send_batch(tctx);
      return;
    }
    if (waits) os_event_wait_low(event_, signals);
  }
}

// @return how many units were read or split
size_t ParallelIndexReader::take_units(ThreadCtx *tctx) {
  size_t n_done = 0;
  while (get_error() == DB_SUCCESS) {
    const std::shared_ptr<Ctx> ctx = deque();
    if (ctx == nullptr) break;
    ctx->thread_ctx_ = tctx;
    if (ctx->split_) {
      const dberr_t err = split_ctx(ctx.get());
      if (err != DB_SUCCESS) set_error(err);
      os_event_set(event_);
    } else {
      traverse(ctx.get());
    }
    if (trx_is_interrupted(trx_)) {
      set_error(DB_INTERRUPTED);
      break;
    }
    ++n_done;
  }
  return n_done;
}

ParallelIndexReader::~ParallelIndexReader() {
  latch_.release();
  if (prebuilt_ != nullptr) row_prebuilt_free(prebuilt_, false);
  for (ThreadCtx *tctx : thread_ctxs_) deinit_thread_ctx(tctx);
  os_event_destroy(event_);
  mutex_destroy(&mutex_);
}
