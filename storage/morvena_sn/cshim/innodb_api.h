// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api.h
  The parallel reader of an InnoDB index.

  A ParallelIndexReader lives for one read. It is opened on a table and one of
  its indexes, given a range and a callback, run, and destroyed.

  The range is cut into contiguous sub-ranges by descending the B-tree once: a
  sub-range begins at a record that is pinned as a boundary, and ends before the
  next boundary. Each becomes a unit of work (Ctx) in a queue. Workers take
  units from it, walk their leaf pages, judge every record under the snapshot,
  convert the visible ones into the server's row format in a batch of their own,
  and hand full batches to the callback. The last units of a read are cut once
  more when a worker takes them, so that nobody idles at the end.

  Exactly once.  Boundaries are keys: a position that is taken up again, at a
  unit's start or after a yield, resumes at the first record at or after its
  key, whatever became of the record and its page meanwhile. Rows that come into
  being between are not visible to the snapshot.

  Latches.  The read holds its index's latch, shared and counted, from start to
  end. No worker asks for it again: a request that waits exclusively lets no new
  shared one through, so the worker would wait for the writer, the writer for
  the read and the read for the worker. Positions are therefore found by a
  descent of our own under the latch that the read holds. For such a waiter the
  workers park at their next page end, and the read lets the latch go until he
  has had it. A worker holds one leaf page at a time, and beside it what one
  row's look-up latches.

  End.  Units created and units completed are counted; the read is over when
  they are equal. The first failure goes into m_err and stops every worker at
  its next check.
*/

#ifndef MORVENA_SN_INNODB_API_H
#define MORVENA_SN_INNODB_API_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <future>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "common/call_state.h"
#include "common/pool.h"
#include "host.h"
#include "host/innodb.h"
#include "innodb_api/latch.h"
#include "innodb_api/record_layout.h"
#include "innodb_api/scope.h"
#include "innodb_api/stored_form.h"
#include "value_reader.h"

/** The load callback: (batch handle, worker number, the caller's argument);
    true stops the whole read. */
using Parallel_load_fn = bool (*)(uint64_t handle, uint64_t thread_id,
                                  void *argument);

/** One boundary of a range. It needs no latch: the record is copied, and the
    stored cursor position is a hint that its key replaces when it is stale. */
struct Iter {
  Iter() = default;
  ~Iter();
  Iter(const Iter &) = delete;
  Iter &operator=(const Iter &) = delete;

  mem_heap_t *heap_ = nullptr;      // owns all that follows, except for a bound
                                    // of the whole range, which has no heap
  const ulint *offsets_ = nullptr;  // of rec_
  const rec_t *rec_ = nullptr;      // copy
  const dtuple_t *tuple_ = nullptr;  // the key; null: no bound on this side
  bool include_ = true;              // whether a record equal to it belongs
  btr_pcur_t *pcur_ = nullptr;       // stored on the record; null without one
};

/** Start and end. */
using Range = std::pair<std::shared_ptr<Iter>, std::shared_ptr<Iter>>;

/** Pin the record under a page cursor as a boundary; its page is latched in
   mtr. On an empty page the boundary holds no record. May throw std::bad_alloc.
 */
std::shared_ptr<Iter> create_persistent_cursor(dict_index_t *index,
                                               const page_cur_t &page_cursor,
                                               mtr_t *mtr);

/** Order two keys by the lengths of their fields: of b, only the lengths are
    looked at. */
int cmp_dtuple(const dict_index_t *index, dtuple_t *a, dtuple_t *b);

struct ThreadCtx;

/** A unit of work: a sub-range that one worker reads or splits. */
struct Ctx {
  Ctx(size_t id, const Range &range) : id_(id), range_(range) {}

  size_t id_;           // unique within the reader
  bool split_ = false;  // to be cut into finer units instead of being read
  Range range_;
  ThreadCtx *thread_ctx_ = nullptr;  // of the worker that took it

