// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Failures in words.

#include "common/failure.h"

#include <sys/time.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <new>
#include <string>

#include "common/counters.h"
#include "common/text.h"
#include "host.h"

namespace {

// As the server's log has it: UTC, to the microsecond.
std::string time_stamp() {
  timeval now;
  gettimeofday(&now, nullptr);
  tm utc;
  gmtime_r(&now.tv_sec, &utc);
  char text[64];
  snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ",
           utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour,
           utc.tm_min, utc.tm_sec, static_cast<long>(now.tv_usec));
  return text;
}

}  // namespace

// In one piece: several workers may fail at the same time.
void write_to_log(const char *text) {
  try {
    std::cerr << time_stamp() + " 0 [Note] [morvena_sn] " + text + "\n"
              << std::flush;
  } catch (...) {
    // Without memory the line is lost; the failure is reported all the same.
  }
}

void Failure::clear() {
  if (!is_set()) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  code_ = 0;
}

void Failure::set(unsigned int code, const char *text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (is_set()) return;
  if (text_ == nullptr) text_ = new (std::nothrow) char[text_bytes];
  if (text_ != nullptr) copy_text(text_, text_bytes, text);
  code_.store(code, std::memory_order_release);
}

const char *Failure::text() const {
  if (!is_set()) return "";
  return text_ != nullptr ? text_ : "Out of memory";
}

void Failure::end() {
  const std::lock_guard<std::mutex> lock(mutex_);
  code_ = 0;
  delete[] text_;
  text_ = nullptr;
}

void Failure::raise(unsigned int code, const char *text) {
  write_to_log(text);
  set(code, text);
}

void Failure::set_interrupted() {
  set(ER_QUERY_INTERRUPTED, "Query execution was interrupted");
}

void Failure::set_wrong_argument(const char *what) {
  char text[text_bytes];
  snprintf(text, sizeof text, "Incorrect arguments to %s", what);
  set(ER_WRONG_ARGUMENTS, text);
}

bool Failure::is_interruption() const { return code() == ER_QUERY_INTERRUPTED; }

bool Failure::take_from(const THD *thd) {
  const Diagnostics_area *state = thd->get_stmt_da();
  if (!state->is_error()) return false;
  set(state->mysql_errno(), state->message_text());
  return true;
}

void Failure::count() const {
  switch (code()) {
    case 0:
    case er_callback_stopped:
      return;
    case ER_QUERY_INTERRUPTED:
      return counters::count(Tally::KILLS);
    case ER_CHECK_NOT_IMPLEMENTED:
    case ER_INDEX_CORRUPT:
    case ER_KEY_DOES_NOT_EXITS:
    case ER_TABLESPACE_DISCARDED:
    case ER_TABLE_DEF_CHANGED:
    case ER_WRONG_ARGUMENTS:
      return counters::count(Tally::REFUSALS);
    default:
      return counters::count(Tally::FAILURES);
  }
}
