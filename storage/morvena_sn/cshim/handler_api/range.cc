// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Index cursor: keys from the caller's values, ranges and stepping. The handler
// keeps the bounds; the cursor itself compares with the begin bound only, and
// only when it reads backwards.

#include <algorithm>
#include <cmath>
#include <string>

#include "handler_api.h"
#include "handler_api/moment.h"
#include "host/innodb.h"

namespace {

// field_arg::type; cursor.h says what each stands for.
enum Value_type : unsigned char {
  VALUE_INT = 1,
  VALUE_REAL = 2,
  VALUE_BYTES = 3,
  VALUE_TIME = 4,
  VALUE_TIMESTAMP = 5
};

// An impossible value is stored as the column's zero. So is one with a time
// zone where the column has no date.
void store_time(Field *field, const MYSQL_TIME &given) {
  const MYSQL_TIME value = moment::in_common_form(given);
  const bool has_zone = value.time_type == MYSQL_TIMESTAMP_DATETIME_TZ;
  if (!moment::is_possible(value) ||
      (has_zone && !is_temporal_type_with_date(field->type()))) {
    field->reset();
    return;
  }
  host::store_time(field, value);
}

void store_timestamp(Field *field, const timeval &value) {
  const enum_field_types type = field->type();
  if (type != MYSQL_TYPE_TIMESTAMP && type != MYSQL_TYPE_DATETIME) return;
  if (!moment::is_possible(value, type)) {
    field->reset();
    return;
  }
  host::store_timestamp(field, value);
}

void store_value(Field *field, unsigned char type, const void *value,
                 int32_t bytes) {
  switch (type) {
    case VALUE_INT:
      field->store(static_cast<double>(*static_cast<const int64_t *>(value)));
      break;
    case VALUE_REAL:
      field->store(*static_cast<const double *>(value));
      break;
    case VALUE_BYTES:
      field->store(value != nullptr ? static_cast<const char *>(value) : "",
                   static_cast<size_t>(bytes), &my_charset_bin);
      break;
    case VALUE_TIME:
      store_time(field, *static_cast<const MYSQL_TIME *>(value));
      break;
    case VALUE_TIMESTAMP:
      store_timestamp(field, *static_cast<const timeval *>(value));
      break;
    default:
      // The column keeps what the row buffer holds. For a large value that is
      // a pointer to memory that may be gone.
      if (field->is_flag_set(BLOB_FLAG)) field->reset();
      break;
  }
}

// Whether there is a value, as far as one can tell without reading it.
bool is_given(const void *value, unsigned char type, int32_t bytes) {
  if (value != nullptr || bytes < 0) return true;
  if (type == VALUE_BYTES) return bytes == 0;
  return type < VALUE_INT || type > VALUE_TIMESTAMP;
}

// Parts beyond the declared ones are ignored: the handler would look for the
// columns that InnoDB appends in the key image, which lacks them.
key_part_map map_of_leading_parts(uint32_t n_parts, const KEY *key) {
  const uint32_t n = std::min(n_parts, key->user_defined_key_parts);
  return (key_part_map{1} << n) - 1;
}

void swap_sets(TABLE *table, std::vector<my_bitmap_map> *sets) {
  const auto write_words = std::swap_ranges(
      table->read_set->bitmap,
      table->read_set->bitmap + no_words_in_map(table->read_set),
      sets->begin());
  std::swap_ranges(write_words, sets->end(), table->write_set->bitmap);
}

}  // namespace

// The end of a range is no failure.
bool IndexCursor::no_row(int error) {
  if (error == 0) return false;
  if (error != HA_ERR_END_OF_FILE && error != HA_ERR_KEY_NOT_FOUND) {
    write_to_log(
        ("got error while scan index :" + std::to_string(error)).c_str());
    fail(error);
  }
  return true;
}

// Reports an error in the server's words. The statement's error belongs to this
// call, so it is cleared for the next one.
void IndexCursor::fail(int error) {
  THD *thd = table()->in_use;
  if (thd->killed != THD::NOT_KILLED) {
    state_->failure.set_interrupted();
  } else {
    table()->file->print_error(error, MYF(0));
    if (!state_->failure.take_from(thd)) {
      const std::string text = "Got error " + std::to_string(error);
      state_->failure.set(ER_GET_ERRNO, text.c_str());
    }
  }
  thd->clear_error();
}

size_t IndexCursor::create_key(const field_arg *arg, uchar *keybuf) {
  size_t total = 0;
  uint image_bytes = 0;
  const KEY *index = key();
  for (uint i = 0; i < index->user_defined_key_parts; ++i) {
    const KEY_PART_INFO &part = index->key_part[i];
    Field *field = part.field;
    if (i >= arg->num_arg) {
      field->set_null();
      continue;
    }
    image_bytes += part.store_length;
    if (arg->len[i] < 0) {
      // Keys are compared byte by byte: those of NULL have to be equal.
      field->reset();
      field->set_null();
      continue;
    }
    field->set_notnull();
    store_value(field, static_cast<unsigned char>(arg->type[i]), arg->value[i],
                arg->len[i]);
    total += part.store_length;
  }
  // The handler goes by the number of parts given, not by the length, so NULL
  // parts are in the image too.
  key_copy(keybuf, table()->record[0], index, image_bytes);
  return total;
}

