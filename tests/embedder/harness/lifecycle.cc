// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file lifecycle.cc
  The embedder's plug-in declaration, and a SQL function for scripts that start
  and stop servers:

    CREATE FUNCTION morvena_act RETURNS STRING SONAME 'morvena_sn_test.so';
    SELECT morvena_act('start');        the list of acts is at the end

  A script that uses morvena_act() decides itself whether to start the reading
  functions. morvena_test() always starts them.
*/

#include "lifecycle.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cursor.h"
#include "my_config.h"
#include "my_thread.h"
#include "mysql.h"
#include "mysql/plugin.h"
#include "session.h"
#include "udf_text.h"

namespace harness {
namespace {

void *handle = nullptr;
std::string opened_at_load;
std::vector<uintptr_t> left_open;

/** Runs f on a new thread, which has no client's session. */
template <class F>
void on_own_thread(F f) {
  std::thread([&f] {
    my_thread_init();
    f();
    my_thread_end();
  }).join();
}

std::string open_cursor(const char *db, const char *table, uintptr_t *cursor,
                        uint32_t donor = 0, int timeout_sec = 5) {
  unsigned int error = 12345;
  char message[512] = "untouched";
  *cursor = open_index_cursor(db, table, "PRIMARY", false, donor, timeout_sec,
                              &error, message);
  if (*cursor != 0) return "open " + std::to_string(error);
  return std::to_string(error) + " " + message;
}

/** When the plug-in is loaded before the server is ready, opening a cursor must
    fail. This tries to open one. */
int at_load(void *plugin) {
  handle = plugin;
  uintptr_t cursor;
  on_own_thread([&] {
    opened_at_load = open_cursor("mysql", "component", &cursor);
    close_index_cursor(cursor);
  });
  return 0;
}

void say(const char *what) {
  fprintf(stderr, "callback: %s\n", what);
  fflush(stderr);
}

void callback_a() { say("a"); }
void callback_b() { say("b"); }

// An observer that is registered while the observers run is never called.
void callback_that_registers() {
  say("late");
  std::thread([] { register_shutdown_observer(handle, callback_b); }).detach();
}

// Acts like an embedder that lets its readers finish before the server stops.
void callback_that_waits_for_a_reader() {
  uintptr_t cursor;
  std::string result;
  on_own_thread([&] {
    result = open_cursor("db", "t", &cursor);
    close_index_cursor(cursor);
  });
  say(result == "open 0" ? "opened" : result.c_str());
}

std::future<std::string> opening;

/** Starts to open a cursor on another thread, with no time limit on its wait
    for a lock. */
std::string open_and_wait() {
  std::promise<std::string> opened;
  opening = opened.get_future();
  std::thread([opened = std::move(opened)]() mutable {
    my_thread_init();
    uintptr_t cursor;
    const std::string result = open_cursor("db", "t", &cursor, 0, -1);
    close_index_cursor(cursor);
    my_thread_end();
    opened.set_value(result);
  }).detach();
  return opening.wait_for(std::chrono::seconds(1)) == std::future_status::ready
             ? "did not wait: " + opening.get()
             : "waits";
}

void callback_that_waits_for_the_opening() { say(opening.get().c_str()); }

uintptr_t scan_to_read = 0;

void open_a_scan() {
  unsigned int error = 0;
  char message[512] = "";
  on_own_thread([&] {
    scan_to_read = open_seqscan_cursor("db", "t", 0, 5, &error, message);
  });
}

// Acts like another embedder, whose read begins after the first embedder has
// ended its use of the plug-in.
void callback_that_reads_in_parallel() {
  on_own_thread([] {
    std::atomic<uint64_t> rows{0};
    const auto add = [](uint64_t batch, uint64_t, void *sum) {
      *static_cast<std::atomic<uint64_t> *>(sum) += pread_n_tuples(batch);
      return false;
    };
    const bool complete =
        seqscan_cursor_advance_parallel(scan_to_read, 4, add, &rows);
    close_seqscan_cursor(scan_to_read);
    say((std::to_string(rows) + (complete ? "" : " incomplete")).c_str());
  });
  deinit_common();
}

void clean_up() {
  for (const uintptr_t cursor : left_open) close_index_cursor(cursor);
  left_open.clear();
  deinit_common();
  say("clean_up");
}

std::string leave_open() {
  std::string result;
  on_own_thread([&] {
    uintptr_t cursor;
    result = open_cursor("db", "t", &cursor);
    if (cursor == 0) return;
    left_open.push_back(cursor);
    cursor_set_read_range(cursor, nullptr, nullptr, true, true, false);
    result += cursor_advance(cursor) ? " without a row" : " on a row";
  });
  return result;
}

/** Opens a cursor on a table, counts its rows and closes it. The cursor's
    session stays in the pool. */
std::string count_rows(const char *db, const char *table, uint32_t donor = 0) {
  std::string result;
  on_own_thread([&] {
    uintptr_t cursor;
    result = open_cursor(db, table, &cursor, donor);
    if (cursor == 0) return;
    int rows = 0;
    if (cursor_set_read_range(cursor, nullptr, nullptr, true, true, false))
      while (!cursor_advance(cursor)) ++rows;
    close_index_cursor(cursor);
    result = std::to_string(rows) + " rows";
  });
  return result;
}

bool count_batch(uint64_t batch, uint64_t, void *rows) {
  *static_cast<uint64_t *>(rows) += pread_n_tuples(batch);
  return false;
}

/** Counts the rows of a table by a sequential scan. */
std::string scan_rows(const char *db, const char *table, uint32_t donor = 0) {
  std::string result;
  on_own_thread([&] {
    unsigned int error;
    char message[512];
    const uintptr_t cursor =
        open_seqscan_cursor(db, table, donor, 5, &error, message);
    if (cursor == 0) {
      result = std::to_string(error) + " " + message;
      return;
    }
    uint64_t rows = 0;
    const bool complete =
        seqscan_cursor_advance_parallel(cursor, 1, count_batch, &rows);
    close_seqscan_cursor(cursor);
    result = std::to_string(rows) + " rows";
    if (!complete) result += " and no more";
  });
  return result;
}

/** The names are in upper and lower case, and the plug-in must not change
    them. */
std::string count_in_mixed_case() {
  char db[] = "Db", table[] = "T";
  const std::string result = count_rows(db, table);
  return result + ", " + scan_rows(db, table) + ", " + db + "." + table;
}

/** Counts the rows that the client running this statement sees. */
std::string count_for_client() {
  const uint32_t donor = session_id(current_session());
  const std::string result = count_rows("db", "t", donor);
  return result + ", " + scan_rows("db", "t", donor);
}

/** Reads t again and again until the plug-in closes its cursor.
    @param begun  'reading' after the first row, or what went wrong */
void read_until_taken_away(std::promise<std::string> begun) {
  uintptr_t cursor;
  const std::string result = open_cursor("db", "t", &cursor);
  if (cursor == 0) return begun.set_value(result);
  const bool reads =
      cursor_set_read_range(cursor, nullptr, nullptr, true, true, false) &&
      !cursor_advance(cursor);
  begun.set_value(reads ? "reading" : "no row");
  while (cursor_set_read_range(cursor, nullptr, nullptr, true, true, false))
    while (!cursor_advance(cursor)) continue;
  say("reader ends");
  close_index_cursor(cursor);
}

std::string read_on() {
  std::promise<std::string> begun;
  std::future<std::string> result = begun.get_future();
  std::thread([begun = std::move(begun)]() mutable {
    my_thread_init();
    read_until_taken_away(std::move(begun));
    my_thread_end();
  }).detach();
  if (result.wait_for(std::chrono::seconds(30)) != std::future_status::ready)
    return "no row for 30 seconds";
  return result.get();
}

std::string observe(Shutdown_observer_func f) {
  register_shutdown_observer(handle, f);
  return "done";
}

std::string observe_for_nobody() {
  register_shutdown_observer(nullptr, callback_a);
  return "done";
}

std::string act(const std::string &name) {
  static const std::map<std::string, std::string (*)()> acts = {
      {"opened_at_load", [] { return opened_at_load; }},
      {"start", [] { return init_common(), std::string("done"); }},
      {"stop", [] { return deinit_common(), std::string("done"); }},
      {"observe_a", [] { return observe(callback_a); }},
      {"observe_b", [] { return observe(callback_b); }},
      {"observe_nothing", [] { return observe(nullptr); }},
      {"observe_for_nobody", observe_for_nobody},
      {"observe_late", [] { return observe(callback_that_registers); }},
      {"observe_reader",
       [] { return observe(callback_that_waits_for_a_reader); }},
      {"open_and_wait", open_and_wait},
      {"observe_opening",
       [] { return observe(callback_that_waits_for_the_opening); }},
      {"observe_parallel_reader",
       [] {
         open_a_scan();
         return observe(callback_that_reads_in_parallel);
       }},
      {"observe_clean_up", [] { return observe(clean_up); }},
      {"leave_open", leave_open},
      {"read_on", read_on},
      {"count", [] { return count_rows("db", "t"); }},
      {"count_in_mixed_case", count_in_mixed_case},
      {"count_for_client", count_for_client},
  };
  const auto found = acts.find(name);
  return found == acts.end() ? "no such act" : found->second();
}

}  // namespace

void *plugin_handle() { return handle; }

void start_embedding() {
  init_common();
  register_shutdown_observer(handle, deinit_common);
}

static st_mysql_daemon descriptor = {MYSQL_DAEMON_INTERFACE_VERSION};

}  // namespace harness

extern "C" {

bool morvena_act_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  return harness::start_text_function(init, args, message);
}

void morvena_act_deinit(UDF_INIT *init) { harness::end_text_function(init); }

char *morvena_act(UDF_INIT *init, UDF_ARGS *args, char *, unsigned long *length,
                  unsigned char *, unsigned char *) {
  return harness::answer(init, harness::act(harness::argument(args)), length);
}

}  // extern "C"

mysql_declare_plugin(morvena_sn_test){
    MYSQL_DAEMON_PLUGIN,
    &harness::descriptor,
    "morvena_sn_test",
    "the morvena_sn authors",
    "The cases that run inside the server",
    PLUGIN_LICENSE_GPL,
    harness::at_load,
    nullptr,  // check_uninstall
    nullptr,  // deinit
    0x0100,
    nullptr,  // status variables
    nullptr,  // system variables
    nullptr,
    PLUGIN_OPT_NO_UNINSTALL,
} mysql_declare_plugin_end;
