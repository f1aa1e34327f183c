// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// A plug-in of a separate project. It counts the rows of a table with an index
// cursor, on the client's thread.
//
//   CREATE FUNCTION outside_rows RETURNS INTEGER SONAME 'outside.so';
//   SELECT outside_rows('shop', 'orders');

#define MYSQL_DYNAMIC_PLUGIN  // before the first header

#include <cstdint>

#include "cursor.h"
#include "my_sys.h"
#include "mysql/plugin.h"
#include "mysql/udf_registration_types.h"
#include "sql/current_thd.h"
#include "sql/sql_class.h"

static void stop() { deinit_common(); }

static int start(void *plugin) {
  init_common();
  register_shutdown_observer(plugin, stop);
  return 0;
}

extern "C" {

bool outside_rows_init(UDF_INIT *init, UDF_ARGS *args, char *) {
  init->const_item = false;
  return args->arg_count != 2 || args->arg_type[0] != STRING_RESULT ||
         args->arg_type[1] != STRING_RESULT;
}

long long outside_rows(UDF_INIT *, UDF_ARGS *args, unsigned char *,
                       unsigned char *failed) {
  THD *const client = current_thd;
  unsigned int error = 0;
  char message[512] = "";
  long long rows = 0;
  const uintptr_t cursor =
      open_index_cursor(args->args[0], args->args[1], "PRIMARY", false,
                        client->thread_id(), 10, &error, message);
  if (cursor != 0) {
    if (cursor_set_read_range(cursor, nullptr, nullptr, true, true, false)) {
      while (!cursor_advance(cursor)) ++rows;
    }
    error = cursor_error(cursor, nullptr);
    close_index_cursor(cursor);
  }
  client->store_globals();
  if (error != 0) my_printf_error(error, "%s", MYF(0), message);
  *failed = error != 0;
  return rows;
}

}  // extern "C"

static st_mysql_daemon descriptor = {MYSQL_DAEMON_INTERFACE_VERSION};

mysql_declare_plugin(outside){
    MYSQL_DAEMON_PLUGIN,
    &descriptor,
    "outside",
    "the morvena_sn authors",
    "Counts rows",
    PLUGIN_LICENSE_GPL,
    start,
    nullptr,
    nullptr,
    0x0100,
    nullptr,
    nullptr,
    nullptr,
    PLUGIN_OPT_NO_UNINSTALL,
} mysql_declare_plugin_end;
