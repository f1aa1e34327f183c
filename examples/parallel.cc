// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file parallel.cc
  A parallel read: the page to copy from, once reader.cc is known.

  The workers share nothing while they read: each sums into a slot of its own,
  which its number picks, and the slots are joined after the read.
*/

#include "parallel.h"

#include <strings.h>

#include <algorithm>
#include <atomic>

#include "cursor.h"
#include "mysql/plugin.h"
#include "mysqld_error.h"
#include "sql/current_thd.h"
#include "sql/sql_class.h"

namespace example {
namespace {

/* ---- Taking the batches ------------------------------------------------- */

/** Why a callback stopped the read. */
enum class Stop { none, enough, shutdown, too_long };

/** What one worker has read. */
struct Slot {
  uint64_t rows = 0;
  std::vector<Wide> totals;
};

/** A batch's column, summed up; NULLs add nothing. None: a value is too long.
 */
std::optional<Wide> sum_of(uintptr_t batch, uint32_t field,
                           Summed_column::Type type) {
  const auto rows = static_cast<uint32_t>(pread_n_tuples(batch));
  Wide sum = 0;
  for (uint32_t nr = 0; nr < rows; ++nr) {
    if (type == Summed_column::Type::integer) {
      long long value = 0;
      if (!pread_field_int(batch, field, nr, &value)) sum += value;
    } else if (type == Summed_column::Type::date) {
      int32_t days = 0;
      if (!pread_field_date(batch, field, nr, &days)) sum += days;
    } else {
      bool negative = false;
      int32_t intg = 0, frac = 0, *words = nullptr;
      if (pread_field_decimal(batch, field, nr, &negative, &intg, &frac,
                              &words))
        continue;
      const auto value = billionths_of(negative, intg, frac, words);
      if (!value) return std::nullopt;
      sum += *value;
    }
  }
  return sum;
}

/** What the callback is given: slots to write to, and what all of them read. */
class Summing {
 public:
  Summing(const Parallel_read &read, const std::vector<uint32_t> &fields,
          const Reading &reading)
      : read_(read), fields_(fields), reading_(reading) {
    // Workers are numbered from 0; below two threads the caller itself is 0.
    slots_.resize(std::max<size_t>(read.threads, 1));
    for (Slot &slot : slots_) slot.totals.resize(fields.size());
  }

  /** The load callback: workers are in it side by side. It must not throw and
      must not wait: its worker keeps a page of the index latched. */
  static bool on_batch(uint64_t batch, uint64_t thread_id, void *argument) {
    auto *summing = static_cast<Summing *>(argument);
    return summing->take(batch, &summing->slots_[thread_id]);
  }

  Stop stop() const { return stop_; }

  /** After the read, whose end orders the workers' writes before this. */
  void join(Sums *sums) const {
    sums->totals.resize(fields_.size());
    for (const Slot &slot : slots_) {
      sums->outcome.rows += slot.rows;
      for (size_t i = 0; i < fields_.size(); ++i)
        sums->totals[i] += slot.totals[i];
    }
  }

 private:
  /** True stops the whole read. Looks once a batch, not once a row. */
  bool take(uintptr_t batch, Slot *slot) {
    if (stop_ != Stop::none) return true;  // another worker said so
    if (reading_.must_stop()) return stop_with(Stop::shutdown);

    // Summed up beside the slot: neighbours would fight for its cache line.
    for (size_t i = 0; i < fields_.size(); ++i) {
      const auto sum = sum_of(batch, fields_[i], read_.columns[i].type);
      if (!sum) return stop_with(Stop::too_long);
      slot->totals[i] += *sum;
    }
    const uint64_t rows = pread_n_tuples(batch);
    slot->rows += rows;
    if (read_.enough_rows != 0 && (taken_ += rows) >= read_.enough_rows)
      return stop_with(Stop::enough);
    return false;
  }

  /** Always true, for the caller to return. The first reason stays. */
  bool stop_with(Stop why) {
    Stop none = Stop::none;
    stop_.compare_exchange_strong(none, why);
    return true;
  }