  // What traverse() hands to process_row().
  const buf_block_t *block_ = nullptr;     // the leaf being read
  const rec_t *rec_ = nullptr;             // the visible version
  size_t n_pages_ = 0;                     // pages moved to, yields included
  bool first_rec_ = true;                  // no record handled yet
  ulint *offsets_ = nullptr;               // of rec_
  const Located_field *fields_ = nullptr;  // of rec_, a column each, in place
                                           // of offsets_ when not null
};

/** Where one column of the template comes from and goes to. */
struct Column_plan {
  Column_plan(const mysql_row_templ_t *column, ulint field_no)
      : templ(column),
        rec_field_no(field_no),
        row_offset(static_cast<uint32_t>(column->mysql_col_offset)),
        null_byte(static_cast<uint32_t>(column->mysql_null_byte_offset)),
        null_bit(static_cast<byte>(column->mysql_null_bit_mask)),
        length_bytes(static_cast<byte>(column->mysql_length_bytes)),
        form(stored_form(column)) {}

  /** The records may hold a prefix of a value of fixed length. */
  void fill_up(const CHARSET_INFO *charset) {
    filling = charset;
    form = Stored_form::HOSTS;
  }

  const mysql_row_templ_t *templ;
  const CHARSET_INFO *filling = nullptr;  // the rest of a value that is cut
  ulint rec_field_no;                     // in the records that are converted
  uint32_t row_offset;                    // of its value in a row
  uint32_t null_byte;                     // likewise
  byte null_bit;                          // 0: never null
  byte length_bytes;                      // of a VARCHAR in a row
  Stored_form form;                       // of its values in those records
};

/** What one worker owns. Its address is the batch handle of the callback. */
struct ThreadCtx {
  ThreadCtx() : root(PSI_NOT_INSTRUMENTED, 512) {}

  size_t id_ = 0;
  THD *thd_ = nullptr;          // the session of its thread
  MEM_ROOT root;                // of the Field copies
  std::vector<Field *> fields;  // by table position; null: not read
  ulint ncols_ = 0;             // table positions that the batch describes
  ulint row_len_ = 0;
  std::vector<ulint> col_offsets_;        // by table position, in a row
  std::vector<ulint> null_byte_offsets_;  // likewise
  std::vector<ulint> null_bitmasks_;      // likewise
  std::vector<Row_column> row_columns_;   // likewise: what reads look at
  std::unique_ptr<byte[]> buffer_;        // n_slots_ rows of row_len_ bytes
  size_t n_slots_ = 0;                    // grows to batch_size_
  size_t n_read_ = 0;                     // rows stored, all batches
  size_t n_sent_ = 0;                     // rows handed over
  size_t n_told_ = 0;                     // rows that the progress has
  size_t n_rows_ = 0;                     // rows in the batch handed over
  size_t batch_size_ = 0;
  mem_heap_t *blob_heap_ = nullptr;  // large values of the batch's rows
  Parallel_load_fn fn_ = nullptr;
  void *argument_ = nullptr;
  Value_reader value_reader_;
  lob::undo_vers_t lob_undo_;  // partial updates to take back from a large
                               // value of the version in hand
};

class ParallelIndexReader : public ThreadBudget {
 public:
  // --- pool: common/pool.cc ---
  using ThreadPool = ::ThreadPool;

  // --- open: innodb_api/open.cc ---

  /** @param state  where the read tells of itself; null: nowhere
      @return a reader of the index of that name, null for the clustered index;
      null when it cannot be read in parallel (the state says why) */
  static ParallelIndexReader *open(TABLE *table, const char *index_name,
                                   bool indexonly_scan,
                                   Call_state *state = nullptr);
  ~ParallelIndexReader();
  ParallelIndexReader(const ParallelIndexReader &) = delete;
  ParallelIndexReader &operator=(const ParallelIndexReader &) = delete;

  // --- range: innodb_api/range.cc ---

