// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "misuse.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "gtest/gtest.h"

namespace harness {

namespace {

constexpr size_t most_open = 12;
constexpr size_t value_bytes = 64;

}  // namespace

uint64_t sum_of(const char *text, size_t size) {
  uint64_t sum = size;
  for (size_t i = 0; i < size; ++i)
    sum = sum * 31 + static_cast<unsigned char>(text[i]);
  return sum;
}

std::vector<std::string> misuse_tables() {
  return {
      "CREATE TABLE t (id INT PRIMARY KEY, b BIGINT UNSIGNED, s VARCHAR(40),"
      " n DECIMAL(30, 9), d DATE, dt DATETIME(6), ts TIMESTAMP(3) NULL, ti"
      " TIME(2), y YEAR, e ENUM ('a', 'b'), st SET ('x', 'y'), bi BIT(11),"
      " f DOUBLE, tx TEXT, bl LONGBLOB, j JSON, g GEOMETRY, c CHAR(9),"
      " vi INT AS (id + 1) VIRTUAL, so INT AS (id * 2) STORED,"
      " KEY by_s (s, n), KEY by_time (dt, d, ti, ts), KEY by_tx (tx(7)),"
      " KEY by_b (b, f, bi), KEY by_vi (vi), UNIQUE KEY by_e (id, e),"
      " FULLTEXT KEY ft (s), KEY down (f DESC, id))",
      "INSERT INTO t (id, b, s, n, d, dt, ts, ti, y, e, st, bi, f, tx, bl, j, "
      "g,"
      " c) WITH RECURSIVE k (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM k"
      " WHERE i < 900) SELECT i, i * 1e15, REPEAT('s', i % 41), i / 7,"
      " '2020-01-01' + INTERVAL i DAY, '2020-01-01' + INTERVAL i HOUR,"
      " '2020-01-01' + INTERVAL i HOUR, SEC_TO_TIME(i * 37 - 9000), 2000 + i %"
      " 100, 1 + i % 2, i % 4, i, i / 3e0, REPEAT('t', i * 7 % 3000),"
      " REPEAT('b', IF(i % 30 = 0, 20000, i)), JSON_OBJECT('i', i), POINT(i, "
      "1),"
      " i FROM k",
      "UPDATE t SET b = NULL, s = NULL, tx = NULL, j = NULL WHERE id % 11 = 0",
      "CREATE TABLE keyless (a INT, s VARCHAR(20), KEY by_a (a))",
      "INSERT INTO keyless SELECT id, s FROM t WHERE id < 300 AND id % 11 > 0"
      " AND LENGTH(s) <= 20",
      "CREATE TABLE parted (id INT PRIMARY KEY, v INT, KEY by_v (v)) PARTITION"
      " BY HASH (id) PARTITIONS 3",
      "INSERT INTO parted SELECT id, id % 20 FROM t",
      "CREATE TABLE nothing_in (id INT PRIMARY KEY)",
      "CREATE VIEW view AS SELECT id FROM t",
      "CREATE TABLE of_memory (id INT PRIMARY KEY) ENGINE = MEMORY",
  };
}

void Shared_handles::add(uintptr_t value, bool is_scan) {
  const std::lock_guard<std::mutex> lock(mu_);
  handles_.push_back({value, is_scan});
}

// Mostly one of the latest 40 handles, open or closed. Five times in six the
// choice looks for a handle that has not been closed.
Shared_handles::Handle Shared_handles::pick(std::mt19937 &engine) const {
  const std::lock_guard<std::mutex> lock(mu_);
  if (handles_.empty()) return {};
  const size_t n = std::min<size_t>(handles_.size(), 40);
  const bool wants_open = engine() % 6 != 0;
  for (int tries = 0; tries < 60; ++tries) {
    const Handle &handle = handles_[handles_.size() - 1 - engine() % n];
    if (!wants_open || !handle.was_closed) return handle;
  }
  return handles_[engine() % handles_.size()];
}

void Shared_handles::mark_closed(uintptr_t value, bool for_certain) {
  const std::lock_guard<std::mutex> lock(mu_);
  for (Handle &handle : handles_) {
    if (handle.value != value) continue;
    handle.was_closed = true;
    handle.is_closed = for_certain;
  }
}

size_t Shared_handles::count_open() const {
  const std::lock_guard<std::mutex> lock(mu_);
  return static_cast<size_t>(
      std::count_if(handles_.begin(), handles_.end(),
                    [](const Handle &handle) { return !handle.was_closed; }));
}

void Shared_handles::close_all() {
  const std::lock_guard<std::mutex> lock(mu_);
  for (const Handle &handle : handles_) {
    if (handle.is_scan) close_seqscan_cursor(handle.value);
    if (!handle.is_scan) close_index_cursor(handle.value);
  }
}

/** A bound with random content. Its arrays point to memory that can be read,
    unless they are null. */
class Misuser::Bound {
 public:
  explicit Bound(Misuser &m) {
    if (m.once_in(4)) return;
    given_ = true;
    for (uint32_t i = m.below(6); i > 0; --i) add(m);
    arg_ = {static_cast<uint32_t>(lengths_.size()), lengths_.data(),
            values_.data(), types_.data()};
    if (m.once_in(30)) arg_.len = nullptr;
    if (m.once_in(30)) arg_.value = nullptr;
    if (m.once_in(30)) arg_.type = nullptr;
  }
  field_arg *arg() { return given_ ? &arg_ : nullptr; }

