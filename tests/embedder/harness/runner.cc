// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file runner.cc
  The plug-in that holds the cases, and the SQL function that runs one of them
  inside the server:

    CREATE FUNCTION morvena_test RETURNS STRING SONAME 'morvena_sn_test.so';
    SELECT morvena_test('Suite.Case');      'PASS', or what went wrong
    SELECT morvena_test('--list');          the names of all cases
*/

#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "client_call.h"
#include "common.h"
#include "cursor.h"
#include "gtest/gtest.h"
#include "known_thread.h"
#include "lifecycle.h"
#include "my_config.h"
#include "mysql.h"
#include "mysql/plugin.h"
#include "udf_text.h"

namespace harness {
namespace {

std::mutex running;  // one case at a time: GoogleTest's state is global

/** Collects the failures, and fails a case that leaves a session in use. */
class Listener : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo &test) override {
    name_ = std::string(test.test_suite_name()) + "." + test.name();
    fprintf(stderr, "case %s starts\n", name_.c_str());
    ++cases_;
    sessions_ = CommonApi::sessions_in_use();
  }

  void OnTestPartResult(const testing::TestPartResult &part) override {
    if (part.passed()) return;
    failures_ << (part.file_name() ? part.file_name() : "") << ":"
              << part.line_number() << ": " << part.message() << "\n";
  }

  void OnTestEnd(const testing::TestInfo &) override {
    if (CommonApi::sessions_in_use() != sessions_)
      ADD_FAILURE() << CommonApi::sessions_in_use() - sessions_
                    << " sessions are still in use";
  }

  std::string take_result() {
    std::string result = failures_.str();
    if (cases_ != 1) result += std::to_string(cases_) + " cases ran";
    if (result.empty()) result = "PASS";
    fprintf(stderr, "case %s: %s\n", name_.c_str(), result.c_str());
    failures_.str("");
    cases_ = 0;
    return result;
  }

 private:
  std::string name_;
  std::ostringstream failures_;
  int cases_ = 0;
  size_t sessions_ = 0;
};

Listener *prepare() {
  static Listener *const listener = [] {
    int argc = 1;
    char name[] = "morvena_sn_test";
    char *argv[] = {name, nullptr};
    testing::InitGoogleTest(&argc, argv);
    auto &listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    auto *own = new Listener;
    listeners.Append(own);
    start_embedding();
    return own;
  }();
  return listener;
}

std::string list_cases() {
  std::string names;
  const auto *all = testing::UnitTest::GetInstance();
  for (int i = 0; i < all->total_test_suite_count(); ++i) {
    const auto *suite = all->GetTestSuite(i);
    for (int j = 0; j < suite->total_test_count(); ++j)
      names += std::string(suite->name()) + "." +
               suite->GetTestInfo(j)->name() + "\n";
  }
  return names;
}

std::string run_case(const std::string &name) {
  const std::string call = "--call ";
  if (name.compare(0, call.size(), call) == 0) {
    make_client_call(name.substr(call.size()));
    return "";
  }
  const std::lock_guard<std::mutex> lock(running);
  Listener *const listener = prepare();
  if (name == "--list") return list_cases();
  testing::GTEST_FLAG(filter) = name;
  // Use a new thread: a cursor replaces the calling thread's current session,
  // and on the client's thread that is the client's own.
  std::thread([] {
    const Known_thread known;
    // The listener collects the result.
    [[maybe_unused]] const int result = RUN_ALL_TESTS();
  }).join();
  return listener->take_result();
}

}  // namespace
}  // namespace harness

extern "C" {

bool morvena_test_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  return harness::start_text_function(init, args, message);
}

void morvena_test_deinit(UDF_INIT *init) { harness::end_text_function(init); }

char *morvena_test(UDF_INIT *init, UDF_ARGS *args, char *,
                   unsigned long *length, unsigned char *, unsigned char *) {
  return harness::answer(init, harness::run_case(harness::argument(args)),
                         length);
}

}  // extern "C"
