// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor.h
  Read InnoDB tables from native code inside the server process, without SQL.

  This is the whole public face: C linkage, plain C types, no server header.
  It compiles as C11 and as C++17.

  Use, in order: init_common(), register_shutdown_observer(), then any number
  of cursors, then deinit_common(). examples/reader.cc is a complete embedder.

  What holds for every function
  -----------------------------
  Snapshot.  A cursor sees the rows that one other session, the donor, sees:
    its transaction's consistent read view is copied when the cursor opens and
    stays in force until it closes, also when the donor commits or disconnects
    meanwhile. The donor's own uncommitted rows are visible, those that it
    writes later as well (once its transaction has an id); changes of others
    after the donor's snapshot are not. Donor 0, and a donor whose transaction
    has no read view (idle, only writing so far, READ COMMITTED between
    statements, READ UNCOMMITTED, SERIALIZABLE, prepared in XA), give the cursor
    a fresh snapshot of its own, taken at open for donor 0, and for a donor
    without a view at the first read, row by row or in parallel. A SERIALIZABLE
    transaction has no view because its reads lock instead. A donor id that no
    session has raises error 1094 on the cursor's session; the cursor opens all
    the same and takes a fresh snapshot at its first read.
    A donor that changes rows of the table while its cursor reads an index can
    make the cursor deliver a row twice, under its old and its new key, or not
    at all: have the donor write before the read or after it.
    While a statement of the donor's reads system tables (the dictionary for a
    table that it has not opened lately, a time zone), the opening waits for
    that: for a few page reads, and at most for timeout_sec, but a second at the
    least; then it fails with 1205.
    The isolation level, the SQL mode and the time zone of the cursor's session
    are the server's global ones at open, not the donor's: a TIMESTAMP reads in
    the global time zone, and under a global READ UNCOMMITTED no snapshot is
    kept.

  Threads.  A handle may be used from any thread, by one thread at a time.
    Different handles are independent. A handle that another call uses, on this
    thread or another, is recognised: the function answers as for a closed one,
    and a close does nothing. During a parallel read the functions that count
    and name columns work all the same. A thread that the server did not make
    calls my_thread_init() before its first call here and my_thread_end()
    before it ends.
    The functions that touch the host (open, close, set_read_range, advance)
    make the cursor's session the calling thread's current session (THD) and
    leave it so. Code that runs on a client's thread saves current_thd before
    its first call and calls store_globals() on it after its last;
    examples/reader.cc shows how.
    Typed reads convert in the session of the cursor, or of the batch's worker,
    never in a client's: a client's that is current stays so, and gets no
    warnings of theirs. Where none is current they may leave theirs.

  Handles.  0 is the null handle. A null or closed handle, or one of another
    kind of cursor, is recognised: the function touches nothing and answers
    with its failure result, which each comment names. A handle's few bytes are
    never freed, so that a closed one stays recognisable.

  Misuse.  What is recognised ends in the failure result: handles as above, a
    null where an output, a name or an array is to be, a bound whose value is
    null, a column or row that is not there or was not read, a step or a typed
    read without a row. Not recognised, and undefined:
    - a number that no open function returned as a handle, and a batch handle
      other than the one that the callback was given, or after the callback;
    - a pointer that is not null and leads nowhere, an array shorter than its
      count says, a text shorter than its len;
    - a call on a handle that another thread begins while a typed read of the
      same handle runs, and two such reads at the same time;
    - init_common(), deinit_common() and register_shutdown_observer() beside
      other calls where their comments exclude them;
    - strings, decimals and names after their lifetime.

  Results.  The sense of a bool differs by function; each comment gives its own.

  Errors.  An opening that fails says why in *error, a server error number that
    is never 0 then, and in message, a text of at most 512 bytes, terminating
    zero included. For calls on a handle cursor_error() tells the same. Refusals
    and failures are also lines of the server's error log, errors of the server
    while reading as "got error while scan index :" and the server's code.

  Seen from SQL.  Each open cursor's session is a row of
    performance_schema.threads, thread/morvena_sn/cursor: PROCESSLIST_DB and
    PROCESSLIST_INFO name the table, the index and the donor, and
    metadata_locks.OWNER_THREAD_ID leads to it. Workers of parallel reads have
    rows called thread/morvena_sn/worker, which name the cursor's session.
    SHOW GLOBAL STATUS LIKE 'morvena_sn_%' counts what all of them do. These
    sessions are no clients: KILL does not find them, and no limit counts them.

  Shutdown.  Every cursor is to be closed and deinit_common() called before the
    server's InnoDB stops: a function given to register_shutdown_observer() is
    the place. Before it runs, openings that wait are interrupted, and from then
    on none succeeds (3168). What is left open is interrupted and closed by the
    system when the last client session has ended; its handles then answer as
    closed ones.

  Column numbers are 0-based positions in the table, in its definition's
  order, wherever a function takes one. cursor_col_fieldnr() alone answers with
  1-based positions; subtract one before passing its result on.
