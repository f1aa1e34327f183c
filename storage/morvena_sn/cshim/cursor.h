// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor.h
  Read InnoDB tables from native code inside the server process, without SQL.

  This header is the whole public interface: C linkage, plain C types, no server
  header. It compiles as C11 and as C++17. cursor.hpp wraps it for C++17.

  Call, in this order: init_common(), register_shutdown_observer(), any number
  of cursors, deinit_common(). examples/reader.cc is a complete embedder in C++;
  examples/sum.c reads a range in C.

  What holds for every function
  -----------------------------
  The comment of a function says only what differs from this.

  Results.  The sense of a bool differs by function, so each comment gives its
    own. Where a function fails it writes no output, unless its comment says so.

  Handles.  0 is the null handle. A function recognises a handle that is null,
    closed, of the other kind of cursor, or in use by another call (on this
    thread or another). It then touches nothing and answers with its failure
    result, which the comment names as "no handle". A close then does nothing.
    The few bytes of a handle are never freed, so a closed one stays
    recognisable. Some functions work on a handle in use all the same:
    cursor_error(), cursor_cancel() and cursor_progress() at any time, the
    functions that count and name columns during a parallel read.

  Threads.  Any thread may use a handle, one thread at a time. Different handles
    are independent. A thread that the server did not make calls
    my_thread_init() before its first call here, and my_thread_end() before it
    ends.
    The functions that touch the host (open, close, set_read_range, advance)
    make the cursor's session the calling thread's current session (THD) and
    leave it so. Code that runs on a client's thread saves current_thd before
    its first call and calls store_globals() on it after its last;
    examples/reader.cc shows how.
    Typed reads convert values in the session of the cursor, or of the batch's
    worker, never in a client's. If a client's session is current, it stays
    current and gets no warnings from the conversion. If no client's session is
    current, a typed read may leave the one that it converted in.

  Waiting.  A function returns without waiting for other sessions, unless its
    comment has a line "Blocks". No function returns with a latch held.

  Lifetimes.  A function copies what it is given, or reads it during the call
    only. What it returns or writes is the caller's own, unless the comment has
    a line "Lifetime".

  Snapshot.  A cursor sees the rows that one other session, the donor, sees: the
    opening copies the consistent read view of the donor's transaction. The
    cursor keeps the copy until it closes, also when the donor commits or
    disconnects meanwhile.
    - The cursor sees the donor's own uncommitted rows. That includes rows that
      the donor writes later, once its transaction has an id. It does not see
      what others change after the donor's snapshot.
    - With donor 0 the opening takes a fresh snapshot for the cursor.
    - If the donor's transaction has no read view, the cursor takes a fresh
      snapshot at its first read, row by row or in parallel. This holds for a
      donor that is idle, that has only written so far, that is at READ
      COMMITTED between statements, at READ UNCOMMITTED or SERIALIZABLE, or
      prepared in XA. A SERIALIZABLE transaction has no view because its reads
      lock instead.
    - If no session has the donor's id, the cursor's session gets error 1094.
      The cursor opens all the same and takes a fresh snapshot at its first
      read.
    - A donor that changes rows of the table while its cursor reads an index can
      make the cursor deliver a row twice, under its old and its new key, or not
      at all. Have the donor write before the read or after it.
    - While a statement of the donor reads system tables (the dictionary for a
      table that it has not opened lately, a time zone), the opening waits for
      that. It takes a few page reads. The opening waits for at most
      timeout_sec, but for at least a second, and then fails with 1205.
    - The isolation level, the SQL mode and the time zone of the cursor's
      session are the server's global ones at the opening, not the donor's. So a
      TIMESTAMP reads in the global time zone, and under a global READ
      UNCOMMITTED no snapshot is kept.

  Columns.  A column number is the column's 0-based position in the table, in
    the order of the table's definition. cursor_col_fieldnr() alone answers with
    1-based positions: subtract one before you pass its result on.

  Misuse.  A function recognises the following and answers with its failure
    result: a handle as above, a null where an output, a name or an array is to
    be, a bound whose value is null, a column or row that is not there or was
    not read, a step or a typed read without a row. It does not recognise the
    following, and the behaviour is undefined:
    - a number that no open function returned as a handle;
    - a batch handle other than the one that the callback was given, or after
      the callback has returned;
    - a pointer that is not null and leads nowhere, an array shorter than its
      count says, a text shorter than its len;
    - a call on a handle that another thread begins while a typed read of the
      same handle runs, and two such reads at the same time;
    - init_common(), deinit_common() and register_shutdown_observer() beside
      other calls where their comments exclude them;
    - strings, decimals and names after their lifetime.

  Errors.  An opening that fails writes the reason to *error, as an error number
    that is then never 0, and to message, as text. For calls on a handle
    cursor_error() gives both. Each text has at most MORVENA_SN_MESSAGE_BYTES
    bytes, its terminating zero included. Refusals and failures are also lines
    of the server's error log. There, errors of the server while it reads appear
    as "got error while scan index :" and the server's code.

  Seen from SQL.  Each open cursor's session is a row of
    performance_schema.threads, thread/morvena_sn/cursor. PROCESSLIST_DB and
    PROCESSLIST_INFO name the table, the index and the donor, and
    metadata_locks.OWNER_THREAD_ID leads to it. Workers of parallel reads have
    rows called thread/morvena_sn/worker, which name the cursor's session.
    SHOW GLOBAL STATUS LIKE 'morvena_sn_%' counts what all of them do. These
    sessions are no clients: KILL does not find them, and no limit counts them.

  Shutdown.  Close every cursor and call deinit_common() before the server's
    InnoDB stops. A function given to register_shutdown_observer() is the place
    for it. Before that function runs, openings that wait are interrupted, and
    from then on every opening fails with 3168. When the last client session has
    ended, the system interrupts and closes what is left open; those handles
    then answer as closed ones.
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

