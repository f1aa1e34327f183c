// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "tally.h"

#include <cinttypes>
#include <cstdio>

namespace soak {

namespace {

// If a fault repeats itself, the first reports are enough.
constexpr size_t differences_shown = 20;

template <class... Values>
std::string line(const char *format, Values... values) {
  char text[200];
  snprintf(text, sizeof text, format, values...);
  return std::string(text) + "\n";
}

}  // namespace

void Tally::count_read(const std::string &kind, Outcome outcome,
                       uint64_t rows) {
  const std::lock_guard<std::mutex> lock(mu_);
  Reads &reads = reads_[kind];
  ++reads.by_outcome[static_cast<int>(outcome)];
  reads.rows += rows;
}

void Tally::count(const std::string &group, const std::string &what) {
  const std::lock_guard<std::mutex> lock(mu_);
  ++events_[group][what];
}

void Tally::report_difference(const std::string &text) {
  fprintf(stderr, "soak: DIFFERENCE %s\n", text.c_str());
  const std::lock_guard<std::mutex> lock(mu_);
  differences_.push_back(text);
}

size_t Tally::differences() const {
  const std::lock_guard<std::mutex> lock(mu_);
  return differences_.size();
}

std::string Tally::reads_table() const {
  std::string text =
      line("%-28s %9s %9s %8s %8s %8s %9s %12s", "reads", "all", "complete",
           "stopped", "killed", "refused", "unchecked", "rows");
  Reads sum;
  const auto add = [&text](const char *name, const Reads &reads) {
    uint64_t all = 0;
    for (const uint64_t n : reads.by_outcome) all += n;
    const uint64_t *n = reads.by_outcome;
    text += line("%-28s %9" PRIu64 " %9" PRIu64 " %8" PRIu64 " %8" PRIu64
                 " %8" PRIu64 " %9" PRIu64 " %12" PRIu64,
                 name, all, n[0], n[1], n[2], n[3], n[4], reads.rows);
  };
  for (const auto &[kind, reads] : reads_) {
    add(kind.c_str(), reads);
    for (int i = 0; i < 5; ++i) sum.by_outcome[i] += reads.by_outcome[i];
    sum.rows += reads.rows;
  }
  add("all", sum);
  return text;
}

std::string Tally::table() const {
  const std::lock_guard<std::mutex> lock(mu_);
  std::string text = reads_table();
  for (const auto &[group, events] : events_) {
    text += group + "\n";
    for (const auto &[what, n] : events)
      text += line("  %-60s %9" PRIu64, what.c_str(), n);
  }
  text += line("differences %zu", differences_.size());
  for (size_t i = 0; i < differences_.size() && i < differences_shown; ++i)
    text += "  " + differences_[i] + "\n";
  return text;
}

}  // namespace soak
