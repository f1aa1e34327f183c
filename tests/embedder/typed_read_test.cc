// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The sessions in which typed reads convert values, and exceptions that
// conversions throw.

#include "innodb_api/batch.h"
#include "parallel_test.h"
#include "session.h"

namespace {

using namespace harness;

/** Replaces a conversion of the server from text to a number. It throws. */
template <class Conversion>
struct Throwing;
template <class Result, class... Arguments>
struct Throwing<Result (*)(Arguments...)> {
  static Result convert(Arguments...) { throw std::bad_alloc(); }
};

class TypedRead : public Cursor_test {
 protected:
  TypedRead() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, clock TIME, word VARCHAR(10))");
    sql.exec("INSERT INTO t VALUES (1, '01:02:03', 'no number')");
  }

  /** The current date by SQL, in days since 2000-01-01. */
  int64_t today() {
    return sql.number("SELECT DATEDIFF(CURDATE(), '2000-01-01')");
  }

  /** A client whose statement began three days ago. */
  struct Old_client : Client_session {
    Old_client() {
      start_statement(get());
      age_statement(get(), 3 * 86400);
    }
  };

  /** Run f with the batch of t's row. */
  static void with_batch(const On_batch &f) {
    size_t batches = 0;
    EXPECT_TRUE(read_parallel(Scan(), 0, [&](const Batch &batch) {
      ++batches;
      return f(batch);
    }));
    EXPECT_EQ(batches, 1u);
  }
};

TEST_F(TypedRead, TakesTheDateOfTheCursorsSession) {
  Cursor cursor;
  ASSERT_TRUE(cursor.set_range());
  const int64_t before = today();
  const Old_client client;
  const int64_t day = cursor.read_date(1).value();
  EXPECT_EQ(cursor.read_datetime(1), (day * 86400 + 3723) * 1000000);
  EXPECT_EQ(current_session(), client.get());
  EXPECT_TRUE(is_of_this_thread(client.get()));
  // Midnight may have passed during the case.
  EXPECT_GE(day, before - 1);
  EXPECT_LE(day, today());
}

TEST_F(TypedRead, WarnsInTheCursorsSession) {
  Cursor cursor;
  void *session = current_session();
  ASSERT_TRUE(cursor.set_range());
  const Old_client client;
  const size_t before = warnings(session);
  EXPECT_EQ(cursor.read_int(2), 0);
  EXPECT_EQ(current_session(), client.get());
  EXPECT_EQ(warnings(client.get()), 0u);
  EXPECT_EQ(warnings(session), before + 1);
}

TEST_F(TypedRead, OfABatchTakesTheDateOfTheWorkersSession) {
  const int64_t before = today();
  int64_t day = 0;
  with_batch([&](const Batch &batch) {
    void *workers = current_session();
    {
      const Old_client client;
      day = batch.read_date(1, 0).value();
      EXPECT_EQ(batch.read_datetime(1, 0), (day * 86400 + 3723) * 1000000);
      EXPECT_EQ(current_session(), client.get());
      EXPECT_TRUE(is_of_this_thread(client.get()));
    }
    restore_session(workers);
    return false;
  });
  EXPECT_GE(day, before - 1);
  EXPECT_LE(day, today());
}

TEST_F(TypedRead, OfABatchWarnsInTheWorkersSession) {
  with_batch([&](const Batch &batch) {
    void *workers = current_session();
    const size_t before = warnings(workers);
    {
      const Old_client client;
      EXPECT_EQ(batch.read_int(2, 0), 0);
      EXPECT_EQ(current_session(), client.get());
      EXPECT_EQ(warnings(client.get()), 0u);
    }
    EXPECT_EQ(warnings(workers), before + 1);
    restore_session(workers);
    return false;
  });
}

// The caller may be written in C, and an exception cannot pass through C code.
TEST_F(TypedRead, OfABatchGivesNoValueWhereTheConversionThrows) {
  with_batch([](const Batch &batch) {
    auto *worker = reinterpret_cast<ThreadCtx *>(batch.handle);
    auto *word = static_cast<Field_str *>(worker->field(2));
    const CHARSET_INFO *charset = word->charset();
    MY_CHARSET_HANDLER handler = *charset->cset;
    handler.strntoll = &Throwing<decltype(handler.strntoll)>::convert;
    CHARSET_INFO throwing = *charset;
    throwing.cset = &handler;
    word->set_charset(&throwing);
    {
      const Client_session client;
      long long value = 17;
      EXPECT_NO_THROW(EXPECT_TRUE(pread_field_int(batch.handle, 2, 0, &value)));
      EXPECT_EQ(value, 17);
      EXPECT_EQ(current_session(), client.get());
    }
    restore_session(worker->session());
    word->set_charset(charset);
    EXPECT_EQ(batch.read_int(2, 0), 0);
    return false;
  });
}

}  // namespace
