// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file cursor_plugin.hpp
  Declares a plug-in that reads through cursor.hpp. Include it in one file, and
  compile that file alone with MYSQL_DYNAMIC_PLUGIN: anywhere else the macro
  turns my_free() and the like into calls through a service that the server does
  not export.

    MORVENA_SN_PLUGIN(orders, "me", "Reads the orders");

  makes orders.so a daemon plug-in:

    INSTALL PLUGIN orders SONAME 'orders.so';

  It calls init_common() and register_shutdown_observer() when it is loaded.
  When the server shuts down, it waits for every Reading of cursor_session.hpp
  to end and calls deinit_common(). Since the server calls it back, it stays
  loaded until then: UNINSTALL PLUGIN is refused.
*/

#ifndef MORVENA_SN_CURSOR_PLUGIN_HPP
#define MORVENA_SN_CURSOR_PLUGIN_HPP

#ifndef MYSQL_DYNAMIC_PLUGIN
#error "compile this file, and no other, with -DMYSQL_DYNAMIC_PLUGIN"
// Else INSTALL PLUGIN fails: Can't find symbol 'wrong' in library.
#endif

#include "cursor.h"
#include "cursor_session.hpp"
#include "mysql/plugin.h"

namespace morvena_sn {
namespace detail {

/** What a plug-in adds to its start and its end; null for nothing. */
struct MORVENA_SN_OWN_STATE Plugin_hooks {
  void (*at_start)() = nullptr;
  void (*at_shutdown)() = nullptr;
};

MORVENA_SN_OWN_STATE inline Plugin_hooks plugin_hooks;

/** Runs on a server thread, once, before the client sessions are ended. */
MORVENA_SN_OWN_STATE inline void clean_up_plugin() {
  if (plugin_hooks.at_shutdown != nullptr) plugin_hooks.at_shutdown();
  embedder.stop();
  // No cursor is open and none can be opened.
  deinit_common();
}

MORVENA_SN_OWN_STATE inline int start_plugin(void *plugin) {
  init_common();
  register_shutdown_observer(plugin, clean_up_plugin);
  embedder.start();
  if (plugin_hooks.at_start != nullptr) plugin_hooks.at_start();
  return 0;
}

MORVENA_SN_OWN_STATE inline st_mysql_daemon plugin_descriptor = {
    MYSQL_DAEMON_INTERFACE_VERSION};

}  // namespace detail
}  // namespace morvena_sn

/**
  Declares the plug-in of a shared object; at the end of a file, outside any
  namespace.

  @param name         an identifier: the name for INSTALL PLUGIN
  @param author       a string
  @param description  a string
*/
#define MORVENA_SN_PLUGIN(name, author, description) \
  MORVENA_SN_PLUGIN_WITH(name, author, description, nullptr, nullptr)

/**
  The same with functions of yours.

  @param at_start     void (*)(): called when the plug-in is loaded, at the end
                      of its start. Cursors open once the server has started.
  @param at_shutdown  void (*)(): called when the server shuts down, before the
                      wait for each Reading; ends threads of yours. Neither must
                      throw.
*/
#define MORVENA_SN_PLUGIN_WITH(name, author, description, at_start, \
                               at_shutdown)                         \
  namespace {                                                       \
  int morvena_sn_start_##name(void *plugin) {                       \
    morvena_sn::detail::plugin_hooks = {at_start, at_shutdown};     \
    return morvena_sn::detail::start_plugin(plugin);                \
  }                                                                 \
  }                                                                 \
  mysql_declare_plugin(name){                                       \
      MYSQL_DAEMON_PLUGIN,                                          \
      &morvena_sn::detail::plugin_descriptor,                       \
      #name,                                                        \
      author,                                                       \
      description,                                                  \
      PLUGIN_LICENSE_GPL,                                           \
      morvena_sn_start_##name,                                      \
      nullptr, /* check_uninstall */                                \
      nullptr, /* deinit */                                         \
      0x0100,                                                       \
      nullptr, /* status variables */                               \
      nullptr, /* system variables */                               \
      nullptr,                                                      \
      PLUGIN_OPT_NO_UNINSTALL,                                      \
  } mysql_declare_plugin_end

#endif  // MORVENA_SN_CURSOR_PLUGIN_HPP
