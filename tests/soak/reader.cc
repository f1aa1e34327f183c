// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Donors and the reads of their snapshots.
//
// The donor's own statement gives the expected rows. It runs in the donor's
// transaction: before the cursor opens, while it is open, or after it has
// closed. The cursor certainly has the donor's snapshot only if the donor still
// exists after the opening. If a donor wrote rows and then vanished, the server
// rolls those rows back at an unknown moment. They are known by their ids, and
// the comparison leaves them out.

#include <algorithm>

#include "read.h"
#include "threads.h"

namespace soak {

namespace {

/** What the donor does while its snapshot is read. */
enum class Fate { STAYS, COMMITS, ROLLS_BACK, VANISHES };

const char *name_of(Fate fate) {
  switch (fate) {
    case Fate::STAYS:
      return "stayed";
    case Fate::COMMITS:
      return "committed while read";
    case Fate::ROLLS_BACK:
      return "rolled back while read";
    case Fate::VANISHES:
      return "vanished while read";
  }
  return "";
}

class Reader {
 public:
  Reader(World &world, uint32_t number)
      : world_(world),
        number_(number),
        random_(world.settings.seed * 1000 + number),
        donor_(world, "donor") {}

  void run() {
    while (!world_.stop) {
      if (random_.once_in(3)) donor_.drop();
      if (!donor_.connect()) {
        world_.pause(50);
        continue;
      }
      read_once();
    }
  }

 private:
  void read_once();
  bool begin(const Plan &plan);
  bool write(const Plan &plan);
  bool ask(const Plan &plan);
  void meet_fate();
  void finish_fate();
  void check(const Plan &plan, const Delivery &delivery, bool killed);
  bool is_own(const Row &row) const;
  std::string compare(const Plan &plan, Rows delivered, bool complete);
  void finish(const Plan &plan, Outcome outcome, size_t rows) {
    world_.tally.count_read(plan.kind(), outcome, rows);
  }
  void give_up(const Plan &plan, Outcome outcome, const std::string &why) {
    finish(plan, outcome, 0);
    world_.tally.count("reads without a comparison", why);
  }
  std::string own_id() {
    return std::to_string(first_donor_id + number_ * 1000 + random_.below(20));
  }

