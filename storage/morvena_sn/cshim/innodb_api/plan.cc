// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// plan: which views decide over the index's records, how are they converted?
// In: an index that may be read. Out: the plan's parts. Holds: nothing.
// Threads: the caller's; read only afterwards. Fails: out of memory.

#include "innodb_api/plan.h"

#include <algorithm>
#include <new>

#include "common/dictionary.h"
#include "host.h"

namespace {

// Under READ COMMITTED, too, a read takes an entry of a secondary index as it
// stands. For the clustered records that it looks up, the view decides whenever
// there is one.
Judgement judgement_of(const trx_t &trx, const dict_index_t &index) {
  const auto without_view =
      index.is_clustered() ? TRX_ISO_READ_UNCOMMITTED : TRX_ISO_READ_COMMITTED;
  ReadView *view = trx.read_view;
  return {trx.isolation_level > without_view ? view : nullptr, view};
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

row_prebuilt_t *new_prebuilt(TABLE *table, dict_table_t *dict_table,
                             dict_index_t *index, bool indexonly_scan,
                             trx_t *trx) {
  row_prebuilt_t *prebuilt =
      row_create_prebuilt(dict_table, table->s->reclength);
  prebuilt->index = index;
  prebuilt->m_mysql_table = table;
  prebuilt->m_mysql_handler = static_cast<ha_innobase *>(table->file);
  prebuilt->default_rec = table->s->default_values;
  prebuilt->trx = trx;
  prebuilt->read_just_key = indexonly_scan;
  return prebuilt;
}

}  // namespace

// The clustered index holds every column, so reading it counts as index-only.
Read_plan::Read_plan(TABLE *server_table, Dictionary_table *dict_table,
                     dict_index_t *index, bool is_indexonly, trx_t *cursors_trx)
    : trx(cursors_trx),
      mysql_table(server_table),
      table(dict_table->get()),
      tree{index, dict_table_page_size(table)},
      indexonly_scan(is_indexonly || index->is_clustered()),
      is_compact(dict_table_is_comp(table)),
      judgement(judgement_of(*trx, *index)),
      prebuilt(new_prebuilt(mysql_table, dict_table->release(), index,
                            indexonly_scan, trx)) {
  build_template();
  plan_columns();
  limit_offsets();
  lay_out_records();
}

// One entry for each stored column that is read or written, in the table's
// order. InnoDB numbers only the stored columns.
void Read_plan::build_template() {
  const uint n_fields = mysql_table->s->fields;
  prebuilt->mysql_template =
      static_cast<mysql_row_templ_t *>(ut::malloc_withkey(
          UT_NEW_THIS_FILE_PSI_KEY, n_fields * sizeof(mysql_row_templ_t)));
  if (prebuilt->mysql_template == nullptr) throw std::bad_alloc();
  ulint n_template = 0;
  ulint n_virtual = 0;
  for (uint i = 0; i < n_fields; ++i) {
    const Field *field = mysql_table->field[i];
    if (innobase_is_v_fld(field)) {
      ++n_virtual;
      continue;
    }
    if (!bitmap_is_set(mysql_table->read_set, i) &&
        !bitmap_is_set(mysql_table->write_set, i)) {
      continue;
    }
    mysql_row_templ_t *templ = &prebuilt->mysql_template[n_template++];
    fill_column(templ, mysql_table, field, table, i - n_virtual);
    if (DATA_LARGE_MTYPE(templ->type)) prebuilt->templ_contains_blob = true;
  }
  prebuilt->n_template = n_template;
  prebuilt->template_type = ROW_MYSQL_REC_FIELDS;
  prebuilt->null_bitmap_len = mysql_table->s->null_bytes;
  prebuilt->need_to_access_clustered = converts_clustered();
}

// Plans the template's columns that are in the read set. A column that is only
// in the write set is no part of the rows that callers get.
void Read_plan::plan_columns() {
  columns.reserve(prebuilt->n_template);
  for (ulint i = 0; i < prebuilt->n_template; ++i) {
    const mysql_row_templ_t *templ = &prebuilt->mysql_template[i];
    if (!bitmap_is_set(mysql_table->read_set,
                       static_cast<uint>(templ->col_no))) {
      continue;
    }
    ulint field_no = templ->clust_rec_field_no;
    bool is_prefix = false;
    if (!converts_clustered()) {
      const ulint col_no =
          clustered_index()->get_field(templ->clust_rec_field_no)->col->ind;
      // Take the whole column if the index holds it, else its prefix.
      field_no = tree.index->get_col_pos(col_no, false, false);
      is_prefix = field_no == ULINT_UNDEFINED;
      if (is_prefix) field_no = tree.index->get_col_pos(col_no, true, false);
      // Leave out a column that the index does not hold. It has no value, and
      // a row cannot show that for a column that is never NULL.
      if (field_no == ULINT_UNDEFINED) continue;
    } else if (host::has_instant_columns(table)) {
      // If the key holds a prefix of the column, InnoDB may build an earlier
      // version that holds no more than the prefix.
      const ulint col_no = clustered_index()->get_field(field_no)->col->ind;
      is_prefix = clustered_index()->get_col_pos(col_no, true) != field_no;
    }
    columns.emplace_back(templ, field_no);
    const Field *field = mysql_table->field[templ->col_no];
    if (is_prefix && field->real_type() == MYSQL_TYPE_STRING) {
      columns.back().fill_up(field->charset());
    }
  }
}

// A read needs three things of a record: the key, to compare it with the end of
// the unit, the id of the row's transaction, and the columns that are read.
// Offsets of fields after the last of these are not computed. After columns
// were added or dropped instantly, fields may lie in another order than in the
// index, so there is no limit then.
void Read_plan::limit_offsets() {
  if (!converts_clustered() || host::has_instant_columns(table)) return;
  const dict_index_t *clustered = clustered_index();
  ulint n = std::max<ulint>(dict_index_get_n_unique_in_tree(clustered),
                            clustered->get_sys_col_pos(DATA_TRX_ID) + 1);
  for (const Column_plan &column : columns) {
    n = std::max(n, column.rec_field_no + 1);
  }
  (tree.index->is_clustered() ? n_scanned_fields : n_fetched_fields) = n;
}

// Needed only if the rows come from the records of the scanned index.
void Read_plan::lay_out_records() {
  if (!indexonly_scan) return;
  std::vector<ulint> wanted;
  for (const Column_plan &column : columns) {
    wanted.push_back(column.rec_field_no);
  }
  if (tree.index->is_clustered()) {
    wanted.push_back(tree.index->get_sys_col_pos(DATA_TRX_ID));
  }
  layout.init(tree.index, wanted);
}