  /** Set the bounds, null for none. Their key images must outlive the reader.
   */
  void set_range_scan(const key_range *start, const key_range *end);

  // --- latch: innodb_api/latch.cc ---

  /** Hold the index latch, shared; counted, so that holders on any threads
     share one latch. */
  void index_s_lock();
  void index_s_unlock();

  // --- partition: innodb_api/partition.cc ---

  /** A page latched in a mini-transaction, and where in it. */
  using Savepoint = std::pair<ulint, buf_block_t *>;

  /** Cut the range into units for that many workers; 0: the calling thread. */
  void setup_ctx(size_t nthreads);
  /** Append sub-ranges of range found under a page. */
  dberr_t partition_range(const Range &range, page_no_t page_no,
                          std::vector<Range> &ranges, size_t depth,
                          size_t split_level, size_t nthreads, mtr_t *mtr);
  /** Descend to the first record at (or after, if not include) a key, which may
      lie beyond the subtree's; null: the first of the subtree. After the last
      of its page if there is none. */
  page_cur_t start_of_range(page_no_t page_no, mtr_t *mtr, const dtuple_t *key,
                            bool include,
                            std::vector<Savepoint> &savepoints) const;

  // --- queue: innodb_api/queue.cc ---

  void enqueue(std::shared_ptr<Ctx> ctx);
  /** @return the oldest unit, empty when there is none */
  std::shared_ptr<Ctx> deque();
  /** Replace a unit by finer ones in the queue. */
  dberr_t split_ctx(const Ctx *ctx);

  // --- traverse: innodb_api/traverse.cc ---

  /** Read one unit. A failure is in m_err as well. */
  dberr_t traverse(Ctx *ctx);
  /** What a worker does between letting go of its page for a waiter and coming
      back to it: sched_yield(), unless a test has something happen there. */
  static std::atomic<void (*)()> s_yield;

  // --- visibility: innodb_api/visibility.cc ---

  /** Whether a record of the scanned index is to be delivered; rec and offsets
      become those of the version to deliver. */
  bool check_visibility(const rec_t *&rec, ulint *&offsets, mem_heap_t *&heap,
                        mtr_t *mtr, Read_mtr *row_mtr, ThreadCtx *tctx);
  /** @return the version of the clustered record to deliver for a secondary
      record, null for none; offsets become its offsets */
  const rec_t *lookup_cluster_rec(const rec_t *&sec_rec, const dtuple_t *ref,
                                  ulint *&offsets, mem_heap_t *&heap,
                                  Read_mtr *row_mtr, ThreadCtx *tctx);

  // --- batch: innodb_api/batch.cc ---

  /** @return a worker's context, null if out of memory */
  ThreadCtx *init_thread_ctx(size_t id);
  static void deinit_thread_ctx(ThreadCtx *tctx);
  /** Store the unit's current row, handing a full batch over first. */
  dberr_t process_row(Ctx *ctx);

  // --- callback: innodb_api/callback.cc ---

  void set_load_cb(Parallel_load_fn load_cb, void *argument);
  /** Hand the waiting rows over. @return DB_ERROR when the callback refuses; an
      exception of its is the read's failure besides */
  dberr_t send_batch(ThreadCtx *tctx);

  // Typed reads of row nr of the batch in hand: false = value written.
  static bool read_field_int(ThreadCtx *tctx, uint field_idx, uint nr,
                             longlong *val);
  static bool read_field_real(ThreadCtx *tctx, uint field_idx, uint nr,
                              double *val);
  static bool read_field_str(ThreadCtx *tctx, uint field_idx, uint nr,
                             char **str, size_t *size);
  static bool read_field_decimal(ThreadCtx *tctx, uint field_idx, uint nr,
                                 bool *neg, int32_t *intg, int32_t *frac,
                                 int32_t **data);
  static bool read_field_date(ThreadCtx *tctx, uint field_idx, uint nr,
                              int32_t *date);
  static bool read_field_time(ThreadCtx *tctx, uint field_idx, uint nr,
                              int64_t *time);
  static bool read_field_datetime(ThreadCtx *tctx, uint field_idx, uint nr,
                                  int64_t *datetime);