/** The release of this header. @since 1.1 */
#define MORVENA_SN_VERSION "1.1.0"

/** Room for the text of an error, its terminating zero included. @since 1.1 */
#define MORVENA_SN_MESSAGE_BYTES 512

/** The most rows of a batch. @since 1.1 */
#define MORVENA_SN_BATCH_ROWS 4096

/**
  How a bound stores the value of a key part: field_arg::type.

  A value is converted by the column's own rules: text that is too long is cut,
  a number out of range is clamped, an impossible MYSQL_TIME is the column's
  zero. No value of a FLOAT or DOUBLE column is equal to NaN, below it or above
  it, so a range with such a bound has no row.

  Any other type code gives the part without a value: the part is then compared
  with whatever value the cursor's row buffer holds.

  @since 1.1; the codes are those of 1.0
*/
enum morvena_sn_value_type {
  /** int64_t. It is converted through double, so it is exact up to 2^53. */
  MORVENA_SN_INT64 = 1,
  /** double */
  MORVENA_SN_DOUBLE = 2,
  /** len bytes in the column's own character set. Text is also the way to give
      integers beyond 2^53, decimals and temporal values. */
  MORVENA_SN_TEXT = 3,
  /** MYSQL_TIME of the server's mysql_time.h */
  MORVENA_SN_MYSQL_TIME = 4,
  /** struct timeval: seconds and microseconds since 1970 UTC. Only TIMESTAMP
      and DATETIME columns take it. */
  MORVENA_SN_TIMEVAL = 5
};

