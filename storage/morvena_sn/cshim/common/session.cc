// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Sessions: what cursors and the workers of parallel reads run on. A session is
// made by us, is not in the server's list of client sessions, and is kept for
// reuse when it is closed.

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>
#include <new>
#include <unordered_set>

#include "common.h"
#include "common/text.h"
#include "host.h"

std::vector<THD *> thd_pool;
std::mutex thd_pool_mutex;

namespace {

// How many sessions are being given back. They are not interrupted: an
// interruption looks at the InnoDB transaction, which is being freed. Under
// thd_pool_mutex.
size_t n_closing = 0;

// The session of ours that the thread was last bound to. Any thread may destroy
// idle sessions: it may be gone, and a client's session be allocated at its
// address.
thread_local const THD *bound = nullptr;
// What n_destroyed was when `bound` was last known to be ours.
thread_local uint64_t bound_at = 0;
std::atomic<uint64_t> n_destroyed{0};

// The client whose session was the thread's current one before ours.
thread_local uint32_t client_of_thread = 0;

// Sessions that were handed out. Under thd_pool_mutex.
std::unordered_set<THD *> &in_use() {
  static std::unordered_set<THD *> sessions;
  return sessions;
}

// Sessions of workers: their rows in performance_schema.threads have another
// name. Under thd_pool_mutex.
std::unordered_set<const THD *> &workers_sessions() {
  static std::unordered_set<const THD *> sessions;
  return sessions;
}

class Find_by_address : public Find_THD_Impl {
 public:
  explicit Find_by_address(const THD *wanted) : wanted_(wanted) {}
  bool operator()(THD *thd) override { return thd == wanted_; }

 private:
  const THD *wanted_;
};

bool is_a_clients(const THD *thd) {
  Find_by_address finder(thd);
  return static_cast<bool>(
      Global_THD_manager::get_instance()->find_thd(&finder));
}

// Whether the thread's current session is one that a cursor left with it, gone
// or not.
bool has_own_session() {
  if (current_thd != bound || bound == nullptr) return false;
  const uint64_t destroyed = n_destroyed;
  if (bound_at == destroyed) return true;
  bound_at = destroyed;
  if (is_a_clients(bound)) bound = nullptr;
  return bound != nullptr;
}

THD *take_idle_session(Session_role role) {
  const std::lock_guard<std::mutex> lock(thd_pool_mutex);
  const size_t is_workers = role == Session_role::WORKER ? 1 : 0;
  const auto found = std::find_if(
      thd_pool.rbegin(), thd_pool.rend(), [is_workers](const THD *thd) {
        return workers_sessions().count(thd) == is_workers;
      });
  if (found == thd_pool.rend()) return nullptr;
  THD *thd = *found;
  in_use().insert(thd);
  thd_pool.erase(std::next(found).base());
  return thd;
}

// Gives a session the server's present settings; it may have been made under
// others. Autocommit is always on: without it the end of a statement would
// leave the transaction and its view open, and the next cursor's donor would be
// ignored. Zero dates are always allowed: key values are compared, not stored.
void adapt_to_cursors(THD *thd) {
  mysql_mutex_lock(&LOCK_global_system_variables);
  thd->variables.time_zone = global_system_variables.time_zone;
  thd->variables.sql_mode = global_system_variables.sql_mode;
  thd->variables.transaction_isolation =
      global_system_variables.transaction_isolation;
  mysql_mutex_unlock(&LOCK_global_system_variables);
  thd->tx_isolation =
      static_cast<enum_tx_isolation>(thd->variables.transaction_isolation);
  thd->variables.option_bits &= ~OPTION_NOT_AUTOCOMMIT;
  thd->server_status |= SERVER_STATUS_AUTOCOMMIT;
  thd->variables.sql_mode &= ~(MODE_NO_ZERO_DATE | MODE_NO_ZERO_IN_DATE);
}

// Not inlined: the server measures the thread's stack from the address of the
// local variable.
[[gnu::noinline]] void make_current(THD *thd) {
  char stack_start;
  // The server compares addresses and never reads through this one.
  *const_cast<volatile const char **>(
      const_cast<const char **>(&thd->thread_stack)) = &stack_start;
  thd->store_globals();
}

void bind_to_thread(THD *thd) {
  make_current(thd);
  bound = thd;
  bound_at = n_destroyed;
}

void destroy_session(THD *thd) {
  PSI_thread *const row = thd->get_psi();
  {
    const thread_row::Bound bound_row(row);
    thd->get_protocol_classic()->end_net();
    thd->release_resources();
    if (bound == thd) bound = nullptr;
    ++n_destroyed;
    delete thd;
  }
  thread_row::destroy(row);
}

// The server wants a session bound to the thread that destroys it.
struct Destroy_unbound {
  void operator()(THD *thd) const {
    bind_to_thread(thd);
    destroy_session(thd);
  }
};

// Destroys the row when a step fails before the session has it.
struct Destroy_row {
  void operator()(PSI_thread *row) const { thread_row::destroy(row); }
};

THD *new_session(Session_role role) {
  std::unique_ptr<PSI_thread, Destroy_row> row(thread_row::create(role));
  const thread_row::Bound bound_row(row.get());
  std::unique_ptr<THD, Destroy_unbound> thd(new (std::nothrow) THD(true));
  if (thd == nullptr) return nullptr;
  thd->get_protocol_classic()->init_net(nullptr);
  thd->set_new_thread_id();
  bound_row.give_to(thd.get());
  row.release();
  const std::lock_guard<std::mutex> lock(thd_pool_mutex);
  // Giving the session back must not fail.
  thd_pool.reserve(thd_pool_max_size);
  if (role == Session_role::WORKER) workers_sessions().insert(thd.get());
  try {
    in_use().insert(thd.get());
  } catch (...) {
    workers_sessions().erase(thd.get());
    throw;
  }
  return thd.release();
}

// An idle session that still owned an InnoDB transaction would stop the server
// at shutdown, and its closed copy of a donor's view could be reopened as the
// fresh view of the session's next user.
void release_transaction(THD *thd) {
  if (thd_get_ha_data(thd, innodb_hton) == nullptr) return;
  innodb_hton->close_connection(innodb_hton, thd);
  thd_set_ha_data(thd, innodb_hton, nullptr);
}

// Nothing else frees this memory, and a session serves any number of cursors,
// each of which takes a record buffer and names from it.
void release_memory(THD *thd) {
  thd->get_stmt_da()->reset_diagnostics_area();
  thd->get_stmt_da()->reset_condition_info(thd);
  thd->mem_root->ClearForReuse();
}

}  // namespace

