// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The rows that the plug-in's sessions have in performance_schema.threads.

#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "common.h"
#include "known_thread.h"
#include "my_thread.h"
#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;

class ThreadRow : public Parallel_test {
 protected:
  ThreadRow() {
    CommonApi::destroy_idle_sessions();
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
    fill("t", 20000, "i, i * 10");
  }

  Rows rows_of(const std::string &name) {
    return sql.query(
        "SELECT processlist_user, processlist_db, processlist_command,"
        " processlist_state, processlist_info FROM performance_schema.threads"
        " WHERE name = 'thread/morvena_sn/" +
        name + "' ORDER BY processlist_info");
  }

  static Row row(const std::string &state, const std::string &info) {
    return {"morvena_sn", "db", "Daemon", state, info};
  }
  /** Reads with two workers that run at the same time. */
  static void read_with_two(const Scan &scan) {
    std::mutex mu;
    std::set<uint64_t> workers;
    const auto n_workers = [&] {
      const std::lock_guard<std::mutex> lock(mu);
      return workers.size();
    };
    EXPECT_TRUE(read_parallel(scan, 2, [&](const Batch &batch) {
      {
        const std::lock_guard<std::mutex> lock(mu);
        workers.insert(batch.thread);
      }
      EXPECT_TRUE(wait_until([&] { return n_workers() == 2; }));
      return false;
    }));
  }
  std::string donor_id() const { return std::to_string(donor.id()); }
};

TEST_F(ThreadRow, OpenCursorSaysWhatItIsOn) {
  const Cursor cursor({.index = "by_v", .donor = donor.id()});
  const Scan scan;
  EXPECT_EQ(rows_of("cursor"),
            (Rows{row("open", "cursor on t donor 0"),
                  row("open", "cursor on t index by_v donor " + donor_id())}));
}

TEST_F(ThreadRow, ItsIdIsTheSessions) {
  const Cursor cursor;
  EXPECT_EQ(sql.number("SELECT processlist_id FROM performance_schema.threads"
                       " WHERE name = 'thread/morvena_sn/cursor'"),
            session_id(current_session()));
}

TEST_F(ThreadRow, MetadataLockLeadsToTheCursor) {
  std::unique_ptr<Cursor> cursor;
  // This thread is not registered with the server.
  std::thread([&] {
    my_thread_init();
    EXPECT_EQ(own_thread_row(), nullptr);
    cursor = std::make_unique<Cursor>(Open{.index = "by_v"});
    my_thread_end();
  }).join();
  EXPECT_EQ(sql.query("SELECT lock_type, processlist_info FROM"
                      " performance_schema.metadata_locks l JOIN"
                      " performance_schema.threads t"
                      " ON l.owner_thread_id = t.thread_id"
                      " WHERE object_schema = 'db' AND object_name = 't'"),
            (Rows{{"SHARED_READ", "cursor on t index by_v donor 0"}}));
}

TEST_F(ThreadRow, OpeningThatWaitsSaysForWhat) {
  sql.exec("LOCK TABLES t WRITE");
  auto opening = on_own_thread([] {
    const Cursor cursor({.timeout = 60});
    EXPECT_TRUE(cursor.is_open());
  });
  Client client;
  EXPECT_TRUE(wait_until([&] {
    return client.query(
               "SELECT processlist_state, processlist_info FROM"
               " performance_schema.threads WHERE"
               " name = 'thread/morvena_sn/cursor'") ==
           Rows{{"Waiting for table metadata lock",
                 "cursor on t index PRIMARY donor 0"}};
  }));
  sql.exec("UNLOCK TABLES");
  opening.get();
}

TEST_F(ThreadRow, ParallelReadShowsItsWorkers) {
  std::promise<void> goes_on;
  const std::shared_future<void> may_go_on(goes_on.get_future());
  const Scan scan;
  const std::string id = std::to_string(session_id(current_session()));
  auto reader = on_own_thread([&] {
    EXPECT_TRUE(read_parallel(scan, 2, [&](const Batch &) {
      may_go_on.wait();
      return false;
    }));
  });
  const std::string state = "reading in parallel";
  const std::string rest = " on t index PRIMARY of session " + id;
  EXPECT_TRUE(wait_until([&] {
    return rows_of("worker") ==
           Rows{row(state, "worker 0" + rest), row(state, "worker 1" + rest)};
  }));
  EXPECT_EQ(rows_of("cursor"), (Rows{row(state, "cursor on t donor 0")}));
  goes_on.set_value();
  reader.get();
  EXPECT_EQ(rows_of("cursor"), (Rows{row("open", "cursor on t donor 0")}));
}

TEST_F(ThreadRow, IdleSessionSaysNothing) {
  { const Cursor cursor, refused({.table = "nothing"}); }
  const Row idle{"morvena_sn", {}, "Sleep", {}, {}};
  EXPECT_EQ(rows_of("cursor"), (Rows{idle, idle}));
  const Cursor cursor;
  EXPECT_EQ(rows_of("cursor"),
            (Rows{idle, row("open", "cursor on t index PRIMARY donor 0")}));
}

TEST_F(ThreadRow, EndsWithItsSession) {
  read_with_two(Scan());
  EXPECT_EQ(rows_of("cursor").size(), 1u);
  EXPECT_EQ(rows_of("worker").size(), 2u);
  CommonApi::destroy_idle_sessions();
  EXPECT_TRUE(rows_of("cursor").empty());
  EXPECT_TRUE(rows_of("worker").empty());
}

TEST_F(ThreadRow, WorkersAndCursorsServeTheirOwnKindAgain) {
  read_with_two(Scan());
  read_with_two(Scan());
  EXPECT_EQ(rows_of("cursor").size(), 1u);
  EXPECT_EQ(rows_of("worker").size(), 2u);
}

TEST_F(ThreadRow, CallersOneIsPutBack) {
  const auto check = [] {
    const void *own = own_thread_row();
    char before[16], after[16];
    pthread_getname_np(pthread_self(), before, sizeof before);
    const auto expect_own = [&](const char *call) {
      EXPECT_EQ(own_thread_row(), own) << call;
      pthread_getname_np(pthread_self(), after, sizeof after);
      EXPECT_STREQ(after, before) << call;
    };
    Cursor cursor;
    expect_own("open");
    EXPECT_TRUE(cursor.set_range());
    EXPECT_TRUE(cursor.next());
    EXPECT_TRUE(cursor.read_text(1));
    expect_own("read");
    for (const size_t threads : {size_t{0}, size_t{2}}) {
      EXPECT_TRUE(
          read_parallel(cursor, threads, [](const Batch &) { return false; }));
      expect_own("read in parallel");
    }
    cursor.close();
    expect_own("close");
    EXPECT_FALSE(Cursor({.table = "nothing"}).is_open());
    expect_own("refused opening");
    deinit_common();
    init_common();
    expect_own("deinit");
  };
  EXPECT_NE(own_thread_row(), nullptr);
  check();
  std::thread([&] {
    pthread_setname_np(pthread_self(), "of its own");
    my_thread_init();
    EXPECT_EQ(own_thread_row(), nullptr);
    check();
    my_thread_end();
  }).join();
}

// The sessions do not count as connections of clients.
TEST_F(ThreadRow, SessionsAreNoClients) {
  const auto connected = [this] {
    return sql.query("SHOW GLOBAL STATUS LIKE 'Threads_connected'");
  };
  const Rows before = connected();
  const Cursor cursor;
  EXPECT_EQ(connected(), before);
}

}  // namespace
