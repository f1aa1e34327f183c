// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// open: which index, and how are its records converted?
// In: an open, locked table and an index name. Out: a reader, or a refusal in
// words; the cursor's transaction has a snapshot. Holds: the dictionary table
// and the row-conversion state, until the reader's destruction. Threads: the
// caller's. Fails: no such index, an index that has no B-tree of whole keys, no
// memory for a snapshot.

#include <algorithm>
#include <new>
#include <string>

#include "common/counters.h"
#include "common/dictionary.h"
#include "innodb_api.h"

#include "srv0srv.h"

namespace {

// A virtual column has no stored value. In the clustered index it matters only
// when it is read; the bit looked at is that of InnoDB's number of the column.
bool has_virtual_field(const dict_index_t *index, const TABLE *table) {
  for (ulint i = 0; i < dict_index_get_n_fields(index); ++i) {
    const dict_col_t *col = index->get_field(i)->col;
    if (!col->is_virtual()) continue;
    if (!index->is_clustered() ||
        bitmap_is_set(table->read_set, static_cast<uint>(col->ind))) {
      return true;
    }
  }
  return false;
}

struct Refusal {
  unsigned int code;  // 0: none
  const char *text;
};

// @return why the index cannot be scanned.
Refusal refusal(const dict_index_t *index, const TABLE *table,
                const trx_t *trx) {
  if (dict_table_is_discarded(index->table) || index->table->ibd_file_missing) {
    return {ER_TABLESPACE_DISCARDED,
            "Cannot do parallel scan on table without its tablespace"};
  }
  if ((index->type & DICT_FTS) != 0) {
    return {ER_CHECK_NOT_IMPLEMENTED,
            "Cannot do parallel scan on full-text index"};
  }
  if (dict_index_is_spatial(index)) {
    return {ER_CHECK_NOT_IMPLEMENTED,
            "Cannot do parallel scan on spatial index"};
  }
  if (index->is_corrupted())
    return {ER_INDEX_CORRUPT, "Cannot do parallel scan on corrupted index"};
  if (!index->is_usable(trx)) {
    return {ER_TABLE_DEF_CHANGED,
            "Cannot do parallel scan on index newer than the snapshot"};
  }
  if (has_virtual_field(index, table)) {
    return {ER_CHECK_NOT_IMPLEMENTED,
            "Cannot do parallel scan on index with virtual field"};
  }
  return {0, nullptr};
}

// A cursor whose donor gave no view takes one of its own at its first read and
// keeps it, as when the host reads its rows one by one. A read-only server has
// no views; without changes every read sees the same.
// @return false if a view is needed and cannot be had
bool take_snapshot(trx_t *trx) {
  if (srv_read_only_mode) return true;
  if (trx->isolation_level == TRX_ISO_READ_UNCOMMITTED) return true;
  if (MVCC::is_view_active(trx->read_view)) return true;
  counters::count(Tally::SNAPSHOTS_TAKEN);
  return trx_assign_read_view(trx) != nullptr;
}

void fill_column(mysql_row_templ_t *templ, const TABLE *table,
                 const Field *field, const dict_table_t *dict_table,
                 ulint col_no) {
  const dict_col_t *col = dict_table->get_col(col_no);
  *templ = mysql_row_templ_t{};
  templ->col_no = field->field_index();
  templ->clust_rec_field_no =
      dict_col_get_clust_pos(col, dict_table->first_index());
  ut_a(templ->clust_rec_field_no != ULINT_UNDEFINED);
  templ->rec_field_no = templ->clust_rec_field_no;
  templ->icp_rec_field_no = ULINT_UNDEFINED;
  templ->mysql_col_offset = field->offset(table->record[0]);
  templ->mysql_col_len = field->pack_length();
  if (field->is_nullable()) {
    templ->mysql_null_byte_offset = field->null_offset();
    templ->mysql_null_bit_mask = field->null_bit;
  }
  templ->type = col->mtype;
  templ->mysql_type = static_cast<ulint>(field->type());
  if (templ->mysql_type == DATA_MYSQL_TRUE_VARCHAR) {
    templ->mysql_length_bytes = field->get_length_bytes();
  }
  templ->charset = dtype_get_charset_coll(col->prtype);
  templ->mbminlen = col->get_mbminlen();
  templ->mbmaxlen = col->get_mbmaxlen();
  templ->is_unsigned = col->prtype & DATA_UNSIGNED;
}

}  // namespace