/**
  The error numbers that this header speaks of. Other numbers are the server's
  own; mysqld_error.h lists them.

  @since 1.1; the numbers are those of 1.0
*/
enum morvena_sn_error {
  /** The donor is just writing a large value that the read came to. */
  MORVENA_SN_ERROR_VALUE_IN_CHANGE = 1020,
  /** The table belongs to another engine. */
  MORVENA_SN_ERROR_OTHER_ENGINE = 1031,
  MORVENA_SN_ERROR_NO_DATABASE = 1049,
  /** No function of this header gives it; cursor.hpp does. */
  MORVENA_SN_ERROR_NO_COLUMN = 1054,
  /** No session has the donor's id, on the cursor's session. */
  MORVENA_SN_ERROR_NO_DONOR = 1094,
  /** The name of the database is missing or impossible. */
  MORVENA_SN_ERROR_WRONG_DATABASE_NAME = 1102,
  /** The name of the table is missing or impossible. */
  MORVENA_SN_ERROR_WRONG_TABLE_NAME = 1103,
  /** The server did not say why. */
  MORVENA_SN_ERROR_UNKNOWN = 1105,
  MORVENA_SN_ERROR_NO_TABLE = 1146,
  MORVENA_SN_ERROR_NO_INDEX = 1176,
  /** A cursor or a parallel read does not support this kind of index or table.
   */
  MORVENA_SN_ERROR_NOT_SUPPORTED = 1178,
  /** The wait for a lock or for the donor took longer than timeout_sec. */
  MORVENA_SN_ERROR_WAIT_TIMEOUT = 1205,
  /** A bound or a callback is missing or impossible, or there is no handle. */
  MORVENA_SN_ERROR_WRONG_ARGUMENT = 1210,
  /** The function was called inside the callback of a parallel read. */
  MORVENA_SN_ERROR_IN_CALLBACK = 1235,
  /** The session was killed, or the call cancelled. */
  MORVENA_SN_ERROR_INTERRUPTED = 1317,
  /** A view, or anything in information_schema or performance_schema. */
  MORVENA_SN_ERROR_NOT_A_TABLE = 1347,
  /** The index, or that of a partition, is newer than the snapshot. */
  MORVENA_SN_ERROR_NEWER_THAN_SNAPSHOT = 1412,
  MORVENA_SN_ERROR_INDEX_CORRUPT = 1712,
  /** The table's tablespace was discarded. */
  MORVENA_SN_ERROR_NO_TABLESPACE = 1814,
  /** The server has not finished starting, or it is stopping. */
  MORVENA_SN_ERROR_SERVER_NOT_READY = 3168,
  /** A table of the server's dictionary, which SQL does not read either. */
  MORVENA_SN_ERROR_DICTIONARY_TABLE = 3554,
  MORVENA_SN_ERROR_OUT_OF_MEMORY = 10134,
  /** The callback stopped the read, or an exception left it. */
  MORVENA_SN_ERROR_CALLBACK_STOPPED = 10135
};

/** Whose snapshot a cursor reads under: cursor_snapshot(). @since 1.1 */
enum morvena_sn_snapshot {
  /** Nobody's yet: the cursor takes its own at its first read. */
  MORVENA_SN_SNAPSHOT_NONE = 0,
  /** The donor's. */
  MORVENA_SN_SNAPSHOT_DONOR = 1,
  /** Its own: the donor had none to give, was not there, or was 0. */
  MORVENA_SN_SNAPSHOT_OWN = 2
};

/**
  The leading key parts of a bound. The system reads it during the call and
  never writes to it.

  Element i of each array belongs to key part i, in the index's order. Values
  beyond the parts that the index's definition names are ignored. A bound with
  num_arg 0 bounds nothing.
*/
typedef struct field_arg {
  uint32_t num_arg; /**< number of leading key parts given */
  int32_t *len;     /**< bytes of each value; negative: the part is NULL */
  void **value;     /**< where each value lies */
  char *type;       /**< how each value is stored: morvena_sn_value_type */
} field_arg;

