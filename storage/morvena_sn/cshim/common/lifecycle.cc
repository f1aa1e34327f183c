// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Start and stop with the server: the worker pool, the embedders' shutdown
// functions, and a guard for what embedders leave open.
//
// InnoDB stops the server when a session still has a transaction once the
// client sessions are gone. Two observers are therefore registered: one, owned
// by the first embedder's plug-in, relays the beginning of the shutdown to the
// registered functions; the guard, owned by InnoDB's, acts after the last
// client session has ended, when nobody but a forgetful embedder uses a cursor.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "common.h"
#include "common/calls.h"
#include "common/failure.h"
#include "common/plugin.h"
#include "common/pool.h"
#include "host.h"

std::mutex shutdown_observer_mutex;

namespace {

using namespace std::chrono_literals;

// How long the guard waits for interrupted calls to return.
constexpr auto drain_limit = 8s;

std::vector<Shutdown_observer_func> shutdown_functions;  // under the mutex
bool registered = false;  // under the observer mutex

// Held while the pool starts and ends, so that an embedder that starts the
// system finds it running or gone.
std::mutex common_mutex;
size_t n_inits = 0;  // under common_mutex: embedders that have not ended

std::atomic<bool> guard_registered{false};
// Set once. From then on the guard is neither registered nor taken off: the
// server's list of observers is locked while it calls them, maybe for as long
// as a function waits for whoever opens a cursor, and is dropped soon after.
std::atomic<bool> shutdown_begun{false};
std::atomic<plugin_ref> own_plugin{nullptr};  // locked while the system runs
std::atomic<void (*)()> last_cleanup{nullptr};

int harbinel_observer_dummy(Server_state_param *) { return 0; }

// From here on no cursor opens. What waits for a lock in an opening is
// interrupted: the functions may wait for its end, and client sessions, which
// may hold the lock, are only ended after them.
int begin_shutdown(Server_state_param *) {
  shutdown_begun = true;
  Session_calls::interrupt_openings();
  return 0;
}

// The functions must not throw: the mutex would stay locked.
int harbinel_before_server_shutdown(Server_state_param *param) {
  begin_shutdown(param);
  shutdown_observer_mutex.lock();
  for (Shutdown_observer_func f : shutdown_functions) f();
  shutdown_functions.clear();
  shutdown_observer_mutex.unlock();
  return 0;
}

// Closes what is still open. Calls that run are interrupted first, and waited
// for; a callback that never returns is left behind.
int release_leftovers(Server_state_param *) {
  shutdown_begun = true;
  // No clients are left to look at.
  Session_calls::stop_watching(true);
  const auto give_up = std::chrono::steady_clock::now() + drain_limit;
  while (CommonApi::sessions_in_use() > 0 &&
         std::chrono::steady_clock::now() < give_up) {
    CommonApi::interrupt_sessions();
    // In each round: a call that was opening a cursor may list it late.
    if (void (*close_leftovers)() = last_cleanup) close_leftovers();
    std::this_thread::sleep_for(1ms);
  }
  if (CommonApi::sessions_in_use() == 0) CommonApi::end_common_api();
  return 0;
}

Server_state_observer observer = {
    sizeof(Server_state_observer),
    harbinel_observer_dummy,          // before_handle_connection
    harbinel_observer_dummy,          // before_recovery
    harbinel_observer_dummy,          // after_engine_recovery
    harbinel_observer_dummy,          // after_recovery
    harbinel_before_server_shutdown,  // before_server_shutdown
    harbinel_observer_dummy,          // after_server_shutdown
    harbinel_observer_dummy,          // after_dd_upgrade_from_57
};

Server_state_observer guard = {
    sizeof(Server_state_observer),
    harbinel_observer_dummy,  // before_handle_connection
    harbinel_observer_dummy,  // before_recovery
    harbinel_observer_dummy,  // after_engine_recovery
    harbinel_observer_dummy,  // after_recovery
    begin_shutdown,           // before_server_shutdown
    release_leftovers,        // after_server_shutdown
    harbinel_observer_dummy,  // after_dd_upgrade_from_57
};

static_assert(sizeof(Server_state_observer) == 64);

// The guard's owner is a plug-in that cannot be removed: the server asks no
// further observer when one's owner is gone. No mutex of ours is held here: the
// server calls the shutdown functions, which take one, with its list locked.
void register_guard() {
  if (shutdown_begun || guard_registered.exchange(true)) return;
  const LEX_CSTRING name{STRING_WITH_LEN("InnoDB")};
  const plugin_ref innodb =
      plugin_lock_by_name(nullptr, name, MYSQL_STORAGE_ENGINE_PLUGIN);
  register_server_state_observer(&guard, plugin_ref_to_int(innodb));
  plugin_unlock(nullptr, innodb);
}

// While the system runs its plug-in stays loaded. It is not found where an
// embedder linked the static library.
void keep_loaded() {
  if (own_plugin.load() != nullptr) return;
  const LEX_CSTRING name{STRING_WITH_LEN(MORVENA_SN_PLUGIN_NAME)};
  const plugin_ref found =
      plugin_lock_by_name(nullptr, name, MYSQL_STORAGE_ENGINE_PLUGIN);
  plugin_ref none = nullptr;
  if (found != nullptr && !own_plugin.compare_exchange_strong(none, found)) {
    plugin_unlock(nullptr, found);
  }
}

void end_all() {
  ThreadPool::shutdown();
  Session_calls::stop_watching(false);
  CommonApi::destroy_idle_sessions();
  // May run inside a shutdown function, under the observer mutex.
  if (const plugin_ref self = own_plugin.exchange(nullptr)) {
    plugin_unlock(nullptr, self);
  }
}

// An embedder that linked the static library may be unmapped with the guard.
struct Guard_release {
  ~Guard_release() { release_shutdown_guard(); }
} guard_release;

}  // namespace