THD *CommonApi::create_thd(Session_role role) {
  THD *thd = take_idle_session(role);
  if (thd == nullptr) thd = new_session(role);
  if (thd == nullptr) return nullptr;
  const thread_row::Bound bound_row(thd);
  bind_to_thread(thd);
  thd->killed = THD::NOT_KILLED;
  // A time that is converted to a datetime gets today's date.
  thd->set_time();
  // Reset as between two statements. This also clears the fatal error of a
  // killed predecessor, under which 8.0 opens no table that has expressions.
  thd->reset_for_next_command();
  adapt_to_cursors(thd);
  return thd;
}

void CommonApi::thd_attach(THD *thd, THD **original_thd) {
  if (original_thd != nullptr) *original_thd = current_thd;
  // A session that another thread used meanwhile is bound again: the server
  // would measure this thread's stack from the other's.
  if (current_thd == thd && my_thread_equal(thd->real_id, my_thread_self())) {
    bound = thd;
    bound_at = n_destroyed;
    return;
  }
  bind_to_thread(thd);
}

void CommonApi::attach_over_own(THD *thd) {
  if (current_thd == thd) return;
  if (current_thd == nullptr || has_own_session()) bind_to_thread(thd);
}

Own_session::Own_session(THD *thd) {
  CommonApi::attach_over_own(thd);
  if (current_thd == thd) return;
  clients_ = current_thd;
  make_current(thd);
}

Own_session::~Own_session() {
  if (clients_ != nullptr) clients_->store_globals();
}

uint32_t CommonApi::calling_client() {
  const THD *thd = current_thd;
  if (thd == nullptr) {
    client_of_thread = 0;
  } else if (!has_own_session()) {
    client_of_thread = thd->thread_id();
  }
  return client_of_thread;
}

void CommonApi::copy_settings(const THD *from, THD *to) {
  to->variables.time_zone = from->variables.time_zone;
  to->variables.sql_mode = from->variables.sql_mode;
  to->start_time = from->start_time;
}

namespace {

// @return whether the session was taken into the pool
bool give_back(THD *thd, bool to_pool) {
  const thread_row::Bound bound_row(thd);
  {
    const std::lock_guard<std::mutex> lock(thd_pool_mutex);
    in_use().erase(thd);
    ++n_closing;
  }
  thd->mdl_context.release_transactional_locks();
  release_transaction(thd);
  release_memory(thd);
  bound_row.become_idle();
  const std::lock_guard<std::mutex> lock(thd_pool_mutex);
  --n_closing;
  if (to_pool && thd_pool.size() < thd_pool_max_size) {
    thd_pool.push_back(thd);
    return true;
  }
  workers_sessions().erase(thd);
  return false;
}

}  // namespace

void CommonApi::close_thd(THD *thd) {
  if (!give_back(thd, true)) destroy_session(thd);
}

void CommonApi::destroy_thd(THD *thd) {
  give_back(thd, false);
  destroy_session(thd);
}

uint CommonApi::get_last_error(THD *thd, char *message) {
  const Diagnostics_area *da = thd->get_stmt_da();
  if (da == nullptr || (!da->is_error() && !da->is_ok())) return 0;
  copy_text(message, MYSQL_ERRMSG_SIZE, da->message_text());
  return da->is_error() ? da->mysql_errno() : 0;
}

void CommonApi::destroy_idle_sessions() {
  // A session of ours need not be bound again: whoever uses it does that.
  THD *clients = has_own_session() ? nullptr : current_thd;
  const std::lock_guard<std::mutex> lock(thd_pool_mutex);
  for (THD *thd : thd_pool) {
    if (thd == clients) clients = nullptr;
    workers_sessions().erase(thd);
    Destroy_unbound()(thd);
  }
  thd_pool.clear();
  if (clients != nullptr) make_current(clients);
}

void CommonApi::interrupt_sessions() {
  const std::lock_guard<std::mutex> lock(thd_pool_mutex);
  for (THD *thd : in_use()) {
    mysql_mutex_lock(&thd->LOCK_thd_data);
    thd->awake(THD::KILL_CONNECTION);
    mysql_mutex_unlock(&thd->LOCK_thd_data);
  }
}

size_t CommonApi::sessions_in_use() {
  const std::lock_guard<std::mutex> lock(thd_pool_mutex);
  return in_use().size() + n_closing;
}