bool IndexCursor::can_be_read(const field_arg *arg) const {
  if (arg == nullptr || arg->num_arg == 0) return true;
  if (arg->len == nullptr || arg->value == nullptr || arg->type == nullptr) {
    return false;
  }
  const uint32_t n = std::min(arg->num_arg, key()->user_defined_key_parts);
  for (uint32_t i = 0; i < n; ++i) {
    const auto type = static_cast<unsigned char>(arg->type[i]);
    if (!is_given(arg->value[i], type, arg->len[i])) return false;
  }
  return true;
}

// No value of a column is equal to NaN, below it or above it. The column would
// store it as NULL, or as 0 where it takes no NULL.
bool IndexCursor::has_nan(const field_arg *arg) const {
  if (arg == nullptr) return false;
  const uint32_t n = std::min(arg->num_arg, key()->user_defined_key_parts);
  for (uint32_t i = 0; i < n; ++i) {
    if (arg->len[i] < 0 || arg->type[i] != VALUE_REAL) continue;
    if (key()->key_part[i].field->result_type() == REAL_RESULT &&
        std::isnan(*static_cast<const double *>(arg->value[i]))) {
      return true;
    }
  }
  return false;
}

// A bound of no parts bounds nothing; the handler cannot search for one.
key_range *IndexCursor::make_bound(key_range *bound, const field_arg *arg,
                                   ha_rkey_function flag) {
  if (arg == nullptr) return nullptr;
  const key_part_map parts = map_of_leading_parts(arg->num_arg, key());
  if (parts == 0) return nullptr;
  if (bound->key == nullptr) bound->key = new uchar[key()->key_length]();
  bound->length =
      static_cast<uint>(create_key(arg, const_cast<uchar *>(bound->key)));
  bound->keypart_map = parts;
  bound->flag = flag;
  return bound;
}

// The handler decides which columns to fetch when an index scan starts. If a
// set has changed since it last positioned, the scan is started again.
int IndexCursor::refresh_columns() {
  const my_bitmap_map *read_set = table()->read_set->bitmap;
  const my_bitmap_map *write_set = table()->write_set->bitmap;
  const size_t words = no_words_in_map(table()->read_set);
  const bool first_read = columns_read_.empty();
  if (!first_read &&
      std::equal(read_set, read_set + words, columns_read_.begin()) &&
      std::equal(write_set, write_set + words, columns_read_.begin() + words)) {
    return 0;
  }
  forget_row_columns();
  // Before its first read a scan looks at the sets by itself.
  handler *file = table()->file;
  const bool is_fresh = first_read && file->inited == handler::INDEX;
  columns_read_.clear();
  if (!is_fresh) {
    file->ha_index_or_rnd_end();
    const auto index = static_cast<uint>(key() - table()->key_info);
    if (const int error = file->ha_index_init(index, true)) return error;
  }
  columns_read_.reserve(2 * words);
  columns_read_.assign(read_set, read_set + words);
  columns_read_.insert(columns_read_.end(), write_set, write_set + words);
  return 0;
}

bool IndexCursor::set_read_range(const field_arg *begin, const field_arg *end,
                                 bool closed_begin, bool closed_end,
                                 bool reverse) {
  has_row_ = false;
  passed_.assign(passed_.size(), false);
  bounds_ = Bounds::REFUSED;
  if (!can_be_read(begin) || !can_be_read(end)) {
    state_->failure.set_wrong_argument("a bound");
    return true;
  }
  if (has_nan(begin) || has_nan(end)) {
    bounds_ = Bounds::EMPTY;
    return true;
  }
  const ha_rkey_function closed_end_flag =
      reverse ? HA_READ_PREFIX_LAST_OR_PREV : HA_READ_KEY_OR_PREV;
  from_ = make_bound(&rangebuf[0], begin,
                     closed_begin ? HA_READ_KEY_OR_NEXT : HA_READ_AFTER_KEY);
  end_ = make_bound(&rangebuf[1], end,
                    closed_end ? closed_end_flag : HA_READ_BEFORE_KEY);
  reverse_ = reverse;
  equal_range_ = from_ != nullptr && end_ != nullptr &&
                 from_->keypart_map == end_->keypart_map &&
                 memcmp(from_->key, end_->key, image_bytes(*from_)) == 0;
  // The server compares an array with a value for membership, not for order.
  if ((key()->flags & HA_MULTI_VALUED_KEY) != 0 && !equal_range_ &&
      (from_ != nullptr || end_ != nullptr)) {
    state_->failure.raise(
        ER_CHECK_NOT_IMPLEMENTED,
        "Cannot read a range of several keys of a multi-valued index");
    return true;
  }
  bounds_ = Bounds::IN_FORCE;
  state_->progress.restart(0);
  const bool has_view = MVCC::is_view_active(trx_->read_view);
  has_row_ = find_row();
  if (!has_view && MVCC::is_view_active(trx_->read_view)) {
    counters::count(Tally::SNAPSHOTS_TAKEN);
  }
  count_row();
  let_others_in();
  return !has_row_;
}

