// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common.h
  Where the plug-in meets the server: its life with the server's, the sessions
  that cursors run on, the tables they open, and the snapshots they share.
*/

#ifndef MORVENA_SN_COMMON_H
#define MORVENA_SN_COMMON_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "common/snapshot.h"
#include "common/thread_row.h"
#include "cursor.h"

class KEY;
class THD;
struct TABLE;
struct trx_t;

/** Idle sessions; the one that came back last is handed out first. Guarded by
    thd_pool_mutex. */
extern std::vector<THD *> thd_pool;
extern std::mutex thd_pool_mutex;

/** Guards the registered shutdown functions. */
extern std::mutex shutdown_observer_mutex;

/** The most idle sessions kept; one closed beyond them is destroyed. */
constexpr size_t thd_pool_max_size = 1024;

class CommonApi {
 public:
  // --- lifecycle: common/lifecycle.cc ---

  /** Start the worker pool, unless another embedder has. */
  static void init_common_api();

  /** Take back one init_common_api(), if there was one. The last one ends
      everything. */
  static void deinit_common_api();

  /** Stop the worker pool and destroy the idle sessions, whoever has started
      them. */
  static void end_common_api();

  /** Have f called once when the server begins to shut down; the first caller's
      plugin (an st_plugin_int) owns the server's notification. */
  static void register_shutdown_observer(void *plugin,
                                         Shutdown_observer_func f);

  /** Make sure that what is still open when the last client session has ended
      is closed, and that the plug-in stays loaded until end_common_api(). */
  static void guard_shutdown();

  /** Whether cursors may be opened: the server has started and InnoDB is not
      about to stop. */
  [[nodiscard]] static bool server_is_available();

  /** Have a function called when the last client session has ended and what is
      still open must go: one function, set by whoever opens something. */
  static void set_last_cleanup(void (*close_leftovers)());

  // --- sessions: common/session.cc ---

  /** @return a session bound to the calling thread, null if out of memory */
  [[nodiscard]] static THD *create_thd(
      Session_role role = Session_role::CURSOR);

  /** Make thd the calling thread's current session; the one before is stored in
   *original_thd unless that is null. */
  static void thd_attach(THD *thd, THD **original_thd);

  /** The same, unless the thread's current session is a client's: that stays.
      A session that a cursor left with the thread is replaced; it may be gone,
      or in use on another thread. */
  static void attach_over_own(THD *thd);

  /** @return the id of the client whose thread calls, also when a cursor has
      left its session with the thread; 0 if the thread is no client's. Call it
      before binding a session of ours. */
  [[nodiscard]] static uint32_t calling_client();

  /** Give a session those settings of another one that decide how values of
      columns are read. */
  static void copy_settings(const THD *from, THD *to);

  /** Give a session back to the pool, or destroy it when the pool is full. It
      stays the calling thread's current session. */
  static void close_thd(THD *thd);

  /** End and destroy a session, so that its id is not used again. */
  static void destroy_thd(THD *thd);

  /** @return the error number of the session's last report, 0 for none; its
      text goes to message (512 bytes), which stays as it is when there is no
      report */
  static unsigned int get_last_error(THD *thd, char *message);

  /** Destroy every session of the pool. */
  static void destroy_idle_sessions();

  /** Interrupt every session that is in use and not being closed. */
  static void interrupt_sessions();

  /** @return how many sessions are in use or being closed */
  [[nodiscard]] static size_t sessions_in_use();

  // --- tables: common/table.cc ---

  /** Bound the session's waits for locks. @param timeout_sec  negative: as good
      as for ever */
  static void set_lock_wait_timeout(THD *thd, int timeout_sec);

  /** Open a base table of InnoDB for reading, under a shared metadata lock that
      lasts until unlock_table().
      @return the table, or null with the reason in the session's diagnostics
      area and nothing left open */
  [[nodiscard]] static TABLE *open_table(THD *thd, const char *db_name,
                                         const char *table_name);

  /** Take the table lock, for reading.
      @return true on failure, with the reason in the session's diagnostics
      area */
  [[nodiscard]] static bool lock_table(THD *thd, TABLE *table, int timeout_sec);

  /** End the statement, unlock and close the session's tables, whatever the
      statement's commit answers. @return the commit's result, 0 for success */
  static int unlock_table(THD *thd, TABLE *table);

  /** Make the given column positions the table's read set; those beyond its
      columns are skipped. */
  static void set_readset(TABLE *table, size_t ncols, const uint32_t *fields);

  /** @return a table's first key of that name in any case, null for none */
  [[nodiscard]] static KEY *find_key(const TABLE *table, const char *name);

  /** Set columns to the names of all of a table's columns. */
  static void get_table_field_names(const TABLE *table,
                                    std::vector<const char *> &columns);

  /** Append the names of an index's fields. For a unique index of InnoDB its
      own list, else the server's extended key. */
  static void get_index_field_names(const KEY *key,
                                    std::vector<const char *> &columns);

  /** @return the number of key parts that the index's definition names */
  [[nodiscard]] static int get_index_user_defined_parts(const KEY *key);

  // --- snapshots: common/snapshot.cc ---

  /** Start a session's transaction, and give it a copy of the donor's read
     view, or one of its own for donor 0. May throw std::bad_alloc. */
  [[nodiscard]] static Snapshot start_transaction(THD *thd,
                                                  uint32_t snapshot_donor);
  /** The same for a transaction that has started. One that has a view keeps it.
      A donor that reads system tables is waited for; 1205 or 1317 is raised
      where that takes too long or is interrupted. */
  [[nodiscard]] static Snapshot copy_or_assign_read_view(
      trx_t *trx, uint32_t snapshot_donor);

  /** Whether a session reads under a snapshot already; under READ UNCOMMITTED
      it never does. */
  [[nodiscard]] static bool has_snapshot(THD *thd);

  /** Make a session of ours a donor: its transaction takes a view and keeps it
      until drop_donor(). May throw std::bad_alloc.
      @return the id to name it by */
  [[nodiscard]] static uint32_t make_donor(THD *thd);
  /** End such a donor. @return its session, attached to the calling thread;
     null if the id names none */
  [[nodiscard]] static THD *drop_donor(uint32_t id);
  /** @return the ids of all such donors */
  [[nodiscard]] static std::vector<uint32_t> donors();
};

/** Makes a session of ours the calling thread's current one for as long as it
    lives. If a client's session was current before, it is current again
    afterwards; otherwise ours stays. */
class Own_session {
 public:
  explicit Own_session(THD *thd);
  ~Own_session();
  Own_session(const Own_session &) = delete;
  Own_session &operator=(const Own_session &) = delete;

 private:
  THD *clients_ = nullptr;
};

#endif  // MORVENA_SN_COMMON_H