/**
  The load callback of a parallel read. It takes a batch of up to
  MORVENA_SN_BATCH_ROWS rows; a batch has fewer once its large values (BLOB,
  TEXT, JSON, GEOMETRY) exceed 8 MB.

  @param handle     the batch, for pread_n_tuples() and pread_field_*()
  @param thread_id  the worker's number, 0 to the number of workers - 1
  @param argument   what the caller gave to the read
  @retval false  go on
  @retval true   stop the whole read, which then answers false. The answer to a
                 worker's last batch, full or not, is not looked at: nothing is
                 left to stop.

  Lifetime: the batch and every value read from it, until the callback returns.
  Threads:  the callback runs on worker threads, several at a time with
            different handles, or on the calling thread. Each worker makes one
            call at a time. The thread has a session of its own (current_thd).

  The callback must copy what it needs and return. While it runs, its worker
  holds a leaf page of the index, shared, and the read holds the index's latch.
  A read that fetches rows for a secondary index also holds a leaf page of the
  clustered index. Therefore:
  - The callback must not wait for anything that needs these: statements that
    write to the table, on this thread or on another that it waits for, and
    reads of the table through a cursor, which wait behind such statements.
  - It must not close or advance the read's own handle.
  - It cannot open a cursor. The opening is refused, since the server opens no
    table under a page. It may read other tables through handles that were
    opened before.
  - It must not take long. Somebody who needs the whole index for himself (purge
    at times) waits until each worker has come to the end of its page, and that
    includes the callback that the worker is in. Other statements on the index
    wait behind him. Then the read lets them through before it goes on. A
    callback that does not return keeps all of them waiting, and the server ends
    itself when that takes longer than its limit for latch waits, ten minutes.
  - The callbacks of one read must not wait for each other, as in an ordered
    merge. While somebody wants the whole index, one worker waits outside its
    callback until all others have left theirs. Merge copies outside the
    callback.

  An exception that leaves the callback ends the read as a failure, also with a
  worker's last batch.
*/
typedef bool (*Parallel_load_func)(uint64_t handle, uint64_t thread_id,
                                   void *argument);

/** A clean-up function of the embedding code. It must not throw. */
typedef void (*Shutdown_observer_func)(void);

/** @return the release of the loaded module, as text like "1.1.0"; static
    @since 1.1 */
const char *morvena_sn_version(void);

/* ------------------------------------------------------------------ */
/* Lifecycle                                                          */
/* ------------------------------------------------------------------ */

/**
  Start the process-wide part: a pool of 32 worker threads. Several embedders in
  one server share it: calls are counted, and the first one starts it.

  Each call needs a deinit_common() of its own, also when threads could not be
  started; standard error says if they could not.

  Lifetime: the pool, until the last deinit_common().
  Threads:  before the caller's first cursor.
  Blocks:   while another thread ends the pool.
*/
void init_common(void);

/**
  Take one init_common() back. The last one stops the worker pool, then destroys
  the idle pooled sessions. Without an init_common() nothing happens. Sessions
  of cursors that are still open are left alone. init_common() may start
  everything again.

  Threads:  not inside a callback. The last call must not race with the caller's
            own cursor functions.
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
  @param f       what to call; it typically closes the caller's cursors and
                 calls deinit_common(). A function that is registered already is
                 not added again.

  With a null for either nothing is registered. f is called at most once and
  then forgotten.

  Threads:  f runs on a server thread, before client sessions are ended. It must
            not call this function or throw.
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
  @param snapshot_donor  connection id of the session whose snapshot is read, or
                 an id of open_snapshot(); 0 for a snapshot of the cursor's own
  @param timeout_sec  how long each wait of this call may take (for the table's
                 metadata lock, for a donor that reads system tables), in
                 seconds; negative: as good as for ever
  @param[out] error    0, or the error number
  @param[out] message  MORVENA_SN_MESSAGE_BYTES bytes; written only on failure
  @retval 0      not opened; nothing is held. *error and message say why:
                 1049 unknown database, 1146 no such table, 1347 a view, or
                 anything in information_schema or performance_schema,
                 3554 a table of the server's dictionary,
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
  @retval other  the handle

  Lifetime: the handle, until close_index_cursor(). Meanwhile it holds a
            session, a metadata lock on the table (DDL waits) and the snapshot
            (purge keeps what it sees).
  Threads:  the cursor's session becomes the calling thread's.
  Blocks:   waits for metadata and table locks. A thread that has another cursor
            on the table waits here for a statement that waits for that cursor,
            as ALTER TABLE does. The server sees no deadlock in it, so only a
            timeout ends it.
*/
uintptr_t open_index_cursor(const char *db_name, const char *table_name,
                            const char *index_name, bool index_only,
                            uint32_t snapshot_donor, int timeout_sec,
                            unsigned int *error, char *message);

