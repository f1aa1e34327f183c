/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// Opening a cursor.

#include "cursor/open.h"

#include <cstring>

#include "common.h"
#include "host.h"

namespace {

void report(const Open_report &to, uint error, const char *text) {
  if (to.error != nullptr) *to.error = error;
  if (to.message != nullptr) memcpy(to.message, text, strlen(text) + 1);
}

void report_session(const Open_report &to, void *thd) {
  char text[MYSQL_ERRMSG_SIZE];
  char *message = to.message != nullptr ? to.message : text;
  const uint error = CommonApi::get_last_error(thd, message);
  if (to.error != nullptr) *to.error = error;
}

// A session that a step after it may leave through, with or without a table.
class Opening {
 public:
  explicit Opening(void *thd) : thd_(thd) {}
  ~Opening() {
    if (thd_ == nullptr) return;
    if (table_ != nullptr) CommonApi::unlock_table(thd_, table_, HDL_READ);
    CommonApi::close_thd(thd_);
  }
  Opening(const Opening &) = delete;
  Opening &operator=(const Opening &) = delete;

  bool open_and_lock(const Open_request &request) {
    table_ = CommonApi::open_table(thd_, request.db_name, request.table_name,
                                   HDL_READ);
    return table_ != nullptr &&
           !CommonApi::lock_table(thd_, table_, HDL_READ, request.timeout_sec);
  }
  CursorWrapper *make_wrapper(const Make_wrapper &make) {
    std::unique_ptr<CursorWrapper> wrapper(make(thd_, table_));
    if (wrapper == nullptr) return nullptr;
    list_handle(wrapper.get());
    thd_ = nullptr;
    return wrapper.release();
  }

 private:
  void *thd_;
  void *table_ = nullptr;
};

uintptr_t open_in(void *thd, const Open_request &request,
                  const Make_wrapper &make, const Open_report &to) {
  Opening opening(thd);
  try {
    CommonApi::thd_attach(thd, nullptr);
    CursorWrapper *wrapper =
        opening.open_and_lock(request) ? opening.make_wrapper(make) : nullptr;
    if (wrapper != nullptr) return reinterpret_cast<uintptr_t>(wrapper);
    report_session(to, thd);
  } catch (...) {
    report(to, ER_OOM, "Out of memory");
  }
  return 0;
}

void *create_session() {
  try {
    CommonApi::guard_shutdown();
    return CommonApi::create_thd();
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

uintptr_t open_handle(const Open_request &request, const Make_wrapper &make,
                      const Open_report &to) {
  if (to.error != nullptr) *to.error = 0;
  if (!CommonApi::server_is_available()) {
    report(to, ER_SERVER_ISNT_AVAILABLE, "Server isn't available");
    return 0;
  }
  void *thd = create_session();
  if (thd == nullptr) {
    report(to, ER_OOM, "Out of memory");
    return 0;
  }
  // Now that the session is counted, the guard waits for it, or has begun.
  if (!CommonApi::server_is_available()) {
    CommonApi::close_thd(thd);
    report(to, ER_SERVER_ISNT_AVAILABLE, "Server isn't available");
    return 0;
  }
  return open_in(thd, request, make, to);
}
