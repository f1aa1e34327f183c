// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables: opened and locked in a session the way a statement would.

#include <chrono>
#include <cstring>
#include <thread>

#include "common.h"
#include "common/dictionary.h"
#include "host.h"

#include "dict0dd.h"
#include "dict0dict.h"
#include "ha_innodb.h"
#include "ha_prototypes.h"

namespace {

constexpr ulong longest_wait_sec = 31536000;

bool is_identifier(const char *name) {
  if (name == nullptr || *name == '\0') return false;
  return strnlen(name, NAME_LEN + 1) <= NAME_LEN;
}

const char *or_empty(const char *name) { return name != nullptr ? name : ""; }

enum_mdl_type metadata_lock_for(int lock_type) {
  if (lock_type == HDL_FLUSH) return MDL_EXCLUSIVE;
  return lock_type >= HDL_WRITE ? MDL_SHARED_WRITE : MDL_SHARED_READ;
}

// The open table keeps a pointer to its reference, and InnoDB and the copies of
// fields read through it: the reference and its names live in the session's
// memory root, which is cleared when the session is closed.
host::Table_ref *make_table_ref(THD *thd, const char *db_name,
                                const char *table_name, int lock_type) {
  char *db = strdup_root(thd->mem_root, db_name);
  char *table = strdup_root(thd->mem_root, table_name);
  if (db == nullptr || table == nullptr) return nullptr;
  if (lower_case_table_names != 0) {
    my_casedn_str(files_charset_info, db);
    my_casedn_str(files_charset_info, table);
  }
  const thr_lock_type lock = lock_type >= HDL_WRITE ? TL_WRITE : TL_READ;
  auto *ref = new (thd->mem_root) host::Table_ref(db, table, lock);
  if (ref == nullptr) return nullptr;
  // The host refuses a view before it parses it, for which a session without a
  // statement lacks what is needed.
  ref->required_type = dd::enum_table_type::BASE_TABLE;
  MDL_REQUEST_INIT(&ref->mdl_request, MDL_key::TABLE, db, table,
                   metadata_lock_for(lock_type), MDL_TRANSACTION);
  return ref;
}

// The host gives up without an error where the session is the victim of a
// deadlock over metadata, with an ALTER that waits for an old definition, say:
// a statement then lets everything go and opens once more. So does this, as
// long as for a lock.
TABLE *try_to_open(THD *thd, const char *db_name, const char *table_name,
                   int lock_type) {
  const auto give_up = std::chrono::steady_clock::now() +
                       std::chrono::seconds(thd->variables.lock_wait_timeout);
  for (;;) {
    host::Table_ref *ref = make_table_ref(thd, db_name, table_name, lock_type);
    if (ref == nullptr) return nullptr;
    Open_table_context context(thd, 0);
    if (!::open_table(thd, ref, &context)) return ref->table;
    if (thd->is_error()) return nullptr;
    if (thd->killed != THD::NOT_KILLED) {
      // Of a kill before the opening the host says nothing.
      my_error(ER_QUERY_INTERRUPTED, MYF(0));
      return nullptr;
    }
    if (std::chrono::steady_clock::now() >= give_up) {
      my_error(ER_LOCK_WAIT_TIMEOUT, MYF(0));
      return nullptr;
    }
    thd->mdl_context.release_transactional_locks();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void append_innodb_fields(const KEY *key, std::vector<const char *> &columns) {
  const Dictionary_table table(key->table);
  const dict_index_t *index = table.find_index(key->name);
  if (index == nullptr) return;
  for (ulint i = 0; i < dict_index_get_n_fields(index); ++i) {
    columns.push_back(index->get_field(i)->name);
  }
}

}  // namespace

void CommonApi::set_lock_wait_timeout(void *my_thd, int timeout_sec) {
  // As good as for ever is the host's longest: beyond it debug builds stop.
  static_cast<THD *>(my_thd)->variables.lock_wait_timeout =
      timeout_sec < 0 ? longest_wait_sec : static_cast<ulong>(timeout_sec);
}

void *CommonApi::open_table(void *my_thd, const char *db_name,
                            const char *table_name, int lock_type) {
  THD *thd = static_cast<THD *>(my_thd);
  if (!is_identifier(db_name)) {
    my_error(ER_WRONG_DB_NAME, MYF(0), or_empty(db_name));
    return nullptr;
  }
  if (!is_identifier(table_name)) {
    my_error(ER_WRONG_TABLE_NAME, MYF(0), or_empty(table_name));
    return nullptr;
  }
  // Nothing in this schema is a base table. It is refused by the schema's name
  // alone: debug builds stop at a lock request for a lower-case name in it.
  if (is_infoschema_db(db_name)) {
    my_error(ER_WRONG_OBJECT, MYF(0), db_name, table_name, "BASE TABLE");
    return nullptr;
  }
  TABLE *table = try_to_open(thd, db_name, table_name, lock_type);
  if (table == nullptr) return nullptr;
  if (table->s->db_type() != innodb_hton) {
    my_error(ER_ILLEGAL_HA, MYF(0), table_name);
    close_mysql_tables(thd);
    return nullptr;
  }
  bitmap_set_all(table->read_set);
  return table;
}

bool CommonApi::lock_table(void *my_thd, void *my_table, int mode,
                           int timeout_sec) {
  THD *thd = static_cast<THD *>(my_thd);
  TABLE *table = static_cast<TABLE *>(my_table);
  set_lock_wait_timeout(thd, timeout_sec);
  // InnoDB reads without locks, in a transaction of one statement, for this
  // one.
  thd->lex->sql_command = SQLCOM_SELECT;
  table->reginfo.lock_type = (mode & 1) != 0 ? TL_READ : TL_WRITE;
  thd->lock = mysql_lock_tables(thd, &table, 1, 0);
  return thd->lock == nullptr;
}

int CommonApi::unlock_table(void *my_thd, void *my_table, int mode) {
  THD *thd = static_cast<THD *>(my_thd);
  TABLE *table = static_cast<TABLE *>(my_table);
  bitmap_set_all(table->read_set);
  if ((mode & 1) == 0) table->file->ha_release_auto_increment();
  const int result = trans_commit_stmt(thd, false);
  if (thd->lock != nullptr) {
    mysql_unlock_tables(thd, thd->lock);
    thd->lock = nullptr;
  }
  close_mysql_tables(thd);
  return result;
}

void CommonApi::set_readset(void *my_table, size_t ncols,
                            const uint32_t *fields) {
  TABLE *table = static_cast<TABLE *>(my_table);
  bitmap_clear_all(table->read_set);
  for (size_t i = 0; i < ncols; ++i) {
    if (fields[i] < table->s->fields)
      bitmap_set_bit(table->read_set, fields[i]);
  }
}

void CommonApi::get_table_field_names(void *table,
                                      std::vector<const char *> &columns) {
  columns.clear();
  for (Field **field = static_cast<TABLE *>(table)->field; *field != nullptr;
       ++field) {
    columns.push_back((*field)->field_name);
  }
}

void CommonApi::get_index_field_names(void *my_key,
                                      std::vector<const char *> &columns) {
  const KEY *key = static_cast<KEY *>(my_key);
  if ((key->flags & HA_NOSAME) != 0 && has_one_tree(key->table)) {
    append_innodb_fields(key, columns);
  }
  if (!columns.empty()) return;
  for (uint i = 0; i < key->actual_key_parts; ++i) {
    columns.push_back(key->key_part[i].field->field_name);
  }
}

int CommonApi::get_index_user_defined_parts(void *key) {
  return static_cast<int>(static_cast<KEY *>(key)->user_defined_key_parts);
}
