// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "read.h"

#include <chrono>
#include <cstring>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "cursor.h"
#include "session.h"

namespace soak {

namespace {

constexpr int table_lock_seconds = 2;

/** A bound of one integer. */
class Bound {
 public:
  explicit Bound(int64_t key) : key_(key) {}
  field_arg *arg() { return &arg_; }

 private:
  int64_t key_;
  int32_t bytes_ = sizeof key_;
  void *value_ = &key_;
  char type_ = 1;
  field_arg arg_{1, &bytes_, &value_, &type_};
};

void sleep_briefly(uint64_t n) {
  std::this_thread::sleep_for(std::chrono::milliseconds(1 + n % 30));
}

/** Where the callback of a parallel read puts its batches. */
class Collector {
 public:
  Collector(const Plan &plan, const std::vector<uint32_t> &columns)
      : plan_(plan), columns_(columns) {}

  bool take(uint64_t batch) {
    Rows rows;
    const uint64_t size = pread_n_tuples(batch);
    for (unsigned int nr = 0; nr < size; ++nr)
      rows.push_back(row_of(batch, nr));
    {
      const std::lock_guard<std::mutex> lock(mu_);
      std::move(rows.begin(), rows.end(), std::back_inserter(rows_));
    }
    if (++batches_ != plan_.fault_at) return false;
    if (plan_.fault == Fault::SLEEP) sleep_briefly(size);
    if (plan_.fault == Fault::THROW) throw std::runtime_error("a fault");
    return plan_.fault == Fault::STOP;
  }

  Rows take_rows() { return std::move(rows_); }

 private:
  Row row_of(uint64_t batch, unsigned int nr) const {
    Row row;
    for (const uint32_t column : columns_) {
      char *text;
      size_t size;
      if (pread_field_str(batch, column, nr, &text, &size)) {
        row.emplace_back();
      } else {
        row.emplace_back(std::string(text, size));
      }
    }
    return row;
  }

  const Plan &plan_;
  const std::vector<uint32_t> &columns_;
  std::atomic<unsigned int> batches_{0};
  std::mutex mu_;
  Rows rows_;  // under mu_
};

bool hand_over(uint64_t batch, uint64_t, void *collector) {
  return static_cast<Collector *>(collector)->take(batch);
}

}  // namespace

Open_read::Open_read(World &world, const Plan &plan, uint32_t donor)
    : world_(world), plan_(plan) {
  char message[512] = "";
  const char *table = plan.table->name.c_str();
  if (plan.access == Access::SCAN) {
    handle_ = open_seqscan_cursor("soak", table, donor, table_lock_seconds,
                                  &error_, message);
  } else {
    handle_ = open_index_cursor(
        "soak", table, plan.is_by_v() ? "by_v" : "PRIMARY",
        plan.is_entries_only(), donor, table_lock_seconds, &error_, message);
  }
  if (handle_ == 0) return;
  session_ = harness::current_session();
  world_.targets.add_session(session_, &killed_);
  set_columns();
}

Open_read::~Open_read() { close(); }

void Open_read::close() {
  if (handle_ == 0) return;
  world_.targets.remove_session(session_);
  if (plan_.access == Access::SCAN) {
    close_seqscan_cursor(handle_);
  } else {
    close_index_cursor(handle_);
  }
  handle_ = 0;
}

// By their names: other columns come and go.
void Open_read::set_columns() {
  const std::vector<const char *> wanted{"id", "v", "pad"};
  const bool is_scan = plan_.access == Access::SCAN;
  std::vector<const char *> names;
  if (is_scan) {
    names.resize(seqscan_cursor_output_col_num(handle_));
    seqscan_cursor_output_col_names(handle_, names.data());
  }
  for (const char *name : wanted) {
    if (plan_.is_entries_only() && strcmp(name, "pad") == 0) continue;
    if (plan_.is_entries_only() && !plan_.table->has_primary_key &&
        strcmp(name, "id") == 0)
      continue;
    uint32_t position = 0;
    if (!is_scan) {
      position = cursor_col_fieldnr(handle_, name) - 1;
    } else {
      while (strcmp(names[position], name) != 0) ++position;
    }
    columns_.push_back(position);
  }
  if (is_scan) {
    seqscan_cursor_set_readset(handle_, columns_.size(), columns_.data());
  } else {
    cursor_set_readset(handle_, columns_.size(), columns_.data());
  }
}

bool Open_read::set_range() {
  Bound low(plan_.low), high(plan_.high);
  return cursor_set_read_range(handle_, plan_.bounded ? low.arg() : nullptr,
                               plan_.bounded ? high.arg() : nullptr, false,
                               true, plan_.reverse);
}

Delivery Open_read::read() {
  return plan_.is_parallel() ? read_in_parallel() : read_rows();
}

// A caller that stops or fails does so between two rows.
Delivery Open_read::read_rows() {
  Delivery delivery;
  if (!set_range()) return {!killed_, {}};
  while (!cursor_advance(handle_)) {
    Row row;
    for (const uint32_t column : columns_) {
      char *text;
      size_t size;
      if (cursor_read_field_str(handle_, column, &text, &size)) {
        row.emplace_back();
      } else {
        row.emplace_back(std::string(text, size));
      }
    }
    delivery.rows.push_back(std::move(row));
    if (delivery.rows.size() != plan_.fault_at) continue;
    if (plan_.fault == Fault::SLEEP) sleep_briefly(plan_.fault_at);
    if (plan_.fault == Fault::STOP || plan_.fault == Fault::THROW)
      return delivery;
  }
  delivery.complete = !killed_;
  return delivery;
}

Delivery Open_read::read_in_parallel() {
  Collector collector(plan_, columns_);
  Delivery delivery;
  if (plan_.access == Access::SCAN) {
    delivery.complete = seqscan_cursor_advance_parallel(handle_, plan_.threads,
                                                        hand_over, &collector);
  } else {
    if (plan_.bounded) set_range();
    delivery.complete =
        cursor_advance_parallel(handle_, plan_.threads, hand_over, &collector);
  }
  delivery.rows = collector.take_rows();
  return delivery;
}

}  // namespace soak
