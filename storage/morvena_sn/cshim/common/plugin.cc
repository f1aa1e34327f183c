/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// The plug-in declaration. The engine stores nothing: being one keeps the
// shared object loaded. In a file of its own, so that an embedder that links
// the static library can bring its own declaration.

#include "common/plugin.h"

#include "common.h"
#include "host.h"

// A table that a statement gave to this engine would have no handler: debug
// servers stop at it, others answer in various words. SQL is to say that there
// is no such engine.
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
    nullptr, /* status_vars */
    nullptr, /* system_vars */
    nullptr, /* __reserved1 */
    0,       /* flags */
} mysql_declare_plugin_end;
