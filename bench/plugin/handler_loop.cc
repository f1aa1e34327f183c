// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Calls the server's table handler row by row, as the executor does to read a
// range of an index or a whole table.

#include "contender.h"
#include "table_session.h"
#include "totals.h"

namespace bench {

namespace {

// The executor tells InnoDB how many rows to expect. With this number InnoDB
// uses its largest buffer for rows that it fetches ahead.
constexpr double rows_expected = 1e6;

uint index_named(const TABLE *table, const std::string &name) {
  for (uint i = 0; i < table->s->keys; ++i)
    if (name == table->key_info[i].name) return i;
  throw std::runtime_error("no index " + name);
}

/** The image of an integer key of one part. */
struct Key_image {
  Key_image(TABLE *table, uint index, int64_t key, ha_rkey_function flag) {
    const KEY *info = &table->key_info[index];
    bitmap_set_bit(table->write_set, info->key_part->field->field_index());
    info->key_part->field->set_notnull();
    info->key_part->field->store(key, false);
    key_copy(image, table->record[0], info, info->key_part->store_length);
    range.key = image;
    range.length = info->key_part->store_length;
    range.keypart_map = 1;
    range.flag = flag;
  }

  uchar image[64];
  key_range range;
};

void read_range(const Request &request, TABLE *table,
                const std::vector<uint32_t> &fields, Totals *totals,
                uint64_t *rows) {
  handler *file = table->file;
  const uint index = index_named(table, request.index);
  const Key_image low(table, index, request.low, HA_READ_KEY_OR_NEXT);
  const Key_image high(table, index, request.high, HA_READ_AFTER_KEY);
  // The handler compares this column with the end of the range, so it is read.
  bitmap_set_bit(table->read_set,
                 table->key_info[index].key_part->field->field_index());
  if (request.index_only) table->set_keyread(true);
  if (file->ha_index_init(index, true) != 0)
    throw std::runtime_error("no index scan");
  set_record_buffer(table, rows_expected);
  const Field_row row(table->field);
  int error = file->ha_read_range_first(&low.range, &high.range, false, true);
  for (; error == 0; error = file->ha_read_range_next()) {
    totals->add_row(row, fields);
    ++*rows;
  }
  file->ha_index_end();
  table->set_keyread(false);
  if (error != HA_ERR_END_OF_FILE) throw std::runtime_error("the scan failed");
}

void read_table(TABLE *table, const std::vector<uint32_t> &fields,
                Totals *totals, uint64_t *rows) {
  handler *file = table->file;
  if (file->ha_rnd_init(true) != 0) throw std::runtime_error("no table scan");
  set_record_buffer(table, rows_expected);
  const Field_row row(table->field);
  int error;
  while ((error = file->ha_rnd_next(table->record[0])) == 0) {
    totals->add_row(row, fields);
    ++*rows;
  }
  file->ha_rnd_end();
  if (error != HA_ERR_END_OF_FILE) throw std::runtime_error("the scan failed");
}

}  // namespace

Answer handler_loop(const Request &request) {
  const Watch watch;
  Answer answer;
  Totals totals(request.columns);
  {
    const Table_session session(request.table);
    const std::vector<uint32_t> fields = session.read(request.columns);
    if (request.index.empty())
      read_table(session.table(), fields, &totals, &answer.rows);
    else
      read_range(request, session.table(), fields, &totals, &answer.rows);
  }
  answer.ns = watch.ns();
  answer.totals = totals.texts();
  return answer;
}

}  // namespace bench