  World &world_;
  const uint32_t number_;
  Random random_;
  Connection donor_;
  Rows expected_;
  Fate fate_ = Fate::STAYS;
  bool wrote_ = false;
  bool own_rows_count_ = true;
  std::future<Reply> end_;
};

bool Reader::begin(const Plan &plan) {
  wrote_ = false;
  own_rows_count_ = true;
  if (donor_.attempt("ROLLBACK").error != 0) return false;
  if (donor_.attempt("START TRANSACTION WITH CONSISTENT SNAPSHOT").error != 0)
    return false;
  return !random_.once_in(3) || write(plan);
}

// A deadlock ends the transaction, and the next one has another snapshot.
// @return whether there is one
bool Reader::write(const Plan &plan) {
  const std::string &table = plan.table->name;
  const std::string statements[] = {
      "REPLACE INTO " + table + " (id, v, pad) VALUES (" + own_id() + ", " +
          std::to_string(random_.below(500)) + ", REPEAT('o', " +
          std::to_string(random_.below(plan.table->longest_pad)) + "))",
      "UPDATE " + table + " SET v = (v + 1) % 500 WHERE id = " + own_id(),
      "DELETE FROM " + table + " WHERE id = " + own_id()};
  for (const std::string &statement : statements) {
    const Reply reply = donor_.attempt(statement);
    if (reply.error == 0) wrote_ = true;
    if (reply.error != 1213) continue;
    wrote_ = false;
    return donor_.attempt("ROLLBACK").error == 0 &&
           donor_.attempt("START TRANSACTION WITH CONSISTENT SNAPSHOT").error ==
               0;
  }
  return true;
}

bool Reader::ask(const Plan &plan) {
  Reply reply = donor_.attempt(plan.select());
  if (reply.error != 0) {
    give_up(plan, Outcome::UNCHECKED,
            "donor's statement: error " + std::to_string(reply.error));
    return false;
  }
  expected_ = std::move(reply.rows);
  return true;
}

// Starts, on the donor's thread, what the donor does while others read.
void Reader::meet_fate() {
  if (fate_ == Fate::COMMITS) end_ = donor_.send("COMMIT");
  if (fate_ == Fate::ROLLS_BACK) end_ = donor_.send("ROLLBACK");
}

void Reader::finish_fate() {
  world_.tally.count("donors", name_of(fate_));
  if (fate_ == Fate::VANISHES) {
    own_rows_count_ = !wrote_;
    return;
  }
  if (fate_ == Fate::STAYS) {
    if (donor_.is_alive()) return;
    own_rows_count_ = !wrote_;
    world_.tally.count("donors", "killed while read");
    return;
  }
  const bool ended_well = end_.get().error == 0;
  own_rows_count_ = !wrote_ || (ended_well && fate_ == Fate::COMMITS);
}

void Reader::read_once() {
  const Plan plan = random_plan(random_);
  if (!begin(plan)) return;
  const bool asks_first = random_.once_in(2);
  if (asks_first && !ask(plan)) return;
  Open_read read(world_, plan, donor_.id());
  if (!read.is_open()) {
    give_up(plan, Outcome::REFUSED,
            "opening: error " + std::to_string(read.error()));
    return;
  }
  if (!donor_.is_alive()) {
    give_up(plan, Outcome::UNCHECKED, "donor lost before the cursor was open");
    return;
  }
  if (!read.has_donors_snapshot()) {
    world_.tally.report_difference(plan.text() +
                                   ": not the snapshot of the donor");
  }
  fate_ = asks_first ? static_cast<Fate>(random_.below(4)) : Fate::STAYS;
  meet_fate();
  if (fate_ == Fate::VANISHES) donor_.drop();
  const Delivery delivery = read.read();
  finish_fate();
  const bool killed = read.was_killed();
  // Once the cursor is closed, a partition may be exchanged, and the donor's
  // statement then reads other rows without an error.
  const bool asks_open = plan.table->is_partitioned || random_.once_in(2);
  if (!asks_first && asks_open && !ask(plan)) return;
  read.close();
  if (!asks_first && !asks_open && !ask(plan)) return;
  if (!own_rows_count_ && plan.is_entries_only() &&
      !plan.table->has_primary_key) {
    give_up(plan, Outcome::UNCHECKED, "rows of a lost donor without an id");
    return;
  }
  check(plan, delivery, killed);
}

bool Reader::is_own(const Row &row) const {
  const long id = std::stol(row[0].value());
  const long first = first_donor_id + static_cast<long>(number_) * 1000;
  return id >= first && id < first + 1000;
}

std::string told(const Row &row) {
  std::string text;
  for (const auto &value : row)
    text += (value ? value->substr(0, 20) + "(" +
                         std::to_string(value->size()) + ")"
                   : "NULL") +
            " ";
  return text;
}

// @return what is wrong; empty if nothing is
std::string first_difference(const Rows &delivered, const Rows &expected) {
  const std::string sizes = std::to_string(delivered.size()) + " rows, " +
                            std::to_string(expected.size()) + " expected; ";
  for (size_t i = 0; i < delivered.size(); ++i) {
    if (i == expected.size())
      return sizes + "row " + std::to_string(i) + " " + told(delivered[i]);
    if (delivered[i] != expected[i])
      return sizes + "row " + std::to_string(i) + " " + told(delivered[i]) +
             "instead of " + told(expected[i]);
  }
  if (delivered.size() == expected.size()) return "";
  return sizes + "missing " + told(expected[delivered.size()]);
}

std::string Reader::compare(const Plan &plan, Rows delivered, bool complete) {
  Rows expected = std::move(expected_);
  // Without a primary key, rows with the same v come in any order.
  const bool has_order = !plan.is_parallel() && plan.table->has_primary_key;
  if (!own_rows_count_) {
    const auto own = [this](const Row &row) { return is_own(row); };
    delivered.erase(std::remove_if(delivered.begin(), delivered.end(), own),
                    delivered.end());
    expected.erase(std::remove_if(expected.begin(), expected.end(), own),
                   expected.end());
  }
  if (!has_order) {
    std::sort(delivered.begin(), delivered.end());
    std::sort(expected.begin(), expected.end());
  }
  if (complete && plan.is_exact()) return first_difference(delivered, expected);
  if (has_order) {
    if (delivered.size() < expected.size()) expected.resize(delivered.size());
    return first_difference(delivered, expected);
  }
  // Each row that was read exists, and was read at most as often as it exists.
  Rows foreign;
  std::set_difference(delivered.begin(), delivered.end(), expected.begin(),
                      expected.end(), std::back_inserter(foreign));
  return foreign.empty() ? "" : "not the donor's: " + told(foreign[0]);
}

void Reader::check(const Plan &plan, const Delivery &delivery, bool killed) {
  const bool may_stop = plan.fault == Fault::STOP || plan.fault == Fault::THROW;
  Outcome outcome = Outcome::COMPLETE;
  if (!delivery.complete) outcome = killed ? Outcome::KILLED : Outcome::STOPPED;
  finish(plan, outcome, delivery.rows.size());
  if (plan.fault == Fault::SLEEP)
    world_.tally.count("faults", "callbacks or callers that slept");
  if (plan.fault == Fault::THROW && outcome == Outcome::STOPPED)
    world_.tally.count("faults", plan.is_parallel()
                                     ? "reads ended by an exception"
                                     : "row-by-row reads left half-way");
  if (plan.fault == Fault::STOP && outcome == Outcome::STOPPED)
    world_.tally.count("faults", plan.is_parallel()
                                     ? "reads ended by the callback"
                                     : "row-by-row reads left half-way");
  if (!delivery.complete && !killed && !may_stop) {
    world_.tally.report_difference(plan.text() + ": ended early by itself");
    return;
  }
  const std::string wrong = compare(plan, delivery.rows, delivery.complete);
  if (!wrong.empty())
    world_.tally.report_difference(plan.text() + ", donor " + name_of(fate_) +
                                   (wrote_ ? ", wrote: " : ": ") + wrong);
}

}  // namespace

void run_reader(World &world, uint32_t number) { Reader(world, number).run(); }

}  // namespace soak
