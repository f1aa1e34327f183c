// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Calls the parallel scan of the server's table handler. It converts every
// column of every row, even those that nobody reads.

#include <memory>

#include "contender.h"
#include "table_session.h"
#include "totals.h"

namespace bench {

namespace {

/** The values that one thread of the scan reads, with its own Field objects. */
struct alignas(128) Scan_slot {
  Scan_slot(TABLE *table, const std::vector<uint32_t> &used,
            const std::vector<Column> &columns)
      : root(PSI_NOT_INSTRUMENTED, 4096), totals(columns) {
    for (const uint32_t position : used) {
      Field *field = table->field[position];
      offsets.push_back(field->offset(table->record[0]));
      null_offsets.push_back(field->is_nullable() ? field->null_offset() : 0);
      fields.push_back(field->new_field(&root, table));
      indexes.push_back(static_cast<uint32_t>(indexes.size()));
    }
  }

  // The scan's threads have no session, but values of some types need one.
  bool start(size_t bytes_of_row) {
    row_bytes = bytes_of_row;
    session = CommonApi::create_thd();
    return session == nullptr;
  }
  void end() { CommonApi::close_thd(session); }

  void take(const uchar *rows_data, uint32_t n_rows) {
    auto *row_data = const_cast<uchar *>(rows_data);
    const Field_row row(fields.data());
    for (uint32_t nr = 0; nr < n_rows; ++nr, row_data += row_bytes) {
      for (size_t i = 0; i < fields.size(); ++i) {
        fields[i]->set_field_ptr(row_data + offsets[i]);
        if (fields[i]->is_nullable())
          fields[i]->set_null_ptr(row_data + null_offsets[i],
                                  fields[i]->null_bit);
      }
      totals.add_row(row, indexes);
    }
    rows += n_rows;
  }

  MEM_ROOT root;
  std::vector<Field *> fields;
  std::vector<size_t> offsets;
  std::vector<uint> null_offsets;
  std::vector<uint32_t> indexes;
  size_t row_bytes = 0;
  THD *session = nullptr;
  uint64_t rows = 0;
  Totals totals;
};

// Later servers take the number of threads as an argument. Earlier ones use the
// session's innodb_parallel_read_threads only.
template <class Handler>
auto init_scan(Handler *file, void *&scan, size_t *threads, int)
    -> decltype(file->parallel_scan_init(scan, threads, false, *threads)) {
  return file->parallel_scan_init(scan, threads, false, *threads);
}
template <class Handler>
auto init_scan(Handler *file, void *&scan, size_t *threads, long)
    -> decltype(file->parallel_scan_init(scan, threads, false)) {
  return file->parallel_scan_init(scan, threads, false);
}

using Slots = std::vector<std::unique_ptr<Scan_slot>>;

bool scan(handler *file, void *context, const Slots &slots) {
  std::vector<void *> cookies;
  for (const auto &slot : slots) cookies.push_back(slot.get());
  const auto start = [](void *cookie, ulong, ulong row_bytes, const ulong *,
                        const ulong *, const ulong *) {
    return static_cast<Scan_slot *>(cookie)->start(row_bytes);
  };
  const auto load = [](void *cookie, uint n_rows, void *data, uint64_t) {
    static_cast<Scan_slot *>(cookie)->take(static_cast<uchar *>(data), n_rows);
    return false;
  };
  const auto end = [](void *cookie) {
    static_cast<Scan_slot *>(cookie)->end();
  };
  return file->parallel_scan(context, cookies.data(), start, load, end) == 0;
}

}  // namespace

Answer handler_parallel_scan(const Request &request) {
  const Watch watch;
  Answer answer;
  Totals totals(request.columns);
  {
    const Table_session session(request.table);
    TABLE *table = session.table();
    const std::vector<uint32_t> fields = session.read(request.columns);
    void *context = nullptr;
    size_t threads = request.threads;
    if (init_scan(table->file, context, &threads, 0) != 0 ||
        context == nullptr || threads != request.threads)
      throw std::runtime_error("no parallel scan with so many threads");
    Slots slots;
    for (size_t i = 0; i < threads; ++i)
      slots.push_back(
          std::make_unique<Scan_slot>(table, fields, request.columns));
    const bool complete = scan(table->file, context, slots);
    table->file->parallel_scan_end(context);
    if (!complete) throw std::runtime_error("the parallel scan failed");
    for (const auto &slot : slots) {
      answer.rows += slot->rows;
      totals.join(slot->totals);
    }
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
