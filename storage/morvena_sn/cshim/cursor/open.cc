// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Opening a cursor.

#include "cursor/open.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "common.h"
#include "common/counters.h"
#include "common/thread_row.h"
#include "host.h"
#include "innodb_api/in_callback.h"

namespace {

void report(const Open_report &to, uint error, const char *text) {
  if (to.error != nullptr) *to.error = error;
  if (to.message != nullptr) memcpy(to.message, text, strlen(text) + 1);
}

void report_session(const Open_report &to, THD *thd) {
  char text[MYSQL_ERRMSG_SIZE];
  char *message = to.message != nullptr ? to.message : text;
  const uint error = CommonApi::get_last_error(thd, message);
  if (to.error != nullptr) *to.error = error;
}

// What the session's row in performance_schema.threads says of the cursor. The
// names are not checked yet.
void tell(const thread_row::Bound &row, const Open_request &request) {
  const auto or_empty = [](const char *name) { return name ? name : ""; };
  char text[2 * NAME_LEN + 64];
  if (request.index_name != nullptr) {
    snprintf(text, sizeof text, "cursor on %.*s index %.*s donor %u", NAME_LEN,
             or_empty(request.table_name), NAME_LEN, request.index_name,
             request.snapshot_donor);
  } else {
    snprintf(text, sizeof text, "cursor on %.*s donor %u", NAME_LEN,
             or_empty(request.table_name), request.snapshot_donor);
  }
  row.tell(request.db_name, text);
}

// What an opening holds. The destructor gives it back when a step has failed.
class Opening {
 public:
  explicit Opening(THD *thd) : thd_(thd) {}
  ~Opening() {
    if (calls_ != nullptr) calls_->unlist();
    delete calls_;
    if (thd_ == nullptr) return;
    if (table_ != nullptr) CommonApi::unlock_table(thd_, table_);
    CommonApi::close_thd(thd_);
  }
  Opening(const Opening &) = delete;
  Opening &operator=(const Opening &) = delete;

  // A client that gives its own snapshot has the cursor read for it: its kill
  // ends the cursor's calls on any thread.
  void begin_call(uint32_t client, uint32_t donor) {
    calls_ = new Session_calls(thd_, client == donor ? client : 0);
    calls_->mark_opening(true);
    calls_->begin(client);
    calls_->list();
  }
  bool open_and_lock(const Open_request &request) {
    // The session has the timeout of its last user.
    CommonApi::set_lock_wait_timeout(thd_, request.timeout_sec);
    table_ = CommonApi::open_table(thd_, request.db_name, request.table_name);
    return table_ != nullptr &&
           !CommonApi::lock_table(thd_, table_, request.timeout_sec);
  }
  CursorWrapper *make_wrapper(const Open_request &request, Make_wrapper make) {
    const Snapshot snapshot =
        CommonApi::start_transaction(thd_, request.snapshot_donor);
    if (snapshot == Snapshot::FAILED) return nullptr;
    std::unique_ptr<CursorWrapper> wrapper =
        make(request, {thd_, table_, calls_, snapshot});
    if (wrapper == nullptr) return nullptr;
    list_handle(wrapper.get());
    // No failure of the opening: the error is there to be looked at.
    if (snapshot == Snapshot::UNKNOWN_DONOR) {
      my_error(ER_NO_SUCH_THREAD, MYF(0), ulong{request.snapshot_donor});
    }
    calls_->mark_opening(false);
    calls_->end(false);
    calls_ = nullptr;
    thd_ = nullptr;
    return wrapper.release();
  }
  THD *session_of_donor() { return std::exchange(thd_, nullptr); }

 private:
  THD *thd_;
  TABLE *table_ = nullptr;
  Session_calls *calls_ = nullptr;
};

// A kill may leave no error of its own behind.
void report_failure(const Open_report &to, THD *thd) {
  if (!thd->is_error() && thd->killed != THD::NOT_KILLED) {
    my_error(ER_QUERY_INTERRUPTED, MYF(0));
  }
  if (!thd->is_error()) my_error(ER_UNKNOWN_ERROR, MYF(0));
  report_session(to, thd);
}

uintptr_t open_in(THD *thd, uint32_t client, const Open_request &request,
                  Make_wrapper make, const Open_report &to) {
  const thread_row::Bound row(thd);
  Opening opening(thd);
  try {
    CommonApi::thd_attach(thd, nullptr);
    opening.begin_call(client, request.snapshot_donor);
    // A shutdown that begins after this finds the call listed and interrupts
    // it; one that began before is seen here.
    if (!CommonApi::server_is_available()) {
      report(to, ER_SERVER_ISNT_AVAILABLE, "Server isn't available");
      return 0;
    }
    tell(row, request);
    row.enter(thread_row::State::OPENING);
    CursorWrapper *wrapper = opening.open_and_lock(request)
                                 ? opening.make_wrapper(request, make)
                                 : nullptr;
    if (wrapper != nullptr) {
      row.enter(thread_row::State::OPEN);
      counters::count(Tally::CURSORS_OPENED);
      counters::count(Tally::CURSORS_OPEN);
      return reinterpret_cast<uintptr_t>(wrapper);
    }
    report_failure(to, thd);
  } catch (...) {
    report(to, ER_OOM, "Out of memory");
  }
  return 0;
}

THD *create_session() {
  try {
    CommonApi::set_last_cleanup(close_leftover_handles);
    CommonApi::guard_shutdown();
    return CommonApi::create_thd();
  } catch (...) {
    return nullptr;
  }
}

// @return a session, null with the reason reported
THD *session_for(const Open_report &to) {
  if (to.error != nullptr) *to.error = 0;
  // The callback's worker holds a page. The server must not open a table
  // meanwhile: it may have to read the table's definition and to store
  // statistics about it.
  if (in_callback()) {
    report(to, ER_NOT_SUPPORTED_YET,
           "Cannot open a cursor inside the callback of a parallel read");
    return nullptr;
  }
  if (!CommonApi::server_is_available()) {
    report(to, ER_SERVER_ISNT_AVAILABLE, "Server isn't available");
    return nullptr;
  }
  THD *thd = create_session();
  if (thd == nullptr) {
    report(to, ER_OOM, "Out of memory");
    return nullptr;
  }
  // The session is counted: a shutdown that begins after this waits for it; one
  // that began before is seen here.
  if (!CommonApi::server_is_available()) {
    CommonApi::close_thd(thd);
    report(to, ER_SERVER_ISNT_AVAILABLE, "Server isn't available");
    return nullptr;
  }
  return thd;
}

}  // namespace

uintptr_t open_handle(const Open_request &request, Make_wrapper make,
                      const Open_report &to) {
  const uint32_t client = CommonApi::calling_client();
  THD *thd = session_for(to);
  const uintptr_t handle =
      thd != nullptr ? open_in(thd, client, request, make, to) : 0;
  if (handle == 0) counters::count(Tally::REFUSALS);
  return handle;
}

uint32_t open_donor(const Open_report &to) {
  THD *thd = session_for(to);
  if (thd == nullptr) return 0;
  Opening opening(thd);
  try {
    const thread_row::Bound row(thd);
    row.tell(nullptr, "snapshot");
    const uint32_t id = CommonApi::make_donor(thd);
    row.enter(thread_row::State::OPEN);
    opening.session_of_donor();
    return id;
  } catch (...) {
    report(to, ER_OOM, "Out of memory");
    return 0;
  }
}

void close_donor(uint32_t id) {
  THD *thd = CommonApi::drop_donor(id);
  if (thd != nullptr) CommonApi::destroy_thd(thd);
}