ParallelIndexReader *ParallelIndexReader::open(TABLE *table,
                                               const char *index_name,
                                               bool indexonly_scan,
                                               Call_state *state) {
  Call_state nobodys;
  Failure *failure = &(state != nullptr ? state : &nobodys)->failure;
  if (!has_one_tree(table)) {
    failure->raise(ER_CHECK_NOT_IMPLEMENTED,
                   "Cannot do parallel scan on table without a single B-tree");
    return nullptr;
  }
  Dictionary_table dict_table(table);
  dict_index_t *index = dict_table.find_index(index_name);
  if (index == nullptr) {
    const std::string name = index_name != nullptr ? index_name : "";
    failure->raise(ER_KEY_DOES_NOT_EXITS,
                   ("Cannot find a index \"" + name + "\".").c_str());
    return nullptr;
  }
  if (!take_snapshot(thd_to_trx(current_thd))) {
    failure->raise(ER_OOM, "Cannot take a snapshot for a parallel scan");
    return nullptr;
  }
  const Refusal why = refusal(index, table, thd_to_trx(current_thd));
  if (why.code != 0) {
    failure->raise(why.code, why.text);
    return nullptr;
  }
  std::unique_ptr<ParallelIndexReader> reader(new ParallelIndexReader(
      table, dict_table.get(), index, indexonly_scan, state));
  dict_table.release();
  reader->build_template(table, reader->prebuilt_, false);
  reader->plan_columns();
  reader->limit_offsets();
  reader->lay_out_records();
  return reader.release();
}

// Nothing may fail after the event is there: an unfinished reader has no
// destructor to give it back.
ParallelIndexReader::ParallelIndexReader(TABLE *table, dict_table_t *dict_table,
                                         dict_index_t *index,
                                         bool indexonly_scan, Call_state *state)
    : state_(state != nullptr ? state : &own_state_),
      trx_(thd_to_trx(current_thd)),
      mysql_table_(table),
      table_(dict_table),
      index_(index),
      latch_(index),
      page_size_(dict_table_page_size(dict_table)),
      table_is_compact_(dict_table_is_comp(dict_table)),
      // The clustered index holds every column.
      indexonly_scan_(indexonly_scan || index->is_clustered()),
      scan_range_(std::make_shared<Iter>(), std::make_shared<Iter>()),
      event_(os_event_create()),
      m_sig_count(static_cast<uint64_t>(os_event_reset(event_))) {
  mutex_create(LATCH_ID_PARALLEL_READ, &mutex_);
  prebuilt_ = row_create_prebuilt(dict_table, table->s->reclength);
  prebuilt_->index = index;
  prebuilt_->m_mysql_table = table;
  prebuilt_->m_mysql_handler = static_cast<ha_innobase *>(table->file);
  prebuilt_->default_rec = table->s->default_values;
  prebuilt_->trx = trx_;
  prebuilt_->read_just_key = indexonly_scan_;
}