 private:
  void add(Misuser &m) {
    auto bytes = std::make_unique<char[]>(value_bytes);
    const auto type =
        static_cast<char>(m.once_in(10) ? m.below(256) : 1 + m.below(5));
    for (size_t i = 0; i < value_bytes; ++i)
      bytes[i] = static_cast<char>(m.once_in(2) ? m.below(256) : '0' + i % 10);
    if (type == 1 && m.once_in(2)) put<int64_t>(bytes.get(), m.below(1000));
    if (type == 2 && m.once_in(2)) put<double>(bytes.get(), m.below(1000));
    if (type == 4) put_time(m, bytes.get());
    lengths_.push_back(m.once_in(8)
                           ? -static_cast<int32_t>(m.below(100)) - 1
                           : static_cast<int32_t>(m.below(value_bytes)));
    values_.push_back(m.once_in(30) ? nullptr : bytes.get());
    types_.push_back(type);
    storage_.push_back(std::move(bytes));
  }

  template <class T>
  static void put(char *bytes, T value) {
    memcpy(bytes, &value, sizeof value);
  }

  // The bool and the enumeration get only values that their types can hold:
  // reading any other value is undefined behaviour.
  static void put_time(Misuser &m, char *bytes) {
    MYSQL_TIME time;
    memcpy(&time, bytes, sizeof time);
    if (m.once_in(2))
      time = {2000 + m.below(30),
              m.below(14),
              m.below(33),
              m.below(25),
              m.below(61),
              m.below(61),
              0,
              false,
              MYSQL_TIMESTAMP_DATETIME,
              0};
    const bool negative = m.once_in(2);
    memcpy(&time.neg, &negative, sizeof negative);
    const int kind = static_cast<int>(m.below(6)) - 2;
    memcpy(&time.time_type, &kind, sizeof kind);
    memcpy(bytes, &time, sizeof time);
  }

