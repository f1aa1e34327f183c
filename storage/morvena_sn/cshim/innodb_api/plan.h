// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/plan.h
  The plan of a read: what it reads, and how. The plan is made when the read is
  opened and never changes; all workers share it. Every room takes it, or a part
  of it, by const reference.
*/

#ifndef MORVENA_SN_INNODB_API_PLAN_H
#define MORVENA_SN_INNODB_API_PLAN_H

#include <memory>
#include <vector>

#include "host/innodb.h"
#include "innodb_api/record_layout.h"
#include "innodb_api/stored_form.h"

class Dictionary_table;
class Failure;
struct TABLE;

/** One column of the template: its place in a record and in a row. */
struct Column_plan {
  Column_plan(const mysql_row_templ_t *column, ulint field_no)
      : templ(column),
        rec_field_no(field_no),
        row_offset(static_cast<uint32_t>(column->mysql_col_offset)),
        null_byte(static_cast<uint32_t>(column->mysql_null_byte_offset)),
        null_bit(static_cast<byte>(column->mysql_null_bit_mask)),
        length_bytes(static_cast<byte>(column->mysql_length_bytes)),
        form(stored_form(column)) {}

  /** The records may hold only a prefix of the fixed-length value: fill up the
      rest of the value by the charset's padding. */
  void fill_up(const CHARSET_INFO *charset) {
    filling = charset;
    form = Stored_form::HOSTS;
  }

  const mysql_row_templ_t *templ;
  const CHARSET_INFO *filling = nullptr;  // pads a prefix; null: no prefixes
  ulint rec_field_no;                     // in the records that are converted
  uint32_t row_offset;                    // of its value in a row
  uint32_t null_byte;                     // likewise
  byte null_bit;                          // 0: never null
  byte length_bytes;                      // of a VARCHAR's length in a row
  Stored_form form;                       // of its values in those records
};

/** The B-tree that is scanned. */
struct Index_tree {
  dict_index_t *index;
  page_size_t page_size;
};

/** The read views that decide which version of a record a read sees. Null: the
    record as it stands, whoever has written it. */
struct Judgement {
  ReadView *of_entries;  // records of the scanned index
  ReadView *of_rows;     // clustered records that are looked up for an entry
};

class Read_plan {
 public:
  /**
    @param table       open and locked in the calling thread's session, whose
                       transaction gets a view if it needs one and has none
    @param index_name  null: the clustered index
    @param indexonly_scan  the index itself supplies every column
    @return null when the index cannot be read in parallel; *failure says why.
    May throw std::bad_alloc.
  */
  [[nodiscard]] static std::unique_ptr<const Read_plan> open(
      TABLE *table, const char *index_name, bool indexonly_scan,
      Failure *failure);
  Read_plan(const Read_plan &) = delete;
  Read_plan &operator=(const Read_plan &) = delete;

  dict_index_t *clustered_index() const { return table->first_index(); }
  /** Whether the rows come from clustered records. */
  bool converts_clustered() const {
    return tree.index->is_clustered() || !indexonly_scan;
  }
  /** Whether the read may meet large values that are still being written. It
      leaves out their rows. */
  bool reads_uncommitted() const {
    return trx->isolation_level == TRX_ISO_READ_UNCOMMITTED;
  }

  /** Closes the dictionary table as well. */
  struct Free_prebuilt {
    void operator()(row_prebuilt_t *prebuilt) const {
      row_prebuilt_free(prebuilt, false);
    }
  };

  trx_t *const trx;  // of the cursor's session
  TABLE *const mysql_table;
  dict_table_t *const table;
  const Index_tree tree;
  const bool indexonly_scan;  // the scanned index supplies every column
  const bool is_compact;      // the format of the records
  const Judgement judgement;
  /** InnoDB's state for converting rows and keys. Its template has the
      columns that are read or written, in the table's order. */
  const std::unique_ptr<row_prebuilt_t, Free_prebuilt> prebuilt;
  /** The template's columns that callers read. */
  std::vector<Column_plan> columns;
  /** For a record that is visible as it stands: the number of its first fields
      whose offsets are needed. One number is for records of the scanned index,
      the other for clustered records that are looked up. */
  ulint n_scanned_fields = ULINT_UNDEFINED;
  ulint n_fetched_fields = ULINT_UNDEFINED;
  /** Finds fields in records of the scanned index: the columns and, in the
      clustered index, after them the id of the row's transaction. */
  Record_layout layout;

 private:
  Read_plan(TABLE *mysql_table, Dictionary_table *dict_table,
            dict_index_t *index, bool indexonly_scan, trx_t *trx);

  void build_template();
  void plan_columns();
  void limit_offsets();
  void lay_out_records();
};

#endif  // MORVENA_SN_INNODB_API_PLAN_H