/**
  Close a cursor: release its table, locks, snapshot and session.

  Lifetime: ends that of the handle and of every name and value that was read
            through it.
  Threads:  the session becomes the calling thread's, and stays current_thd
            although it now belongs to the pool. A client's thread binds its own
            again. A thread of yours has none, and leaves current_thd alone.
*/
void close_index_cursor(uintptr_t cursor);

/**
  @return how many columns cursor_output_col_names() yields: all of the table's,
          or the index's for an index-only cursor; 0 for no handle. The hidden
          columns behind functional and multi-valued indexes are counted, and
          named "!hidden!..." by the server.
*/
uint64_t cursor_output_col_num(uintptr_t cursor);

/** @return how many columns cursor_idx_col_names() yields; 0 for no handle */
uint64_t cursor_idx_col_num(uintptr_t cursor);

/** @return how many key parts the index's definition names, the most values
    that a bound can use; 0 for no handle */
uint64_t cursor_idx_user_col_num(uintptr_t cursor);

/**
  The names of the columns that the cursor yields.

  @param[out] names  room for cursor_output_col_num() pointers; exactly so many
                     are written, none for no handle

  Lifetime: the strings are the table's, until close_index_cursor().
*/
void cursor_output_col_names(uintptr_t cursor, const char **names);

/**
  The names of the index's columns. For a unique index that is InnoDB's own
  list: the key, then what InnoDB appends. For the clustered index it has every
  column, the system columns among them. For any other index it is the declared
  parts and the parts of the primary key that the index carries.

  @param[out] names  room for cursor_idx_col_num() pointers; exactly so many are
                     written, none for no handle

  Lifetime: the strings are the server's, until close_index_cursor().
*/
void cursor_idx_col_names(uintptr_t cursor, const char **names);

/** @return the 1-based position of a column in the table: subtract 1 for every
    function that takes one; 0 if the table has no column of that name (the case
    of ASCII letters is ignored), if the name is null, or for no handle */
uint32_t cursor_col_fieldnr(uintptr_t cursor, const char *name);

/**
  Set the key range to read and move to its first row.

  @param begin, end    the bounds, null for none; begin is the lower one
  @param closed_begin, closed_end  whether rows equal to the bound belong to the
                       range
  @param reverse       read from the end downwards
  @retval true   the range's first row is current; the next cursor_advance()
                 keeps it
  @retval false  no row is current: the range has no row, the read failed, a
                 bound cannot be read, or no handle. cursor_error() tells them
                 apart.

  After a bound that cannot be read there is no range: nothing is read, row by
  row or in parallel, until a range is set that can be read.

  Bounds that give the same key read the rows equal to it, in index order,
  whatever closed_begin, closed_end and reverse say. For a whole unique key that
  is one row, as the server's unique search has it. It is one row even where the
  snapshot holds two: one that others have deleted since, and one that the donor
  has inserted. A multi-valued index has no ranges but those, and the whole.

  A partitioned table gives every row of the range, but not in order, if its
  index or its primary key holds only the beginning of a column of multi-byte
  text: the server merges the partitions by more of the text than the index
  holds.

  A reverse read leaves out rows equal to begin even if closed_begin is true.
  Without an end it starts at the last row of the index and only then looks at
  begin, so the first row may lie below begin. Reading backwards is the server's
  own ha_index_prev(), which can miss rows while other sessions split the pages
  under it. Where every row counts, read forward.

  Sense:    the opposite of cursor_advance().
  Lifetime: the values of the row before are gone.
  Threads:  the cursor's session becomes the calling thread's.
  Blocks:   may read from disk.
*/
bool cursor_set_read_range(uintptr_t cursor, field_arg *begin, field_arg *end,
                           bool closed_begin, bool closed_end, bool reverse);

/**
  Choose the columns to read.

  @param ncols   number of elements of fields; 0 reads no column
  @param fields  column positions, in any order; those beyond the table's
                 columns are skipped

  The choice holds from the next cursor_set_read_range() on, and for a parallel
  read from the next one. A cursor that was never given a choice reads every
  column. A column outside the choice has no value, unless the host needs it for
  virtual columns of the choice or of the index.
*/
void cursor_set_readset(uintptr_t cursor, size_t ncols, uint32_t *fields);

