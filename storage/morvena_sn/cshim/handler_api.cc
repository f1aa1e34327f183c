// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Index cursor: opening, columns and read set.

#include "handler_api.h"

#include <strings.h>

#include <algorithm>

#include "common.h"
#include "host/innodb.h"

#include "sql/partition_info.h"

namespace {

// The rows that the handler is to fetch ahead of the cursor.
constexpr double prefetch_rows = 200.0;

// Full-text and spatial indexes are listed like others, but have no key order
// to read in. The handler of a partitioned table merges rows by the columns of
// the index. InnoDB does not read the array of a multi-valued index with the
// row, so the merge would follow a pointer that nobody has set.
bool has_key_order(const KEY *key) {
  if ((key->flags & HA_FULLTEXT) != 0) {
    my_error(ER_CHECK_NOT_IMPLEMENTED, MYF(0), "cursors on full-text indexes");
    return false;
  }
  if ((key->flags & HA_SPATIAL) != 0) {
    my_error(ER_CHECK_NOT_IMPLEMENTED, MYF(0), "cursors on spatial indexes");
    return false;
  }
  if ((key->flags & HA_MULTI_VALUED_KEY) != 0 &&
      key->table->part_info != nullptr) {
    my_error(ER_CHECK_NOT_IMPLEMENTED, MYF(0),
             "cursors on multi-valued indexes of partitioned tables");
    return false;
  }
  return true;
}

template <class Predicate>
bool has_part(const KEY *key, Predicate predicate) {
  const KEY_PART_INFO *parts = key->key_part;
  return std::any_of(parts, parts + key->user_defined_key_parts, predicate);
}

bool has_virtual_part(const KEY *key) {
  return has_part(key, [](const KEY_PART_INFO &part) {
    return part.field->is_virtual_gcol();
  });
}

bool has_multi_byte_prefix(const KEY *key) {
  return has_part(key, [](const KEY_PART_INFO &part) {
    return (part.key_part_flag & HA_PART_KEY_SEG) != 0 &&
           part.field->charset()->mbmaxlen > 1;
  });
}

// The handler of a partitioned table merges the rows of the partitions by the
// index's columns and then by the primary key's. Where the index holds the
// first n characters of a column, the merge compares as many bytes as n
// characters may need: more than n characters of a short text.
// @return the number of partitions that are merged so, 0 for none
uint n_merged_out_of_order(const TABLE *table, const KEY *key) {
  if (table->part_info == nullptr) return 0;
  const uint primary = table->s->primary_key;
  const bool has_prefix =
      has_multi_byte_prefix(key) ||
      (primary != MAX_KEY && has_multi_byte_prefix(&table->key_info[primary]));
  return has_prefix ? table->part_info->get_tot_partitions() : 0;
}

// InnoDB compares each row that it puts into the record buffer with the end of
// the range. When a page has changed since the snapshot, it takes the row from
// the clustered index, which lacks the virtual columns; the handler computes
// them only when it hands the row over. If the index holds every column that is
// read, InnoDB compares whatever the buffer holds, and the range ends too early
// or too late. SQL reads such an index index-only, which fills in the virtual
// columns. Without the buffer the handler compares, after it has computed them.
bool can_fetch_ahead(const KEY *key, bool index_only) {
  return index_only || !has_virtual_part(key);
}

// A virtual column is computed from others, which must be read then.
void mark_base_columns(TABLE *table) {
  for (Field **field = table->field; *field != nullptr; ++field) {
    if ((*field)->is_virtual_gcol() &&
        bitmap_is_set(table->read_set, (*field)->field_index())) {
      table->mark_gcol_in_maps(*field);
    }
  }
}

// The row buffer's key is compared with the bounds, whatever the caller reads.
// The write set has the handler fetch a column without giving it to the caller;
// a virtual one has to be read, and so have those by which the rows of
// partitions are merged.
void mark_key_columns(TABLE *table, const KEY *key) {
  const bool merges = table->part_info != nullptr;
  const uint n_parts =
      merges ? key->actual_key_parts : key->user_defined_key_parts;
  for (uint i = 0; i < n_parts; ++i) {
    const Field *field = key->key_part[i].field;
    bitmap_set_bit(table->write_set, field->field_index());
    if (merges || field->is_virtual_gcol()) {
      bitmap_set_bit(table->read_set, field->field_index());
    }
  }
  mark_base_columns(table);
}

// The handler of a partitioned table checks the index of its first partition
// only. Any other may have been truncated or exchanged since the snapshot, so
// the handler gets each of them as its only one.
int check_partitions(TABLE *table, uint index) {
  partition_info *info = table->part_info;
  std::vector<uint> partitions;
  for (uint i = info->get_first_used_partition(); i != MY_BIT_NONE;
       i = info->get_next_used_partition(i)) {
    partitions.push_back(i);
  }
  MY_BITMAP *used = &info->read_partitions;
  int error = 0;
  for (const uint partition : partitions) {
    bitmap_clear_all(used);
    bitmap_set_bit(used, partition);
    error = table->file->ha_index_init(index, false);
    if (error != 0) break;
    table->file->ha_index_end();
  }
  for (const uint partition : partitions) bitmap_set_bit(used, partition);
  return error;
}

// The handler refuses an index that is corrupt, or newer than the snapshot:
// such an index lacks rows that the snapshot sees.
bool start_index_scan(TABLE *table, const KEY *key) {
  handler *file = table->file;
  file->ha_index_or_rnd_end();
  const auto index = static_cast<uint>(key - table->key_info);
  int error = table->part_info != nullptr ? check_partitions(table, index) : 0;
  if (error == 0) error = file->ha_index_init(index, true);
  if (error != 0) file->print_error(error, MYF(0));
  return error == 0;
}

}  // namespace