// One entry for each stored column that is read or written, in the table's
// order. InnoDB numbers the stored columns alone.
void ParallelIndexReader::build_template(TABLE *table, row_prebuilt_t *prebuilt,
                                         bool whole_row) {
  const uint n_fields = table->s->fields;
  prebuilt->mysql_template =
      static_cast<mysql_row_templ_t *>(ut::malloc_withkey(
          UT_NEW_THIS_FILE_PSI_KEY, n_fields * sizeof(mysql_row_templ_t)));
  if (prebuilt->mysql_template == nullptr) throw std::bad_alloc();
  ulint n_template = 0;
  ulint n_virtual = 0;
  for (uint i = 0; i < n_fields; ++i) {
    const Field *field = table->field[i];
    if (innobase_is_v_fld(field)) {
      ++n_virtual;
      continue;
    }
    if (!whole_row && !bitmap_is_set(table->read_set, i) &&
        !bitmap_is_set(table->write_set, i)) {
      continue;
    }
    mysql_row_templ_t *templ = &prebuilt->mysql_template[n_template++];
    fill_column(templ, table, field, prebuilt->table, i - n_virtual);
    if (DATA_LARGE_MTYPE(templ->type)) prebuilt->templ_contains_blob = true;
  }
  prebuilt->n_template = n_template;
  prebuilt->template_type = ROW_MYSQL_REC_FIELDS;
  prebuilt->null_bitmap_len = table->s->null_bytes;
  prebuilt->need_to_access_clustered = converts_clustered();
}

// What the template holds of the read set: a column that is only written is no
// part of the rows that callers get.
void ParallelIndexReader::plan_columns() {
  columns_.reserve(prebuilt_->n_template);
  for (ulint i = 0; i < prebuilt_->n_template; ++i) {
    const mysql_row_templ_t *templ = &prebuilt_->mysql_template[i];
    if (!bitmap_is_set(mysql_table_->read_set,
                       static_cast<uint>(templ->col_no))) {
      continue;
    }
    ulint field_no = templ->clust_rec_field_no;
    bool is_prefix = false;
    if (!converts_clustered()) {
      const ulint col_no =
          clustered_index()->get_field(templ->clust_rec_field_no)->col->ind;
      // The whole column if the index holds it, else its prefix.
      field_no = index_->get_col_pos(col_no, false, false);
      is_prefix = field_no == ULINT_UNDEFINED;
      if (is_prefix) field_no = index_->get_col_pos(col_no, true, false);
      // A column that the index does not hold has no value, which a row could
      // not say of one that is never NULL.
      if (field_no == ULINT_UNDEFINED) continue;
    } else if (host::has_instant_columns(table_)) {
      // Of a column whose beginning is in the key, the host may build an
      // earlier version with no more than the beginning.
      const ulint col_no = clustered_index()->get_field(field_no)->col->ind;
      is_prefix = clustered_index()->get_col_pos(col_no, true) != field_no;
    }
    columns_.emplace_back(templ, field_no);
    const Field *field = mysql_table_->field[templ->col_no];
    if (is_prefix && field->real_type() == MYSQL_TYPE_STRING) {
      columns_.back().fill_up(field->charset());
    }
  }
}

// The key, for the ends of units, the id of the row's transaction, and the
// columns that are read. With columns added or dropped instantly the fields'
// order in a record is not the index's.
void ParallelIndexReader::limit_offsets() {
  if (!converts_clustered() || host::has_instant_columns(table_)) return;
  const dict_index_t *clustered = clustered_index();
  ulint n = std::max<ulint>(dict_index_get_n_unique_in_tree(clustered),
                            clustered->get_sys_col_pos(DATA_TRX_ID) + 1);
  for (const Column_plan &column : columns_) {
    n = std::max(n, column.rec_field_no + 1);
  }
  (index_->is_clustered() ? n_scanned_fields_ : n_fetched_fields_) = n;
}

// Of the scanned index, when its records are the ones that are converted.
void ParallelIndexReader::lay_out_records() {
  if (!indexonly_scan_) return;
  std::vector<ulint> wanted;
  for (const Column_plan &column : columns_) {
    wanted.push_back(column.rec_field_no);
  }
  if (index_->is_clustered()) {
    wanted.push_back(index_->get_sys_col_pos(DATA_TRX_ID));
  }
  layout_.init(index_, wanted);
}