/**
  Move to the next row of the range, in the range's order. The first call after
  a cursor_set_read_range() that answered true stays on its row.

  @retval false  a row is current; the cursor_read_field_* functions read it
  @retval true   no row is current: the range has no further row, no range is
                 set, the read failed, the cursor's session was killed, or no
                 handle. cursor_error() tells them apart. Further calls answer
                 true again, except after a cursor_cancel(). A failure that
                 ended a range stays the handle's error until the next range.

  Sense:    the opposite of cursor_set_read_range().
  Lifetime: strings and decimals read from the previous row are gone.
  Threads:  the cursor's session becomes the calling thread's.
  Blocks:   may read from disk.
*/
bool cursor_advance(uintptr_t cursor);

/*
  Typed reads of the current row. Every column can be read by every function;
  the server's own conversion applies. What holds for all of them:

  @param field_idx  the column's position
  @param[out] the rest  the value
  @retval false  the value is written
  @retval true   no value, and nothing is written: the value is NULL, there is
                 no such column, it was not read with the row, no row is
                 current, an output is null, the server's conversion ran out of
                 memory, or no handle

  Threads:  one at a time per cursor. A client's session stays the calling
            thread's; in place of any other the cursor's may be left.
*/

/** @param[out] val  signed 64 bits: Field::val_int(). BIGINT UNSIGNED keeps its
    bits, so values of 2^63 and above read as negative ones. */
bool cursor_read_field_int(uintptr_t cursor, unsigned int field_idx,
                           long long *val);

/** @param[out] val  Field::val_real() */
bool cursor_read_field_real(uintptr_t cursor, unsigned int field_idx,
                            double *val);

/**
  @param[out] str   the value's bytes in the column's own character set, without
                    a terminating zero; numbers and dates as text; JSON as text;
                    GEOMETRY as SRID and WKB
  @param[out] size  how many bytes

  Lifetime: until the next string read, cursor_advance(),
  cursor_set_read_range() or close_index_cursor() of this cursor.
*/
bool cursor_read_field_str(uintptr_t cursor, unsigned int field_idx, char **str,
                           size_t *size);

/**
  An exact decimal.

  @param[out] neg   whether it is negative
  @param[out] intg  number of words of the integer part
  @param[out] frac  number of words of the fraction
  @param[out] data  the words: the integer part's, then the fraction's, most
                    significant first, at most 9 together. Each has nine decimal
                    digits, 0 to 999999999. A fraction's last word is filled
                    from its left: 0.5 is the word 500000000.

  Lifetime: until the next decimal read, cursor_advance(),
  cursor_set_read_range() or close_index_cursor() of this cursor.
*/
bool cursor_read_field_decimal(uintptr_t cursor, unsigned int field_idx,
                               bool *neg, int32_t *intg, int32_t *frac,
                               int32_t **data);

/** @param[out] time  days since 2000-01-01. The zero date, and any column
    without a date, is -730517. */
bool cursor_read_field_date(uintptr_t cursor, unsigned int field_idx,
                            int32_t *time);

/** @param[out] time  signed microseconds, not reduced to a day; 0 for a column
    without a time */
bool cursor_read_field_time(uintptr_t cursor, unsigned int field_idx,
                            int64_t *time);

/** @param[out] time  microseconds since 2000-01-01 00:00:00. No time zone is
    applied, except that a TIMESTAMP is converted to the session's time zone. */
bool cursor_read_field_datetime(uintptr_t cursor, unsigned int field_idx,
                                int64_t *time);

/* ------------------------------------------------------------------ */
/* Parallel reads                                                     */
/* ------------------------------------------------------------------ */

