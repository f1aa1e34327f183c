// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file reader.cc
  A complete embedding plug-in: the page to copy from.

    INSTALL PLUGIN morvena_example SONAME 'morvena_example.so';

  It starts the reading functions with itself, reads ranges on threads of its
  own and on clients' threads, and is out of the way when the server stops.
  functions.cc makes SQL functions of it.
*/

#include "reader.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "cursor.h"
#include "my_thread.h"
#include "mysql/plugin.h"
#include "mysqld_error.h"
#include "sql/current_thd.h"
#include "sql/sql_class.h"

namespace example {
namespace {

/* ---- Start and stop: no cursor may outlive the server's InnoDB ---------- */

std::mutex mu;
std::condition_variable readers_changed;
bool started = false;   // under mu
bool stopping = false;  // under mu
int readers = 0;        // under mu

}  // namespace

Reading::Reading() {
  std::lock_guard<std::mutex> lock(mu);
  allowed_ = started && !stopping;
  if (allowed_) ++readers;
}

Reading::~Reading() {
  if (!allowed_) return;
  std::lock_guard<std::mutex> lock(mu);
  --readers;
  readers_changed.notify_all();
}

bool Reading::must_stop() const {
  std::lock_guard<std::mutex> lock(mu);
  return stopping;
}

namespace {

/** Runs on a server thread, once, before the client sessions are ended. */
void clean_up() {
  std::unique_lock<std::mutex> lock(mu);
  stopping = true;
  readers_changed.wait(lock, [] { return readers == 0; });
  // No cursor is open and none can be opened.
  deinit_common();
}

int start(void *plugin) {
  init_common();
  register_shutdown_observer(plugin, clean_up);
  std::lock_guard<std::mutex> lock(mu);
  started = true;
  return 0;
}

/* ---- Reading ------------------------------------------------------------ */

/** Closes the handle on every way out. */
struct Cursor {
  explicit Cursor(uintptr_t opened) : handle(opened) {}
  ~Cursor() { close_index_cursor(handle); }
  Cursor(const Cursor &) = delete;
  Cursor &operator=(const Cursor &) = delete;

  const uintptr_t handle;
};

/** No further row is either the end of the range or a failure, a kill of the
    client among them: the handle tells. */
Outcome how_it_ended(uintptr_t handle, uint64_t rows) {
  const char *text = nullptr;
  const unsigned int error = cursor_error(handle, &text);
  return {error, text, rows};
}

}  // namespace

Outcome read_range(Range_read read, const Row_function &on_row) {
  const Reading reading;
  if (!reading.allowed())
    return {ER_SERVER_SHUTDOWN, "the example is not running", 0};

  Outcome outcome;
  char message[512] = "";
  const int wait_for_locks_sec = 10;
  const Cursor cursor(open_index_cursor(
      read.db.c_str(), read.table.c_str(), read.index.c_str(), read.index_only,
      read.donor, wait_for_locks_sec, &outcome.error, message));
  if (cursor.handle == 0) return {outcome.error, message, 0};

  std::vector<uint32_t> fields;
  for (const std::string &name : read.columns) {
    const uint32_t position = cursor_col_fieldnr(cursor.handle, name.c_str());
    if (position == 0) return {ER_BAD_FIELD_ERROR, "no column " + name, 0};
    fields.push_back(position - 1);
  }
  cursor_set_readset(cursor.handle, fields.size(), fields.data());

  Bound low(read.low), high(read.high);
  if (!cursor_set_read_range(cursor.handle, low.given, high.given,
                             read.low_included, read.high_included,
                             read.backward))
    return how_it_ended(cursor.handle, 0);

  while (!cursor_advance(cursor.handle)) {
    if (reading.must_stop())
      return {ER_SERVER_SHUTDOWN, "the server shuts down", outcome.rows};
    on_row(cursor.handle, fields);
    ++outcome.rows;
  }
  return how_it_ended(cursor.handle, outcome.rows);
}

Outcome read_range_on_client_thread(const Range_read &read,
                                    const Row_function &on_row) {
  // A kill of the client ends the calls that are made here. The cursor
  // functions make the cursor's session the thread's; a client's thread must
  // have its own back before the server goes on with the statement.
  THD *const own_session = current_thd;
  Outcome outcome = read_range(read, on_row);
  own_session->store_globals();
  return outcome;
}

Outcome read_range_on_own_thread(const Range_read &read,
                                 const Row_function &on_row) {
  Outcome outcome{ER_OUT_OF_RESOURCES, "no thread", 0};
  try {
    std::thread([&] {
      if (my_thread_init()) return;
      outcome = read_range(read, on_row);
      my_thread_end();
    }).join();
  } catch (const std::system_error &) {
    // No thread could be started; the outcome says so already.
  }
  return outcome;
}

static st_mysql_daemon descriptor = {MYSQL_DAEMON_INTERFACE_VERSION};

}  // namespace example

/* The init function of a daemon plug-in is given its plug-in handle, which the
   shutdown notification needs as its owner. The owner must stay loaded. */
mysql_declare_plugin(morvena_example){
    MYSQL_DAEMON_PLUGIN,
    &example::descriptor,
    "morvena_example",
    "the morvena_sn authors",
    "Reads InnoDB tables through morvena_sn",
    PLUGIN_LICENSE_GPL,
    example::start,
    nullptr,  // check_uninstall
    nullptr,  // deinit
    0x0100,
    nullptr,  // status variables
    nullptr,  // system variables
    nullptr,
    PLUGIN_OPT_NO_UNINSTALL,
} mysql_declare_plugin_end;