// Clears errors that were reported before, for example of an unknown donor or
// of a bound that the column does not take. When the handler computes virtual
// columns, it would take such an error for its own.
bool IndexCursor::find_row() {
  table()->in_use->clear_error();
  if (const int error = refresh_columns()) return !no_row(error);
  if (no_row(position())) return false;
  return equal_range_ || !reverse_ || end_ == nullptr || !ends_backward();
}

int IndexCursor::position() {
  if (equal_range_) return find_key(from_, HA_READ_KEY_EXACT);
  if (reverse_) return position_reverse();
  // The handler compares and converts as many bytes as a bound says it has, so
  // those of NULL parts have to be counted.
  key_range whole[2];
  const key_range *bounds[2] = {from_, end_};
  for (int i = 0; i < 2; ++i) {
    if (bounds[i] == nullptr) continue;
    whole[i] = *bounds[i];
    whole[i].length = image_bytes(*bounds[i]);
    bounds[i] = &whole[i];
  }
  return table()->file->ha_read_range_first(bounds[0], bounds[1], false, true);
}

uint IndexCursor::image_bytes(const key_range &bound) const {
  const auto index = static_cast<uint>(key() - table()->key_info);
  return calculate_key_len(table(), index, bound.keypart_map);
}

// Without an end bound the last row of the index comes first. It is not
// compared with the begin bound; the row of the next step is.
int IndexCursor::position_reverse() {
  if (end_ != nullptr) return find_key(end_, end_->flag);
  table()->file->set_end_range(nullptr, handler::RANGE_SCAN_ASC);
  return table()->file->ha_index_last(table()->record[0]);
}

// The handler remembers the end of its last forward range. Rows fetched ahead
// would stop there, so it is taken away.
int IndexCursor::find_key(const key_range *bound, ha_rkey_function flag) {
  handler *file = table()->file;
  file->set_end_range(nullptr, handler::RANGE_SCAN_ASC);
  return file->ha_index_read_map(table()->record[0], bound->key,
                                 bound->keypart_map, flag);
}

// Backward scans leave out a row equal to the begin bound whether it is open or
// closed: both of its flags have one of the two low bits set.
bool IndexCursor::is_before_range() {
  if (from_ == nullptr) return false;
  const int order =
      host::key_cmp(key()->key_part, from_->key, image_bytes(*from_));
  return order < 0 || (order == 0 && (from_->flag & 3) != 0);
}

// A backward range ends with the first row before it. Where the rows of
// partitions come out of order, such a row can precede others of the range: it
// is skipped, until a row before the range has come from every partition. Each
// partition by itself is in order.
bool IndexCursor::ends_backward() {
  handler *file = table()->file;
  while (is_before_range()) {
    if (passed_.empty() || every_partition_has_passed()) return true;
    if (no_row(file->ha_index_prev(table()->record[0]))) return true;
  }
  return false;
}

// The reference of a row of a partitioned table begins with the partition.
bool IndexCursor::every_partition_has_passed() {
  handler *file = table()->file;
  file->position(row());
  passed_[uint2korr(file->ref)] = true;
  return std::find(passed_.begin(), passed_.end(), false) == passed_.end();
}

// Once the range has ended or failed the handler is not asked again: without a
// position it steps from wherever it last was, or stops the server.
bool IndexCursor::advance() {
  if (has_row_) has_row_ = next_row();
  count_row();
  let_others_in();
  return !has_row_;
}

// At the end of a range its rows are added to the process's counters. A cursor
// is used by one thread at a time; others only look at its progress.
void IndexCursor::count_row() {
  if (!has_row_) {
    rows_read_.flush();
    return;
  }
  rows_read_.count();
  std::atomic<uint64_t> &rows = state_->progress.rows;
  rows.store(rows.load(std::memory_order_relaxed) + 1,
             std::memory_order_relaxed);
}

// Where the server limits how many threads are in InnoDB at once
// (innodb_thread_concurrency), a statement stays one of them from row to row. A
// cursor does not: nobody knows when its next step comes.
void IndexCursor::let_others_in() { host::leave_innodb(trx_); }

// The handler fetches the columns of the sets that it positioned with, but
// computes virtual columns by the present sets. So for the step it gets the
// sets that it positioned with.
bool IndexCursor::next_row() {
  if (!table()->has_gcol()) return step();
  swap_sets(table(), &columns_read_);
  const bool found = step();
  swap_sets(table(), &columns_read_);
  return found;
}

bool IndexCursor::step() {
  handler *file = table()->file;
  uchar *row = table()->record[0];
  if (equal_range_) {
    return !no_row(file->ha_index_next_same(row, end_->key, end_->length));
  }
  if (reverse_) return !no_row(file->ha_index_prev(row)) && !ends_backward();
  return !no_row(file->ha_read_range_next());
}