/**
  Read an index cursor's range with several threads.

  @param nthreads  how many workers. There are no more than what is left of the
                   256 that all reads of the process share, or of one for four
                   pages of the buffer pool when that is less. With fewer than
                   two, and when the index is a single page, the calling thread
                   reads alone.
  @param fn        takes the batches; must not be null
  @param argument  handed on to fn
  @retval true   the range was read to its end and every batch was taken
  @retval false  fn stopped the read, the cursor's session was killed, the read
                 failed or could not start, the last range could not be read, or
                 no handle. cursor_error() tells them apart, and standard error
                 has a line; one cause is a large value that the donor is just
                 writing.

  The range is the one last given to cursor_set_read_range(), the whole index if
  none was; the columns are those chosen at this moment. The cursor's own
  position is neither used nor moved. Rows come in ascending key order within
  each worker's sequence of units, in no order overall. After a read with two
  workers or more, standard output has one line for each worker with its count.

  Ends of the range.  An open or closed begin is kept as given. An end is closed
  only if the range was given without reverse. Bounds that give the same key
  read that key only if both are closed.

  Exact reads.  Reads of the primary key, and of a secondary index by an
  index-only cursor, deliver each row that the snapshot sees exactly once,
  whatever writers do. The isolation level counts: under a global READ COMMITTED
  an index-only read of a secondary index delivers every entry that is not
  marked as deleted. Under a global READ UNCOMMITTED a read delivers what the
  index holds, less the rows whose large values are just being written.
  Reads of a secondary index that also fetch the row (index_only false) are not
  exact at the inner ends of the range's pieces: rows of the last page of a
  piece that ends inside that page are left out. Read the primary key, or
  index-only, where every row counts.

  Prefixes.  In an index-only read a column of which the index holds a prefix
  reads as that prefix, filled up where the column has a fixed length. Of values
  that compare as equal, 'a' and 'A' perhaps, the read gives the one that the
  index holds at this moment.

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

/** @return the number of rows in a batch; 0 for a null handle

    Threads: inside the callback. */
uint64_t pread_n_tuples(uintptr_t ctx);

/*
  Typed reads of a batch, in the forms of the cursor_read_field_* functions.
  What holds for all of them:

  @param ctx        the batch handle that the callback was given
  @param field_idx  the column's position
  @param nr         the row, 0 to pread_n_tuples() - 1
  @param[out] the rest  the value
  @retval false  the value is written
  @retval true   no value, and nothing is written: the value is NULL, there is
                 no such column or row, the column is not read, an output or the
                 handle is null, or the server's conversion ran out of memory

  Lifetime: a string until the next string read of the batch, a decimal until
            the next decimal read, both no longer than the callback.
  Threads:  inside the callback that was given the handle, on its thread.
*/

/** @param[out] val  see cursor_read_field_int() */
bool pread_field_int(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                     long long *val);
/** @param[out] val  see cursor_read_field_real() */
bool pread_field_real(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      double *val);
/** @param[out] str, size  see cursor_read_field_str() */
bool pread_field_str(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                     char **str, size_t *size);
/** @param[out] neg, intg, frac, data  see cursor_read_field_decimal() */
bool pread_field_decimal(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                         bool *neg, int32_t *intg, int32_t *frac,
                         int32_t **data);
/** @param[out] date  see cursor_read_field_date() */
bool pread_field_date(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      int32_t *date);
/** @param[out] time  see cursor_read_field_time() */
bool pread_field_time(uintptr_t ctx, unsigned int field_idx, unsigned int nr,
                      int64_t *time);
/** @param[out] datetime  see cursor_read_field_datetime() */
bool pread_field_datetime(uintptr_t ctx, unsigned int field_idx,
                          unsigned int nr, int64_t *datetime);

/* ------------------------------------------------------------------ */
/* Handles of every kind                                              */
/* ------------------------------------------------------------------ */

/**
  Why the handle's last call failed.

  Calls are those that read: cursor_set_read_range(), cursor_advance() and the
  parallel reads. The end of a range is no failure, and neither is a value that
  is not there.

  @param[out] message  a text, empty if the call did not fail. May be null.
  @retval 0      the last call did not fail
  @retval 10134  out of memory
  @retval 10135  the callback stopped the read, or threw
  @retval other  1317 the session was killed or the call cancelled; 1178, 1176,
                 1412, 1712, 1814 what cannot be read; 1210 a bound or a
                 callback that is missing or impossible, or a handle that is
                 null, closed or no cursor's; 1020 a large value that the donor
                 is writing; else what the server says

  Lifetime: the text, until the handle's next call.
  Threads:  any. A text that is being replaced by a call on another thread is
            not to be read.
  @since 1.1
*/
unsigned int cursor_error(uintptr_t handle, const char **message);