  // --- driver: innodb_api/driver.cc ---

  /** Run the read with up to that many workers; fewer than two: in the calling
      thread. @return whether it ended without error */
  bool run(size_t n_threads);
  dberr_t get_error() const { return m_err.load(); }
  void set_error(dberr_t err) { m_err.store(err); }

 private:
  friend class Traversal;

  ParallelIndexReader(TABLE *table, dict_table_t *dict_table,
                      dict_index_t *index, bool indexonly_scan,
                      Call_state *state);

  void build_template(TABLE *table, row_prebuilt_t *prebuilt, bool whole_row);
  void plan_columns();
  void limit_offsets();
  void lay_out_records();
  bool position_on_node(page_cur_t *cursor, const dtuple_t *key,
                        bool include) const;
  bool position_on_leaf(page_cur_t *cursor, const dtuple_t *key,
                        bool include) const;
  dberr_t reason_to_stop() const;
  void append_range(std::vector<Range> &ranges, const page_cur_t &start,
                    mtr_t *mtr) const;
  void close_last_range(const Iter &end, std::vector<Range> &ranges) const;
  dberr_t enqueue_units(const std::vector<Range> &ranges,
                        size_t first_split_ctx);
  bool store_row(const Ctx *ctx, byte *row);
  bool store_column(const Column_plan &column, const Ctx *ctx, byte *row);
  void store_located_row(const Ctx *ctx, byte *row);
  void store_by_host(const Column_plan &column, const dict_index_t *index,
                     const byte *data, ulint bytes, byte *row) const;
  bool is_one_page() const;
  void tell_progress(ThreadCtx *tctx, uint64_t n_pages);
  void tell_end(dberr_t err);
  void parallel_read(size_t n_threads);
  void parallel_read_worker(ThreadCtx *tctx);
  void work_until_done(ThreadCtx *tctx, bool waits);
  size_t take_units(ThreadCtx *tctx);
  dict_index_t *clustered_index() const { return table_->first_index(); }
  bool converts_clustered() const {
    return index_->is_clustered() || !indexonly_scan_;
  }

  std::atomic<dberr_t> m_err{DB_SUCCESS};
  Call_state own_state_;  // of a read that nobody asks about
  Call_state *state_;
  trx_t *trx_;
  TABLE *mysql_table_;
  dict_table_t *table_;  // closed with prebuilt_
  dict_index_t *index_;
  row_prebuilt_t *prebuilt_ = nullptr;  // read by all workers, written by none
  Index_latch latch_;
  page_size_t page_size_;
  bool table_is_compact_;
  bool indexonly_scan_;  // the scanned index supplies every column
  std::vector<ThreadCtx *> thread_ctxs_;
  std::vector<std::future<void>> parallel_threads_;
  Range scan_range_;
  os_event_t event_;  // units were queued, all is done, or failed
  uint64_t m_sig_count;
  ib_mutex_t mutex_;
  std::list<std::shared_ptr<Ctx>> ctxs_;  // under mutex_
  std::atomic<size_t> ctx_id_{0};         // units created
  std::atomic<size_t> completed_{0};      // units read or split
  Parallel_load_fn loader_ = nullptr;
  void *argument_ = nullptr;
  std::vector<Column_plan> columns_;  // that callers read, in the table's order
  // How many of a record's first fields are looked at in a record that is
  // visible as it is, of the scanned index and of one that is looked up.
  ulint n_scanned_fields_ = ULINT_UNDEFINED;
  ulint n_fetched_fields_ = ULINT_UNDEFINED;
  Record_layout layout_;  // of the scanned index: the columns, then in the
                          // clustered one the id of the row's transaction
};

#endif  // MORVENA_SN_INNODB_API_H