  const Parallel_read &read_;
  const std::vector<uint32_t> &fields_;
  const Reading &reading_;
  std::vector<Slot> slots_;             // each written by its worker alone
  std::atomic<Stop> stop_{Stop::none};  // any worker sets, all look
  std::atomic<uint64_t> taken_{0};      // rows of all workers
};

/* ---- Reading ------------------------------------------------------------ */

/** Either kind of cursor, closed on every way out. */
class Source {
 public:
  explicit Source(const Parallel_read &read) : is_scan_(read.index.empty()) {
    const int wait_for_locks_sec = 10;
    handle_ = is_scan_ ? open_seqscan_cursor(
                             read.db.c_str(), read.table.c_str(), read.donor,
                             wait_for_locks_sec, &error_, message_)
                       : open_index_cursor(read.db.c_str(), read.table.c_str(),
                                           read.index.c_str(), read.index_only,
                                           read.donor, wait_for_locks_sec,
                                           &error_, message_);
  }
  ~Source() {
    if (is_scan_)
      close_seqscan_cursor(handle_);
    else
      close_index_cursor(handle_);
  }
  Source(const Source &) = delete;
  Source &operator=(const Source &) = delete;

  /** Error 0: it is open. */
  Outcome opened() const {
    if (handle_ != 0) return {};
    return {error_, message_, 0};
  }

  /** The columns' positions, which are then what is read. */
  Outcome set_columns(const std::vector<Summed_column> &columns,
                      std::vector<uint32_t> *fields) {
    for (const Summed_column &column : columns) {
      const std::optional<uint32_t> field = find(column.name);
      if (!field) return {ER_BAD_FIELD_ERROR, "no column " + column.name, 0};
      fields->push_back(*field);
    }
    if (is_scan_)
      seqscan_cursor_set_readset(handle_, fields->size(), fields->data());
    else
      cursor_set_readset(handle_, fields->size(), fields->data());
    return {};
  }

  /** No row in it is no failure; a bound that cannot be read is one. */
  Outcome set_range(std::optional<std::string> low,
                    std::optional<std::string> high) {
    if (is_scan_) return {};
    const Bound begin(low), end(high);
    cursor_set_read_range(handle_, begin.given, end.given, true, true, false);
    return failure();
  }

  /** True: every batch was taken. */
  bool read_all(size_t threads, Parallel_load_func fn, void *argument) {
    return is_scan_
               ? seqscan_cursor_advance_parallel(handle_, threads, fn, argument)
               : cursor_advance_parallel(handle_, threads, fn, argument);
  }

  /** Why the last call failed: a kill of the client, what cannot be read … */
  Outcome failure() const {
    const char *text = nullptr;
    const unsigned int error = cursor_error(handle_, &text);
    return {error, text, 0};
  }

 private:
  std::optional<uint32_t> find(const std::string &name) const {
    if (!is_scan_) {
      const uint32_t position = cursor_col_fieldnr(handle_, name.c_str());
      if (position == 0) return std::nullopt;
      return position - 1;
    }
    std::vector<const char *> names(seqscan_cursor_output_col_num(handle_));
    seqscan_cursor_output_col_names(handle_, names.data());
    for (uint32_t i = 0; i < names.size(); ++i)
      if (strcasecmp(names[i], name.c_str()) == 0) return i;
    return std::nullopt;
  }

  const bool is_scan_;
  uintptr_t handle_ = 0;
  unsigned int error_ = 0;
  char message_[512] = "";
};

/** Why a callback stopped the read. */
Outcome reason(Stop stop) {
  switch (stop) {
    case Stop::shutdown:
      return {ER_SERVER_SHUTDOWN, "the server shuts down", 0};
    case Stop::too_long:
      return {ER_DATA_OUT_OF_RANGE, "a decimal too long to sum up", 0};
    default:
      return {};
  }
}

Sums sum(const Parallel_read &read) {
  const Reading reading;
  if (!reading.allowed())
    return {{ER_SERVER_SHUTDOWN, "the example is not running", 0}, false, {}};

  Source source(read);
  Sums sums{source.opened(), false, {}};
  if (sums.outcome.error != 0) return sums;
  std::vector<uint32_t> fields;
  sums.outcome = source.set_columns(read.columns, &fields);
  if (sums.outcome.error != 0) return sums;
  sums.outcome = source.set_range(read.low, read.high);
  if (sums.outcome.error != 0) return sums;

  Summing summing(read, fields, reading);
  const bool complete =
      source.read_all(read.threads, Summing::on_batch, &summing);
  // A callback's word counts first: the read does not look at its answer to a
  // worker's last batch, when there is nothing left to stop.
  if (summing.stop() != Stop::none) {
    sums.outcome = reason(summing.stop());
    sums.stopped = summing.stop() == Stop::enough;
  } else if (!complete) {
    sums.outcome = source.failure();
  }
  summing.join(&sums);
  return sums;
}

}  // namespace

Sums sum_on_client_thread(const Parallel_read &read) {
  THD *const own_session = current_thd;
  Sums sums = sum(read);
  own_session->store_globals();
  return sums;
}

}  // namespace example