  bool given_ = false;
  std::vector<int32_t> lengths_;
  std::vector<void *> values_;
  std::vector<char> types_;
  std::vector<std::unique_ptr<char[]>> storage_;
  field_arg arg_ = {};
};

Misuser::Misuser(uint32_t seed, bool alone, Shared_handles &handles,
                 const std::vector<uint32_t> &donors)
    : engine_(seed), alone_(alone), handles_(handles), donors_(donors) {}

Misuser::~Misuser() {
  for (const uint32_t snapshot : snapshots_) close_snapshot(snapshot);
}

void Misuser::note(uint64_t result) {
  digest_ = (digest_ ^ result) * 1099511628211U;
}

uint32_t Misuser::random_column() {
  static const uint32_t odd[] = {20, 21, 64, 4096, 1U << 31, UINT32_MAX};
  return once_in(10) ? odd[below(6)] : below(20);
}

const char *Misuser::random_name(const std::vector<const char *> &names) {
  return names[below(static_cast<uint32_t>(names.size()))];
}

Misuser::Handle Misuser::random_handle() {
  return once_in(12) ? Handle{} : handles_.pick(engine_);
}

bool Misuser::is_usable(const Handle &handle, bool as_scan) {
  const bool is_usable =
      handle.value != 0 && !handle.is_closed && handle.is_scan == as_scan;
  if (is_usable) ++valid_calls_;
  return is_usable;
}

void Misuser::open() {
  if (handles_.count_open() >= most_open) {
    close();
    return;
  }
  const char *db = once_in(10) ? random_name({nullptr, "", "none"}) : "db";
  const char *table =
      once_in(2) ? "t"
                 : random_name({"keyless", "parted", "nothing_in", "view",
                                "of_memory", "none", "", nullptr});
  const char *index = random_name({"PRIMARY", "primary", "by_s", "by_time",
                                   "by_tx", "by_b", "by_vi", "by_e", "down",
                                   "by_a", "by_v", "ft", "none", "", nullptr});
  const uint32_t donor = donors_[below(static_cast<uint32_t>(donors_.size()))];
  unsigned int error = 12345;
  char message[512];
  unsigned int *error_out = once_in(5) ? nullptr : &error;
  char *message_out = once_in(5) ? nullptr : message;
  const bool is_scan = once_in(4);
  const uintptr_t value =
      is_scan ? open_seqscan_cursor(db, table, donor, 1, error_out, message_out)
              : open_index_cursor(db, table, index, once_in(3), donor, 1,
                                  error_out, message_out);
  note(value != 0);
  if (error_out != nullptr) note(error);
  if (value != 0) handles_.add(value, is_scan);
}

void Misuser::close() {
  const Handle handle = random_handle();
  const bool as_scan = once_in(2);
  if (as_scan) close_seqscan_cursor(handle.value);
  if (!as_scan) close_index_cursor(handle.value);
  // When other threads use the handle too, one of them may have been reading
  // it. The close was then refused, and the handle may still be open.
  if (is_usable(handle, as_scan)) handles_.mark_closed(handle.value, alone_);
}

void Misuser::set_columns() {
  const Handle handle = random_handle();
  std::vector<uint32_t> columns;
  for (uint32_t i = below(25); i > 0; --i) columns.push_back(random_column());
  uint32_t *fields = once_in(20) ? nullptr : columns.data();
  if (once_in(2)) {
    cursor_set_readset(handle.value, columns.size(), fields);
  } else {
    seqscan_cursor_set_readset(handle.value, columns.size(), fields);
  }
}

void Misuser::set_range() {
  const Handle handle = random_handle();
  Bound begin(*this), end(*this);
  const bool found = cursor_set_read_range(handle.value, begin.arg(), end.arg(),
                                           once_in(2), once_in(2), once_in(2));
  EXPECT_TRUE(is_usable(handle, false) || !found);
  note(found);
}

void Misuser::advance() {
  const Handle handle = random_handle();
  for (uint32_t i = 1 + below(4); i > 0; --i) {
    const bool ended = cursor_advance(handle.value);
    EXPECT_TRUE(is_usable(handle, false) || ended);
    note(ended);
  }
}

void Misuser::read_value() {
  const Handle handle = random_handle();
  const uintptr_t cursor = handle.value;
  // When other threads use the handle too, a typed read of it is undefined.
  if (!alone_ && is_usable(handle, false)) return;
  const uint32_t column = random_column();
  const bool to_nowhere = once_in(30);
  long long integer = 0;
  double real = 0;
  char *text = nullptr;
  size_t size = 0;
  bool negative = false;
  int32_t words = 0, fraction = 0, *data = nullptr, date = 0;
  int64_t time = 0;
  bool none = true;
  switch (below(7)) {
    case 0:
      none = cursor_read_field_int(cursor, column,
                                   to_nowhere ? nullptr : &integer);
      break;
    case 1:
      none =
          cursor_read_field_real(cursor, column, to_nowhere ? nullptr : &real);
      break;
    case 2:
      none = cursor_read_field_str(cursor, column, &text,
                                   to_nowhere ? nullptr : &size);
      if (!none) integer = static_cast<long long>(sum_of(text, size));
      break;
    case 3:
      none = cursor_read_field_decimal(cursor, column, &negative, &words,
                                       to_nowhere ? nullptr : &fraction, &data);
      if (!none)
        for (int i = 0; i < words + fraction; ++i) integer += data[i];
      break;
    case 4:
      none =
          cursor_read_field_date(cursor, column, to_nowhere ? nullptr : &date);
      break;
    case 5:
      none =
          cursor_read_field_time(cursor, column, to_nowhere ? nullptr : &time);
      break;
    default:
      none = cursor_read_field_datetime(cursor, column,
                                        to_nowhere ? nullptr : &time);
  }
  const bool may_have_one =
      is_usable(handle, false) && !to_nowhere && column < 20;
  EXPECT_TRUE(may_have_one || none);
  note(none);
  note(static_cast<uint64_t>(integer + date + time) +
       static_cast<uint64_t>(static_cast<int64_t>(real * 8)));
}

void Misuser::count_columns() {
  const Handle handle = random_handle();
  const uint64_t counts[] = {cursor_output_col_num(handle.value),
                             cursor_idx_col_num(handle.value),
                             cursor_idx_user_col_num(handle.value),
                             seqscan_cursor_output_col_num(handle.value)};
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(is_usable(handle, i == 3) || counts[i] == 0);
    note(counts[i]);
  }
  note(cursor_col_fieldnr(handle.value,
                          random_name({"id", "S", "none", "", nullptr})));
}

