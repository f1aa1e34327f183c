// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "cursors.h"

#include <strings.h>

namespace bench {

namespace {

constexpr char schema[] = "bench";
constexpr int wait_for_locks_sec = 10;

}  // namespace

Cursor::Cursor(const Request &request) : is_scan_(request.index.empty()) {
  unsigned int error = 0;
  char message[512] = "no such index";
  handle_ = is_scan_ ? open_seqscan_cursor(schema, request.table.c_str(),
                                           request.donor, wait_for_locks_sec,
                                           &error, message)
                     : open_index_cursor(schema, request.table.c_str(),
                                         request.index.c_str(),
                                         request.index_only, request.donor,
                                         wait_for_locks_sec, &error, message);
  if (handle_ == 0) throw std::runtime_error(request.table + ": " + message);
}

Cursor::~Cursor() {
  if (is_scan_)
    close_seqscan_cursor(handle_);
  else
    close_index_cursor(handle_);
}

std::vector<uint32_t> Cursor::fields_of(
    const std::vector<Column> &columns) const {
  std::vector<const char *> names(
      is_scan_ ? seqscan_cursor_output_col_num(handle_) : 0);
  if (is_scan_) seqscan_cursor_output_col_names(handle_, names.data());
  std::vector<uint32_t> fields;
  for (const Column &column : columns) {
    uint32_t field = 0;
    if (is_scan_) {
      while (field < names.size() &&
             strcasecmp(names[field], column.name.c_str()) != 0)
        ++field;
      if (field == names.size()) field = UINT32_MAX;
    } else {
      field = cursor_col_fieldnr(handle_, column.name.c_str()) - 1;
    }
    if (field == UINT32_MAX)
      throw std::runtime_error("no column " + column.name);
    fields.push_back(field);
  }
  return fields;
}

void Cursor::set_readset(std::vector<uint32_t> fields) const {
  if (is_scan_)
    seqscan_cursor_set_readset(handle_, fields.size(), fields.data());
  else
    cursor_set_readset(handle_, fields.size(), fields.data());
}

bool Cursor::read_in_parallel(size_t threads, Parallel_load_func load,
                              void *argument) const {
  return is_scan_
             ? seqscan_cursor_advance_parallel(handle_, threads, load, argument)
             : cursor_advance_parallel(handle_, threads, load, argument);
}

}  // namespace bench