/**
  End a call: the one under way on the handle, or else the next one, fails with
  1317. The handle can be read again after that: a step that was cancelled
  before it began leaves the range alone, and the next step goes on in it. To
  end an opening, kill the client on whose thread it runs.

  A client's KILL, KILL QUERY or max_execution_time does the same for the calls
  that are made on its thread. For a cursor that was opened on its thread with
  its own connection id as the donor, it does so for calls on any thread. Both
  end a call within a second, except a callback that does not return, and the
  server's search for a single row's version.

  Threads:  any, at any time, several at once, also inside the callback.
  @since 1.1
*/
void cursor_cancel(uintptr_t handle);

/**
  How far the handle's read has come: a parallel read that is under way or was
  the last, or the steps through the last range.

  @param[out] rows   delivered or waiting in a batch; in a parallel read counted
                     at the end of each page
  @param[out] pages  leaf pages read; 0 for steps
  @param[out] pages_estimated  the leaf pages of the whole index, by the table's
                     statistics; 0 for steps
  @retval true   the outputs are written; each of the three may be null
  @retval false  a null or closed handle

  Threads:  any, at any time.
  @since 1.1
*/
bool cursor_progress(uintptr_t handle, uint64_t *rows, uint64_t *pages,
                     uint64_t *pages_estimated);

/** @return whose snapshot a cursor reads under, a morvena_sn_snapshot: 1 the
    donor's, 2 its own, 0 none yet or no handle
    @since 1.1 */
int cursor_snapshot(uintptr_t cursor);

/**
  Take a snapshot that cursors on any tables can read under: one moment for all
  of them, without a client.

  @param[out] error, message  as for open_index_cursor(): 3168, 10134; may be
                 null
  @retval 0      none was taken
  @retval other  its id, to be given as the donor to any number of openings

  Lifetime: the id, until close_snapshot(). Cursors keep what they copied. Purge
            keeps what the snapshot sees. At shutdown it is closed with what is
            left open.
  Threads:  a session of the snapshot's becomes the calling thread's.
  @since 1.1
*/
uint32_t open_snapshot(unsigned int *error, char *message);

/**
  End a snapshot. An id that open_snapshot() did not return, or that has ended,
  is left alone. As a donor the id is unknown from then on (1094).

  Threads:  as open_snapshot().
  @since 1.1
*/
void close_snapshot(uint32_t donor);

/* ------------------------------------------------------------------ */
/* Sequential scan                                                    */
/* ------------------------------------------------------------------ */

/**
  Open a cursor that reads a whole table in parallel along its primary key, or
  along InnoDB's own clustered index for a table without one.

  The parameters, results, lifetime, threads and waits are those of
  open_index_cursor(), less the index and its errors: a table that is newer than
  the snapshot is refused by the read, not by the opening. A snapshot donor that
  does not exist does not fail the opening.

  @param[out] error, message  as for open_index_cursor()
  @retval 0      not opened
  @retval other  the handle, until close_seqscan_cursor()
*/
uintptr_t open_seqscan_cursor(const char *db_name, const char *table_name,
                              uint32_t snapshot_donor, int timeout_sec,
                              unsigned int *error, char *message);

/** Close a sequential-scan cursor; all as for close_index_cursor(). */
void close_seqscan_cursor(uintptr_t cursor);

/** @return the number of the table's columns; 0 for no handle */
uint64_t seqscan_cursor_output_col_num(uintptr_t cursor);

/**
  The names of the table's columns, in its order.

  @param[out] names  room for seqscan_cursor_output_col_num() pointers; exactly
                     so many are written, none for no handle

  Lifetime: the strings are the table's, until close_seqscan_cursor().
*/
void seqscan_cursor_output_col_names(uintptr_t cursor, const char **names);

/** Choose the columns to read; as for cursor_set_readset(). The choice holds
    from the next seqscan_cursor_advance_parallel() on. */
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