void release_shutdown_guard() {
  // Taking an observer off asks for no owner.
  if (!shutdown_begun && guard_registered.exchange(false)) {
    unregister_server_state_observer(&guard, nullptr);
  }
}

void CommonApi::guard_shutdown() {
  register_guard();
  keep_loaded();
}

// A start that fails counts too: the embedder ends what it has begun.
void CommonApi::init_common_api() {
  {
    const std::lock_guard<std::mutex> lock(common_mutex);
    ++n_inits;
  }
  guard_shutdown();
  const std::lock_guard<std::mutex> lock(common_mutex);
  if (n_inits > 0) ThreadPool::initialize();
}

void CommonApi::deinit_common_api() {
  const std::lock_guard<std::mutex> lock(common_mutex);
  if (n_inits == 0 || --n_inits > 0) return;
  end_all();
}

void CommonApi::end_common_api() {
  const std::lock_guard<std::mutex> lock(common_mutex);
  n_inits = 0;
  end_all();
}

void CommonApi::register_shutdown_observer(void *plugin,
                                           Shutdown_observer_func f) {
  if (plugin == nullptr || f == nullptr) return;
  {
    const std::lock_guard<std::mutex> lock(shutdown_observer_mutex);
    if (std::find(shutdown_functions.begin(), shutdown_functions.end(), f) ==
        shutdown_functions.end()) {
      shutdown_functions.push_back(f);
    }
    if (!registered) {
      // A refusal is not retried: the server refuses for good.
      register_server_state_observer(&observer, plugin);
      registered = true;
    }
  }
  guard_shutdown();
}

bool CommonApi::server_is_available() {
  return mysqld_server_started && !shutdown_begun;
}

void CommonApi::set_last_cleanup(void (*close_leftovers)()) {
  last_cleanup = close_leftovers;
}

// If the pool cannot start, go on without it; reads with threads then fail.
extern "C" void init_common() {
  try {
    CommonApi::init_common_api();
  } catch (...) {
    write_to_log("Cannot start worker threads");
  }
}

extern "C" void deinit_common() { CommonApi::deinit_common_api(); }

extern "C" void register_shutdown_observer(void *plugin,
                                           Shutdown_observer_func f) {
  try {
    CommonApi::register_shutdown_observer(plugin, f);
  } catch (...) {
    write_to_log("Cannot register a shutdown function");
  }
}