// When other threads open and close cursors too, the names may change between
// two calls, so they are not part of the digest.
void Misuser::name_columns() {
  const Handle handle = random_handle();
  constexpr size_t room = 64;
  const char *names[room] = {};
  if (once_in(10)) {
    cursor_output_col_names(handle.value, nullptr);
    cursor_idx_col_names(handle.value, nullptr);
    seqscan_cursor_output_col_names(handle.value, nullptr);
    return;
  }
  cursor_output_col_names(handle.value, names);
  cursor_idx_col_names(handle.value, names);
  seqscan_cursor_output_col_names(handle.value, names);
  if (!alone_) return;
  for (const char *name : names)
    if (name != nullptr) note(sum_of(name, strlen(name)));
}

// The next call on a cancelled handle fails, and that changes the digest.
void Misuser::ask() {
  const Handle handle = random_handle();
  const char *text = nullptr;
  const unsigned int code =
      cursor_error(handle.value, once_in(5) ? nullptr : &text);
  const bool is_open = is_usable(handle, handle.is_scan);
  EXPECT_TRUE(is_open || code == 1210);
  note(code);
  if (text != nullptr && alone_) note(sum_of(text, strlen(text)));
  uint64_t rows = 0, pages = 0, estimated = 0;
  const bool known = cursor_progress(handle.value, once_in(5) ? nullptr : &rows,
                                     once_in(5) ? nullptr : &pages, &estimated);
  EXPECT_TRUE(is_open || !known);
  note(known);
  const int snapshot = cursor_snapshot(handle.value);
  EXPECT_TRUE(is_open || snapshot == 0);
  note(static_cast<uint64_t>(snapshot));
  if (once_in(3)) cursor_cancel(handle.value);
}

void Misuser::take_snapshot() {
  if (snapshots_.size() < 4) {
    unsigned int error = 0;
    char message[512];
    const uint32_t id = open_snapshot(once_in(5) ? nullptr : &error,
                                      once_in(5) ? nullptr : message);
    EXPECT_NE(id, 0u);
    note(error);
    snapshots_.push_back(id);
    donors_.push_back(id);
  } else {
    // A second close is a misuse too. The closed snapshot stays in the list of
    // donors, so that openings name it.
    uint32_t &id = snapshots_[below(4)];
    close_snapshot(id);
    if (once_in(4)) close_snapshot(id);
    if (once_in(2)) {
      const uint32_t old = id;
      id = open_snapshot(nullptr, nullptr);
      std::replace(donors_.begin(), donors_.end(), old, id);
    }
  }
}

void Misuser::call() {
  const uint32_t kind = below(106);
  if (kind >= 105) return take_snapshot();
  if (kind >= 100) return ask();
  if (kind < 8) return open();
  if (kind < 14) return close();
  if (kind < 20) return set_columns();
  if (kind < 35) return set_range();
  if (kind < 60) return advance();
  if (kind < 85) return read_value();
  if (kind < 91) return count_columns();
  if (kind < 96) return name_columns();
  if (kind < 97) {
    init_common();
    return deinit_common();
  }
  read_in_parallel();
}

}  // namespace harness
