// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The plug-in declaration. The engine stores nothing: being one keeps the
// shared object loaded. In a file of its own, so that an embedder that links
// the static library can bring its own declaration.

#include "common/plugin.h"

#include <cstring>

#include "common.h"
#include "common/counters.h"
#include "host.h"

// The engine has no handler. Debug servers would stop at a statement that
// creates a table in it, and others answer in various words; with this flag SQL
// says that there is no such engine.
static int morvena_sn_init_func(void *engine) {
  static_cast<handlerton *>(engine)->flags |= HTON_NOT_USER_SELECTABLE;
  return 0;
}

static int morvena_sn_done_func(void *) {
  release_shutdown_guard();
  return 0;
}

struct st_mysql_storage_engine morvena_sn_storage_engine = {
    MYSQL_HANDLERTON_INTERFACE_VERSION};

template <Tally counter>
static int show_counter(THD *, SHOW_VAR *variable, char *buffer) {
  const longlong value = counters::value(counter);
  memcpy(buffer, &value, sizeof value);
  variable->type = SHOW_LONGLONG;
  variable->value = buffer;
  return 0;
}

template <Tally counter>
static SHOW_VAR status_variable(const char *name) {
  char *function = reinterpret_cast<char *>(&show_counter<counter>);
  return {name, function, SHOW_FUNC, SHOW_SCOPE_GLOBAL};
}

static SHOW_VAR status_variables[] = {
    status_variable<Tally::CURSORS_OPEN>("morvena_sn_cursors_open"),
    status_variable<Tally::CURSORS_OPENED>("morvena_sn_cursors_opened"),
    status_variable<Tally::SNAPSHOTS_COPIED>("morvena_sn_snapshots_copied"),
    status_variable<Tally::SNAPSHOTS_TAKEN>("morvena_sn_snapshots_taken"),
    status_variable<Tally::PARALLEL_READS_RUNNING>(
        "morvena_sn_parallel_reads_running"),
    status_variable<Tally::PARALLEL_READS>("morvena_sn_parallel_reads"),
    status_variable<Tally::ROWS_READ>("morvena_sn_rows_read"),
    status_variable<Tally::PAGES_READ>("morvena_sn_pages_read"),
    status_variable<Tally::BATCHES>("morvena_sn_batches"),
    status_variable<Tally::WORKERS_RUNNING>("morvena_sn_workers_running"),
    status_variable<Tally::PARKS>("morvena_sn_parks"),
    status_variable<Tally::KILLS>("morvena_sn_kills"),
    status_variable<Tally::REFUSALS>("morvena_sn_refusals"),
    status_variable<Tally::FAILURES>("morvena_sn_failures"),
    {nullptr, nullptr, SHOW_UNDEF, SHOW_SCOPE_UNDEF}};

mysql_declare_plugin(morvena_sn){
    MYSQL_STORAGE_ENGINE_PLUGIN,
    &morvena_sn_storage_engine,
    MORVENA_SN_PLUGIN_NAME,
    "the morvena_sn authors",
    "MORVENA_SN storage engine",
    PLUGIN_LICENSE_GPL,
    morvena_sn_init_func,
    nullptr, /* check_uninstall */
    morvena_sn_done_func,
    0x0100,
    status_variables,
    nullptr, /* system_vars */
    nullptr, /* __reserved1 */
    0,       /* flags */
} mysql_declare_plugin_end;