*/

#ifndef MORVENA_SN_CURSOR_H
#define MORVENA_SN_CURSOR_H

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
extern "C" {
#else
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#endif

/**
  The leading key parts of a bound. The system reads it during the call and
  never writes to it.

  Element i of each array belongs to key part i, in the index's order. Values
  beyond the parts that the index's definition names are ignored. A bound with
  num_arg 0 bounds nothing.

  type[i]  value[i] points to
     1     int64_t; converted through double, so exact up to 2^53
     2     double
     3     len[i] bytes in the column's own character set; also the way to give
           integers beyond 2^53, decimals and temporal values: as text
     4     MYSQL_TIME (the server's mysql_time.h)
     5     struct timeval, seconds and microseconds since 1970 UTC; only
           TIMESTAMP and DATETIME columns take it
   others  nothing: the part is given, with whatever value the cursor's row
           buffer holds

  A value is converted by the column's own rules: text that is too long is cut,
  a number out of range is clamped, an impossible MYSQL_TIME is the column's
  zero. No value of a FLOAT or DOUBLE column is equal to NaN, below it or above
  it: a range with such a bound has no row.
*/
typedef struct field_arg {
  uint32_t num_arg; /**< number of leading key parts given */
  int32_t *len;     /**< bytes of each value; negative: the part is NULL */
  void **value;     /**< where each value lies */
  char *type;       /**< how each value is stored, see above */
} field_arg;

/**
  The load callback of a parallel read: takes a batch of up to 4096 rows; of
  fewer once their large values (BLOB, TEXT, JSON, GEOMETRY) exceed 8 MB.

  @param handle     the batch, for pread_n_tuples() and pread_field_*()
  @param thread_id  the worker's number, 0 to the number of workers - 1
  @param argument   what the caller gave to the read
  @retval false  go on
  @retval true   stop the whole read, which then answers false. The answer to a
                 worker's last batch, full or not, is not looked at: nothing is
                 left to stop.

  Lifetime: the batch and every value read from it, until this call returns.
  Threads:  runs on worker threads, several at a time with different handles,
            or on the calling thread; one call at a time for each worker. The
            thread has a session of its own (current_thd).
  Holds:    its worker holds a leaf page of the index, shared (and, when the
            read fetches rows for a secondary index, one of the clustered
            index), and the read holds the index's latch. It must not wait for
            anything that needs them: statements that write to the table, on
            this thread or on another that it waits for, and reads of the
            table through a cursor, which wait behind those. It must not close
            or advance the read's own handle. It cannot open a cursor: that is
            refused, since the server opens no table under a page; read other
            tables through handles that were opened before. Somebody who needs
            the whole index for himself (purge at times) waits until each worker
            has come to the end of its page, the callback that it is in
            included, and other statements on the index wait behind him; then
            the read lets them through before it goes on. Copy what is needed,
            and return: a callback that does not return keeps all of them
            waiting, and the server ends itself when that takes longer than
            its limit for latch waits, ten minutes. For the same reason the
            callbacks of one read must not wait for each other, as in an ordered
            merge: while somebody wants the whole index, one worker waits
            outside its callback until all others have left theirs. Merge copies
            outside the callback.

  An exception that leaves it ends the read as a failure, also with a worker's
  last batch.
*/
typedef bool (*Parallel_load_func)(uint64_t handle, uint64_t thread_id,
                                   void *argument);

/** A clean-up function of the embedding code. It must not throw. */
typedef void (*Shutdown_observer_func)(void);

/* ------------------------------------------------------------------ */
/* Lifecycle                                                          */
/* ------------------------------------------------------------------ */

/**
  Start the process-wide part: a pool of 32 worker threads. Several embedders in
  one server share it: calls are counted, and the first one starts it.

  Sense:    none; each call is to be followed by a deinit_common() of its own,
            also when threads could not be started (standard error says so).
  Lifetime: until the last deinit_common().
  Threads:  any; before the caller's first cursor.
  Blocks:   while another thread ends the pool.
*/
void init_common(void);

/**
  Take one init_common() back. The last one stops the worker pool, then destroys
  the idle pooled sessions; without an init_common() nothing happens.

  Sense:    none. Sessions of cursors that are still open are left alone.
  Lifetime: init_common() may start everything again.
  Threads:  any, but not inside a callback; the last call must not race with the
            caller's own cursor functions.
  Blocks:   the last call, until parallel reads and all worker threads have
            ended.
*/
void deinit_common(void);

/**
  Have a function called once when the server begins to shut down.

  @param plugin  the caller's own plug-in handle: what the server passed to the
                 init function of a plug-in that is not a storage engine. The
                 first caller's becomes the owner of the server's notification,
                 and that plug-in must then stay loaded.
  @param f       what to call; typically closes the caller's cursors and calls
                 deinit_common(). A function that is registered already is not
                 added again.

  With a null for either nothing is registered.

  Sense:    none.
  Lifetime: f is called at most once and then forgotten.
  Threads:  any. f runs on a server thread, before client sessions are ended,
            and must not call this function or throw.
  Blocks:   no.
*/
void register_shutdown_observer(void *plugin, Shutdown_observer_func f);

/* ------------------------------------------------------------------ */
/* Index cursor                                                       */
/* ------------------------------------------------------------------ */

/**
  Open a cursor on an index.

  @param db_name, table_name  the table; lower-cased in a copy where the server
                 stores names so. Partitioned tables are read like others;
                 temporary tables belong to their session and are not found.
  @param index_name  the index, in any case; the primary key's name is PRIMARY.
                 Of names that differ only in case the first in the table wins.
  @param index_only  read only the index's own columns, from the index alone
                 where it holds them whole; other columns have no value
  @param snapshot_donor  connection id of the session whose snapshot is read,
                 0 for a snapshot of the cursor's own
  @param timeout_sec  how long each wait of this call may take (for the table's
                 metadata lock, for a donor that reads system tables), seconds;
                 negative: as good as for ever
  @param[out] error    0, or the server's error number
  @param[out] message  at least 512 bytes; written only on failure
  @retval 0      not opened; nothing is held. *error and message say why:
                 1049 unknown database, 1146 no such table, 1347 a view, or
                 anything in information_schema,
                 1031 a table of another engine, 1176 no such index,
                 1178 an index that has no order (full-text, spatial,
                 multi-valued of a partitioned table),
                 1205 lock or donor waited for too long, 1317 killed,
                 1412 the index, or that of a partition, is newer than the
                 snapshot, 1712 the index is corrupt,
                 1102, 1103 a missing or impossible name,
                 1235 called inside the callback of a parallel read,
                 3168 the server has not finished starting, or is stopping,
                 10134 out of memory.
  @retval other  the handle, until close_index_cursor()

  Sense:    a handle, see above.
  Lifetime: holds a session, a metadata lock on the table (DDL waits) and the
            snapshot (purge keeps what it sees).
  Threads:  the new session becomes the calling thread's.
  Blocks:   waits for metadata and table locks. A thread that has another cursor
            on the table waits here for a statement that waits for that cursor,
            as ALTER TABLE does: the server sees no deadlock in it, and only a
            timeout ends it.
*/
uintptr_t open_index_cursor(const char *db_name, const char *table_name,
                            const char *index_name, bool index_only,
                            uint32_t snapshot_donor, int timeout_sec,
                            unsigned int *error, char *message);

/**
  Close a cursor: release its table, locks, snapshot and session.

  Sense:    none; a null or closed handle is left alone.
  Lifetime: ends that of the handle and of every name and value that was read
            through it.
  Threads:  the session becomes the calling thread's, and stays current_thd
            although it now belongs to the pool. A client's thread binds its own
            again; a thread of yours has none, and leaves current_thd alone.
  Blocks:   no.
*/
void close_index_cursor(uintptr_t cursor);

/**
  @return how many columns cursor_output_col_names() yields: all of the
          table's, or the index's for an index-only cursor; 0 for a null or
          closed handle. The hidden columns behind functional and multi-valued
          indexes are counted, and named "!hidden!..." by the server.

  Sense: a count.  Threads: one at a time per cursor.  Blocks: no.
*/
uint64_t cursor_output_col_num(uintptr_t cursor);

/**
  @return how many columns cursor_idx_col_names() yields; 0 for a null or
          closed handle

  Sense: a count.  Threads: one at a time per cursor.  Blocks: no.
*/
uint64_t cursor_idx_col_num(uintptr_t cursor);

/**
  @return how many key parts the index's definition names, the most values that
          a bound can use; 0 for a null or closed handle

  Sense: a count.  Threads: one at a time per cursor.  Blocks: no.
*/
uint64_t cursor_idx_user_col_num(uintptr_t cursor);

/**
  The names of the columns that the cursor yields.

  @param[out] names  room for cursor_output_col_num() pointers; exactly so many
                     are written, none for a null or closed handle

  Sense:    none.
  Lifetime: the strings are the table's, until close_index_cursor().
  Threads:  one at a time per cursor.  Blocks: no.
*/
void cursor_output_col_names(uintptr_t cursor, const char **names);

/**
  The names of the index's columns: for a unique index InnoDB's own list (the
  key, then what InnoDB appends; every column, the system columns among them,
  for the clustered index), for any other the declared parts and the primary
  key's that it carries.

  @param[out] names  room for cursor_idx_col_num() pointers; exactly so many
                     are written, none for a null or closed handle

  Sense:    none.
  Lifetime: the strings are the server's, until close_index_cursor().
  Threads:  one at a time per cursor.  Blocks: no.
*/
void cursor_idx_col_names(uintptr_t cursor, const char **names);

/**
  @return the 1-based position of a column in the table; 0 when there is none
          of that name (the case of ASCII letters is ignored), the name is
          null, or the handle is null or closed

  Sense: a position; subtract 1 for every function that takes one.
  Threads: one at a time per cursor.  Blocks: no.
*/
uint32_t cursor_col_fieldnr(uintptr_t cursor, const char *name);

/**
  Set the key range to read and move to its first row.

  @param begin, end    the bounds, null for none
  @param closed_begin, closed_end  whether rows equal to the bound belong
  @param reverse       read from the end downwards
  @retval true   the range's first row is current; the next cursor_advance()
                 keeps it
  @retval false  no row in the range, the read failed (standard error says
                 why), a bound cannot be read, or a null or closed handle; no
                 row is current

  After a bound that cannot be read there is no range: nothing is read, row by
  row or in parallel, until the next one that can.
  Bounds that give the same key read the rows equal to it, in index order,
  whatever closed_begin, closed_end and reverse say. For a whole unique key that
  is one row, as the server's unique search has it, also where the snapshot
  holds two: one that others have deleted since and one that the donor has
  inserted. A multi-valued index has no
  other ranges but the whole.
  A partitioned table whose index, or primary key, holds only the beginning of a
  column of multi-byte text gives every row of the range, but not in order: the
  server merges the partitions by more of the text than the index holds.
  A reverse read leaves out rows equal to begin even when it is closed, and
  without an end it starts at the last row of the index and only then looks at
  begin: the first row may lie below it.
  Reading backwards is the server's own ha_index_prev(), which can miss rows
  while other sessions split the pages under it; where every row counts, read
  forward.

  Sense:    the opposite of cursor_advance().
  Lifetime: the bounds are copied; values of the row before are gone.
  Threads:  the cursor's session becomes the calling thread's.
  Blocks:   may read from disk; holds no latch when it returns.
*/
bool cursor_set_read_range(uintptr_t cursor, field_arg *begin, field_arg *end,
                           bool closed_begin, bool closed_end, bool reverse);

/**
  Choose the columns to read.

  @param ncols   number of elements of fields; 0 reads no column
  @param fields  0-based column positions, in any order; those beyond the
                 table's columns are skipped

  In force from the next cursor_set_read_range(). A cursor that was never
  given a set reads every column. A column outside the set has no value, but for
  those that the host needs for the set's virtual columns or the index's.

  Sense:    none.
  Lifetime: fields is read during the call only.
  Threads:  one at a time per cursor.  Blocks: no.
*/
void cursor_set_readset(uintptr_t cursor, size_t ncols, uint32_t *fields);

/**
  Move to the next row of the range, in the range's order. The first call
  after a cursor_set_read_range() that answered true stays on its row. A failure
  that ended a range stays the handle's error until the next range.

  @retval false  a row is current; the cursor_read_field_* functions read it
  @retval true   no further row, no range set, the read failed or the cursor's
                 session was killed (standard error says why), or a null or
                 closed handle; further calls say true again

  Sense:    the opposite of cursor_set_read_range().
  Lifetime: strings and decimals read from the previous row are gone.
  Threads:  the cursor's session becomes the calling thread's.
  Blocks:   may read from disk; holds no latch when it returns.
*/
bool cursor_advance(uintptr_t cursor);

/*
  Typed reads of the current row. What holds for all of them:

  @param field_idx  0-based position of the column in the table
  @retval false  the value is written
  @retval true   nothing is written: the value is NULL, there is no such
                 column, it was not read with the row, no row is current, an
                 output is null, the handle is null or closed, or the server's
                 conversion ran out of memory

  Every column can be read by every function; the server's own conversion
  applies.

  Sense:    true is "no value".
  Threads:  one at a time per cursor. A client's session stays the calling
            thread's; in place of any other the cursor's may be left.
  Blocks:   no.
*/

/** Signed 64-bit: Field::val_int(). BIGINT UNSIGNED keeps its bits, so values
    of 2^63 and above read as negative ones. */
bool cursor_read_field_int(uintptr_t cursor, unsigned int field_idx,
                           long long *val);

/** Double: Field::val_real(). */
bool cursor_read_field_real(uintptr_t cursor, unsigned int field_idx,
                            double *val);

/** The value's bytes in the column's own character set, without a terminating
    zero; numbers and dates as text; JSON as text; GEOMETRY as SRID and WKB.
    Lifetime: until the next string read, cursor_advance(),
    cursor_set_read_range() or close_index_cursor() of this cursor. */
bool cursor_read_field_str(uintptr_t cursor, unsigned int field_idx, char **str,
                           size_t *size);

/** Exact decimal: *neg is the sign; *data points to *intg words of the integer
    part followed by *frac words of the fraction, most significant first, each
    0 to 999999999. A fraction's last word is filled from its left: 0.5 is the
    word 500000000.
    Lifetime: until the next decimal read, cursor_advance(),
    cursor_set_read_range() or close_index_cursor() of this cursor. */
bool cursor_read_field_decimal(uintptr_t cursor, unsigned int field_idx,
                               bool *neg, int32_t *intg, int32_t *frac,
                               int32_t **data);

/** Days since 2000-01-01. The zero date, and any column without a date, is
    -730517. */
bool cursor_read_field_date(uintptr_t cursor, unsigned int field_idx,
                            int32_t *time);

/** Signed microseconds, not reduced to a day; 0 for a column without a time. */
bool cursor_read_field_time(uintptr_t cursor, unsigned int field_idx,
                            int64_t *time);

/** Microseconds since 2000-01-01 00:00:00, no time-zone conversion beyond that
    of TIMESTAMP columns to the session's time zone. */
bool cursor_read_field_datetime(uintptr_t cursor, unsigned int field_idx,
                                int64_t *time);

/* ------------------------------------------------------------------ */
/* Parallel reads                                                     */
/* ------------------------------------------------------------------ */

/**
  Read an index cursor's range with several threads.

  @param nthreads  how many workers; no more than what is left of the 256 that
                   all reads of the process share, or of one for four pages of
                   the buffer pool when that is less. With fewer than two, and
                   when the index is a single page, the calling thread reads
                   alone.
  @param fn        takes the batches; must not be null
  @param argument  handed on to fn
  @retval true   the range was read to its end and every batch was taken
  @retval false  fn stopped the read, the cursor's session was killed, the read
                 failed or could not start (standard error says why; one
                 cause is a large value that the donor is just writing), the
                 last range could not be read, or a null or closed handle

  The range is the one last given to cursor_set_read_range(), the whole index if
  none was; the columns are the read set of this moment. Rows come in ascending
  key order within each worker's sequence of units, in no order overall. The
  cursor's own position is neither used nor moved. After a read with two workers
  or more, standard output has one line for each worker with its count.

  A column of which the index holds a prefix reads as that prefix in an
  index-only read, filled up where the column has a fixed length. Of values that
  compare as equal, 'a' and 'A' perhaps, it gives the one that the index holds
  now.

  Exact reads: of the primary key, and of a secondary index by an index-only
  cursor. They deliver each row that the snapshot sees exactly once, whatever
  writers do. The isolation level counts: under a global READ COMMITTED an
  index-only read of a secondary index delivers every entry that is not marked
  as deleted. Under a global READ UNCOMMITTED a read delivers what the index
  holds, less the rows whose large values are just being written.
  Reads of a secondary index that also fetch the row (index_only false) are not
  exact at the inner ends of the range's pieces: rows of the last page of a
  piece that ends inside that page are left out. Read the primary key, or
  index-only, where every row counts. An open or closed begin is kept as given;
  an end is closed only if the range was given without reverse. Bounds that give
  the same key read that key only if both are closed.

  What cannot be read: a partitioned table; an index with a virtual generated
  column, full-text, spatial or multi-valued; one that is corrupt or newer than
  the snapshot. A virtual generated column of the table has no value.

  Sense:    true is a complete read; the opposite of cursor_advance().
  Lifetime: fn is not called after the return.
  Threads:  the cursor's session becomes the calling thread's.
  Blocks:   until the read is over; holds the index's latch meanwhile.
*/
bool cursor_advance_parallel(uintptr_t cursor, size_t nthreads,
                             Parallel_load_func fn, void *argument);

/**
  @return the number of rows in a batch; 0 for a null handle

  Sense: a count.  Threads: inside the callback.  Blocks: no.
*/
uint64_t pread_n_tuples(uintptr_t ctx);

/*
  Typed reads of a batch, in the forms of the cursor_read_field_* functions.
  What holds for all of them:

  @param ctx        the batch handle that the callback was given
  @param field_idx  0-based position of the column in the table
  @param nr         the row, 0 to pread_n_tuples() - 1
  @retval false  the value is written
  @retval true   nothing is written: the value is NULL, there is no such column
                 or row, the column is not read, an output or the handle is
                 null, or the server's conversion ran out of memory

  Sense:    true is "no value".
  Lifetime: a string until the next string read of the batch, a decimal until
  the next decimal read, both no longer than the callback. Threads:  inside the
  callback that was given the handle, on its thread. Blocks:   no.
*/

/** See cursor_read_field_int(). */
bool pread_field_int(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                     long long *val);
/** See cursor_read_field_real(). */
bool pread_field_real(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      double *val);
/** See cursor_read_field_str(). */
bool pread_field_str(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                     char **str, size_t *size);
/** See cursor_read_field_decimal(). */
bool pread_field_decimal(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                         bool *neg, int32_t *intg, int32_t *frac,
                         int32_t **data);
/** See cursor_read_field_date(). */
bool pread_field_date(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      int32_t *date);
/** See cursor_read_field_time(). */
bool pread_field_time(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      int64_t *time);
/** See cursor_read_field_datetime(). */
bool pread_field_datetime(uintptr_t ctx, unsigned int field_idx,
                          unsigned int nr, int64_t *datetime);

/* ------------------------------------------------------------------ */
/* Handles of every kind                                              */
/* ------------------------------------------------------------------ */

/** The release of this header. */
#define MORVENA_SN_VERSION "1.1.0"

/** @return the release of the loaded module, as text like "1.1.0"; static */
const char *morvena_sn_version(void);

/**
  Why the handle's last call failed.

  Calls are those that read: cursor_set_read_range(), cursor_advance() and the
  parallel reads. The end of a range is no failure, and neither is a value that
  is not there.

  @param[out] message  a text of at most 512 bytes, terminating zero included;
                       empty if the call did not fail. May be null.
  @retval 0      the last call did not fail
  @retval 10134  out of memory
  @retval 10135  the callback stopped the read, or threw
  @retval other  an error number of the server: 1317 the session was killed or
                 the call cancelled; 1178, 1176, 1412, 1712, 1814 what cannot be
                 read; 1210 a bound or a callback that is missing or impossible;
                 1020 a large value that the donor is writing; else what the
                 server says. A null handle, a closed one and one that is no
                 cursor's: 1210.

  Sense:    an error number.
  Lifetime: the text, until the handle's next call.
  Threads:  any; a text that is being replaced by a call on another thread is
            not to be read.
  Blocks:   no.
*/
unsigned int cursor_error(uintptr_t handle, const char **message);

/**
  End a call: the one under way on the handle, or the next one, fails with 1317.
  The handle can be read again after that. To end an opening, kill the client
  on whose thread it runs.

  A client's KILL, KILL QUERY or max_execution_time does the same for the calls
  that are made on its thread, and, on any thread, for those of a cursor that
  was opened on its thread with its own connection id as the donor. Both end a
  call within a second: not a callback that does not return, and not the
  server's search for a single row's version.

  Sense:    none; a null or closed handle is left alone.
  Threads:  any, at any time, several at once, also inside the callback.
  Blocks:   no.
*/
void cursor_cancel(uintptr_t handle);

/**
  How far the handle's read has come: a parallel read that is under way or was
  the last, or the steps through the last range.

  @param[out] rows   delivered or waiting in a batch; in a parallel read counted
                     at the end of each page. Each pointer may be null.
  @param[out] pages  leaf pages read; 0 for steps
  @param[out] pages_estimated  the leaf pages of the whole index, by the table's
                     statistics; 0 for steps
  @retval true   written
  @retval false  a null or closed handle: nothing is written

  Sense:    true is "known".
  Threads:  any, at any time.  Blocks: no.
*/
bool cursor_progress(uintptr_t handle, uint64_t *rows, uint64_t *pages,
                     uint64_t *pages_estimated);

/**
  Under whose snapshot a cursor reads.

  @retval 1  the donor's
  @retval 2  one of its own: the donor had none to give, was not there, or was 0
  @retval 0  none yet, since it takes its own at the first read; or the handle
  is null, closed or in use

  Threads: one at a time per cursor.  Blocks: no.
*/
int cursor_snapshot(uintptr_t cursor);

/**
  Take a snapshot that cursors on any tables can read under: one moment for all
  of them, without a client.

  @param[out] error, message  as for open_index_cursor(): 3168, 10134
  @retval 0      none was taken
  @retval other  its id, to be given as the donor to any number of openings
  until close_snapshot()

  Sense:    an id, 0 on failure.
  Lifetime: cursors keep what they copied. Purge keeps what the snapshot sees.
            At shutdown it is closed with what is left open.
  Threads:  a session of the snapshot's becomes the calling thread's.
  Blocks:   no.
*/
uint32_t open_snapshot(unsigned int *error, char *message);

/** End a snapshot. An id that is none of open_snapshot(), or not any more, is
    left alone; as a donor it is unknown from then on (1094).
    Threads: any; as open_snapshot(). Blocks: no. */
void close_snapshot(uint32_t donor);

/* ------------------------------------------------------------------ */
/* Sequential scan                                                    */
/* ------------------------------------------------------------------ */

/**
  Open a cursor that reads a whole table in parallel along its primary key, or
  along InnoDB's own clustered index for a table without one.

  The parameters, results, lifetime, threads and waits are those of
  open_index_cursor(), less the index and its errors: a table that is newer than
  the snapshot is refused by the read. A snapshot donor that does not exist does
  not fail the open.

  Sense: a handle, 0 on failure.
*/
uintptr_t open_seqscan_cursor(const char *db_name, const char *table_name,
                              uint32_t snapshot_donor, int timeout_sec,
                              unsigned int *error, char *message);

/**
  Close a sequential-scan cursor; all as for close_index_cursor().

  Sense: none.  Blocks: no.
*/
void close_seqscan_cursor(uintptr_t cursor);

/**
  @return the number of the table's columns; 0 for a null or closed handle

  Sense: a count.  Threads: one at a time per cursor.  Blocks: no.
*/
uint64_t seqscan_cursor_output_col_num(uintptr_t cursor);

/**
  The names of the table's columns, in its order.

  @param[out] names  room for seqscan_cursor_output_col_num() pointers; exactly
                     so many are written, none for a null or closed handle

  Sense:    none.
  Lifetime: the strings are the table's, until close_seqscan_cursor().
  Threads:  one at a time per cursor.  Blocks: no.
*/
void seqscan_cursor_output_col_names(uintptr_t cursor, const char **names);

/**
  Choose the columns to read; as for cursor_set_readset(), in force from the
  next seqscan_cursor_advance_parallel().

  Sense: none.  Threads: one at a time per cursor.  Blocks: no.
*/
void seqscan_cursor_set_readset(uintptr_t cursor, size_t ncols,
                                uint32_t *fields);

/**
  Read the whole table; as for cursor_advance_parallel(), exactly. Each call
  reads the same rows: the snapshot is that of the opening.

  Sense: true is a complete read.
*/
bool seqscan_cursor_advance_parallel(uintptr_t cursor, size_t nthreads,
                                     Parallel_load_func fn, void *argument);

#ifdef __cplusplus
}
#endif

#endif /* MORVENA_SN_CURSOR_H */