IndexCursor::IndexCursor(TABLE *table, trx_t *trx, KEY *key, bool index_only)
    : table_(table),
      trx_(trx),
      key_(key),
      index_only_(index_only),
      passed_(n_merged_out_of_order(table, key)),
      row_columns_(table->s->fields) {}

std::unique_ptr<IndexCursor> IndexCursor::open(TABLE *table,
                                               const char *idx_name,
                                               bool index_only) {
  KEY *key = CommonApi::find_key(table, idx_name);
  if (key == nullptr) {
    my_error(ER_KEY_DOES_NOT_EXITS, MYF(0), idx_name, table->s->table_name.str);
    return nullptr;
  }
  if (!has_key_order(key)) return nullptr;
  // Keys are built in the row buffer, which a freshly opened table leaves as
  // the allocator gave it.
  restore_record(table, s->default_values);
  mark_key_columns(table, key);
  // Its destructor ends the scan, so make it before the scan begins.
  std::unique_ptr<IndexCursor> cursor(
      new IndexCursor(table, thd_to_trx(table->in_use), key, index_only));
  CommonApi::get_index_field_names(key, cursor->key_columns_);
  if (!start_index_scan(table, key)) return nullptr;
  if (can_fetch_ahead(key, index_only)) set_record_buffer(table, prefetch_rows);
  if (index_only) table->set_keyread(true);
  return cursor;
}

IndexCursor::~IndexCursor() {
  table()->file->ha_index_or_rnd_end();
  table()->set_keyread(false);
  // A buffer is freed through its bound. If the last range has no bound on a
  // side, the buffer of that side stays allocated.
  if (from_ != nullptr) delete[] from_->key;
  if (end_ != nullptr) delete[] end_->key;
}

void IndexCursor::cursor_output_col_names_names(
    std::vector<const char *> &colnames) {
  if (!index_only_) {
    CommonApi::get_table_field_names(table_, colnames);
    return;
  }
  colnames = key_columns_;
}

void IndexCursor::get_key_col_names(std::vector<const char *> &columns) {
  columns = key_columns_;
}

int IndexCursor::get_key_user_cols() {
  return CommonApi::get_index_user_defined_parts(key_);
}

uint32_t IndexCursor::get_col_fieldnr(const char *name) {
  for (uint i = 0; i < table()->s->fields; ++i) {
    if (strcasecmp(table()->field[i]->field_name, name) == 0) return i + 1;
  }
  return 0;
}

void IndexCursor::set_readset(size_t ncols, const uint32_t *fields) {
  CommonApi::set_readset(table_, ncols, fields);
  forget_row_columns();
  mark_key_columns(table(), key());
}
