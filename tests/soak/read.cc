// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "read.h"

#include <chrono>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "session.h"

namespace soak {

namespace {

constexpr std::chrono::seconds table_lock_wait(2);

void sleep_briefly(uint64_t n) {
  std::this_thread::sleep_for(std::chrono::milliseconds(1 + n % 30));
}

template <class Reader_row>
Row texts_of(const Reader_row &row, const std::vector<uint32_t> &columns) {
  Row texts;
  for (const uint32_t column : columns)
    texts.push_back(row.template get<std::string>(column));
  return texts;
}

/** Where the callback of a parallel read puts its batches. */
class Collector {
 public:
  Collector(const Plan &plan, const std::vector<uint32_t> &columns)
      : plan_(plan), columns_(columns) {}

  bool take(const morvena_sn::Batch &batch) {
    Rows rows;
    for (const auto row : batch) rows.push_back(texts_of(row, columns_));
    {
      const std::lock_guard<std::mutex> lock(mu_);
      std::move(rows.begin(), rows.end(), std::back_inserter(rows_));
    }
    if (++batches_ != plan_.fault_at) return false;
    if (plan_.fault == Fault::SLEEP) sleep_briefly(batch.size());
    if (plan_.fault == Fault::THROW) throw std::runtime_error("a fault");
    return plan_.fault == Fault::STOP;
  }

  Rows take_rows() { return std::move(rows_); }

 private:
  const Plan &plan_;
  const std::vector<uint32_t> &columns_;
  std::atomic<unsigned int> batches_{0};
  std::mutex mu_;
  Rows rows_;  // under mu_
};

// The callback of the C function. An exception passes through it to the read.
bool hand_over(uint64_t batch, uint64_t worker, void *collector) {
  return static_cast<Collector *>(collector)->take(
      morvena_sn::Batch(batch, worker));
}

}  // namespace

Open_read::Open_read(World &world, const Plan &plan, uint32_t donor)
    : world_(world), plan_(plan) {
  const morvena_sn::Options options{donor, plan.is_entries_only(),
                                    table_lock_wait};
  if (plan.access == Access::SCAN) {
    keep(morvena_sn::Sequential_scan::open("soak", plan.table->name, options),
         &scan_);
  } else {
    keep(morvena_sn::Cursor::open("soak", plan.table->name,
                                  plan.is_by_v() ? "by_v" : "PRIMARY", options),
         &cursor_);
  }
}

template <class Reader>
void Open_read::keep(morvena_sn::Result<Reader> opened,
                     std::optional<Reader> *reader) {
  if (!opened.has_value()) {
    error_ = opened.error().code();
    return;
  }
  reader->emplace(std::move(opened).value());
  session_ = harness::current_session();
  world_.targets.add_session(session_, &killed_);
  try {
    columns_ = (*reader)->select(column_names());
  } catch (const morvena_sn::Error &error) {
    // A shutdown has closed the cursor.
    error_ = error.code();
    close();
  }
}

Open_read::~Open_read() { close(); }

void Open_read::close() {
  if (!is_open()) return;
  world_.targets.remove_session(session_);
  cursor_.reset();
  scan_.reset();
}

bool Open_read::has_donors_snapshot() const {
  return (cursor_ ? cursor_->snapshot() : scan_->snapshot()) ==
         MORVENA_SN_SNAPSHOT_DONOR;
}

// Finds columns by name, because other columns are added and dropped.
std::vector<std::string> Open_read::column_names() const {
  if (!plan_.is_entries_only()) return {"id", "v", "pad"};
  if (!plan_.table->has_primary_key) return {"v"};
  return {"id", "v"};
}

morvena_sn::Range Open_read::range() const {
  morvena_sn::Range range;
  range.set_reverse(plan_.reverse);
  if (!plan_.bounded) return range;
  range.set_low(morvena_sn::Bound(plan_.low), false);
  range.set_high(morvena_sn::Bound(plan_.high), true);
  return range;
}

Delivery Open_read::read() {
  return plan_.is_parallel() ? read_in_parallel() : read_rows();
}

// A caller that stops, or fails, does that between two rows.
Delivery Open_read::read_rows() {
  Delivery delivery;
  auto more = cursor_->try_range(range());
  while (more.has_value() && more.value()) {
    more = cursor_->try_next();
    if (!more.has_value() || !more.value()) break;
    delivery.rows.push_back(texts_of(cursor_->row(), columns_));
    if (delivery.rows.size() != plan_.fault_at) continue;
    if (plan_.fault == Fault::SLEEP) sleep_briefly(plan_.fault_at);
    if (plan_.fault == Fault::STOP || plan_.fault == Fault::THROW)
      return delivery;
  }
  delivery.complete = more.has_value() && !killed_;
  return delivery;
}

Delivery Open_read::read_in_parallel() {
  Collector collector(plan_, columns_);
  Delivery delivery;
  if (scan_) {
    delivery.complete = seqscan_cursor_advance_parallel(
        scan_->handle(), plan_.threads, hand_over, &collector);
  } else {
    if (plan_.bounded) (void)cursor_->try_range(range());
    delivery.complete = cursor_advance_parallel(
        cursor_->handle(), plan_.threads, hand_over, &collector);
  }
  delivery.rows = collector.take_rows();
  return delivery;
}

}  // namespace soak
