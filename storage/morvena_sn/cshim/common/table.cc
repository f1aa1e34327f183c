// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Tables: opened and locked in a session the way a statement would.

#include <strings.h>

#include <algorithm>
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
#include "sql/dd/dd.h"
#include "sql/dd/dictionary.h"
#include "sql/derror.h"

namespace {

constexpr ulong longest_wait_sec = 31536000;

bool is_identifier(const char *name) {
  if (name == nullptr || *name == '\0') return false;
  return strnlen(name, NAME_LEN + 1) <= NAME_LEN;
}

const char *or_empty(const char *name) { return name != nullptr ? name : ""; }

// The open table keeps a pointer to its reference, and InnoDB and the copies of
// fields read through it: the reference and its names live in the session's
// memory root, which is cleared when the session is closed.
host::Table_ref *make_table_ref(THD *thd, const char *db_name,
                                const char *table_name) {
  char *db = strdup_root(thd->mem_root, db_name);
  char *table = strdup_root(thd->mem_root, table_name);
  if (db == nullptr || table == nullptr) return nullptr;
  if (lower_case_table_names != 0) {
    my_casedn_str(files_charset_info, db);
    my_casedn_str(files_charset_info, table);
  }
  auto *ref = new (thd->mem_root) host::Table_ref(db, table, TL_READ);
  if (ref == nullptr) return nullptr;
  // With this the server refuses a view before it parses it: a session without
  // a statement lacks what parsing needs.
  ref->required_type = dd::enum_table_type::BASE_TABLE;
  MDL_REQUEST_INIT(&ref->mdl_request, MDL_key::TABLE, db, table,
                   MDL_SHARED_READ, MDL_TRANSACTION);
  return ref;
}

// When the session is the victim of a deadlock over metadata (with an ALTER
// that waits for an old definition, for example), the server gives up without
// an error. A statement then releases its locks and opens the table again. This
// does the same, for as long as a lock is waited for.
TABLE *try_to_open(THD *thd, const char *db_name, const char *table_name) {
  const auto give_up = std::chrono::steady_clock::now() +
                       std::chrono::seconds(thd->variables.lock_wait_timeout);
  for (;;) {
    host::Table_ref *ref = make_table_ref(thd, db_name, table_name);
    if (ref == nullptr) return nullptr;
    Open_table_context context(thd, 0);
    if (!::open_table(thd, ref, &context)) return ref->table;
    if (thd->is_error()) return nullptr;
    if (thd->killed != THD::NOT_KILLED) {
      // The server reports no error for a kill before the opening.
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

// The server's dictionary is read through its own caches only.
// @return whether a table is part of it; the error is raised then
bool is_kept_from_sql(const char *db_name, const char *table_name) {
  const dd::Dictionary *dictionary = dd::get_dictionary();
  constexpr bool is_internal = false, is_ddl = false;
  if (dictionary == nullptr ||
      dictionary->is_dd_table_access_allowed(is_internal, is_ddl, db_name,
                                             strlen(db_name), table_name)) {
    return false;
  }
  my_error(ER_NO_SYSTEM_TABLE_ACCESS, MYF(0),
           ER_THD_NONCONST(current_thd, dictionary->table_type_error_code(
                                            db_name, table_name)),
           db_name, table_name);
  return true;
}

}  // namespace

void CommonApi::set_lock_wait_timeout(THD *thd, int timeout_sec) {
  // As good as for ever is the longest wait that the server allows; debug
  // builds stop at a longer one.
  thd->variables.lock_wait_timeout =
      timeout_sec < 0 ? longest_wait_sec : static_cast<ulong>(timeout_sec);
}

TABLE *CommonApi::open_table(THD *thd, const char *db_name,
                             const char *table_name) {
  if (!is_identifier(db_name)) {
    my_error(ER_WRONG_DB_NAME, MYF(0), or_empty(db_name));
    return nullptr;
  }
  if (!is_identifier(table_name)) {
    my_error(ER_WRONG_TABLE_NAME, MYF(0), or_empty(table_name));
    return nullptr;
  }
  // Nothing in these schemas is a base table. They are refused by their names
  // alone: debug builds stop at a lock request for a lower-case name in
  // information_schema.
  if (is_infoschema_db(db_name) || is_perfschema_db(db_name)) {
    my_error(ER_WRONG_OBJECT, MYF(0), db_name, table_name, "BASE TABLE");
    return nullptr;
  }
  if (is_kept_from_sql(db_name, table_name)) return nullptr;
  TABLE *table = try_to_open(thd, db_name, table_name);
  if (table == nullptr) return nullptr;
  if (table->s->db_type() != innodb_hton) {
    my_error(ER_ILLEGAL_HA, MYF(0), table_name);
    close_mysql_tables(thd);
    return nullptr;
  }
  bitmap_set_all(table->read_set);
  return table;
}

bool CommonApi::lock_table(THD *thd, TABLE *table, int timeout_sec) {
  set_lock_wait_timeout(thd, timeout_sec);
  // For this command InnoDB reads without locks, in a transaction of one
  // statement.
  thd->lex->sql_command = SQLCOM_SELECT;
  table->reginfo.lock_type = TL_READ;
  thd->lock = mysql_lock_tables(thd, &table, 1, 0);
  return thd->lock == nullptr;
}

int CommonApi::unlock_table(THD *thd, TABLE *table) {
  bitmap_set_all(table->read_set);
  const int result = trans_commit_stmt(thd, false);
  if (thd->lock != nullptr) {
    mysql_unlock_tables(thd, thd->lock);
    thd->lock = nullptr;
  }
  close_mysql_tables(thd);
  return result;
}

void CommonApi::set_readset(TABLE *table, size_t ncols,
                            const uint32_t *fields) {
  bitmap_clear_all(table->read_set);
  for (size_t i = 0; i < ncols; ++i) {
    if (fields[i] < table->s->fields)
      bitmap_set_bit(table->read_set, fields[i]);
  }
}

KEY *CommonApi::find_key(const TABLE *table, const char *name) {
  KEY *const end = table->key_info + table->s->keys;
  KEY *const found = std::find_if(table->key_info, end, [name](const KEY &key) {
    return strcasecmp(key.name, name) == 0;
  });
  return found != end ? found : nullptr;
}

void CommonApi::get_table_field_names(const TABLE *table,
                                      std::vector<const char *> &columns) {
  columns.clear();
  for (Field **field = table->field; *field != nullptr; ++field) {
    columns.push_back((*field)->field_name);
  }
}

void CommonApi::get_index_field_names(const KEY *key,
                                      std::vector<const char *> &columns) {
  if ((key->flags & HA_NOSAME) != 0 && has_one_tree(key->table)) {
    append_innodb_fields(key, columns);
  }
  if (!columns.empty()) return;
  for (uint i = 0; i < key->actual_key_parts; ++i) {
    columns.push_back(key->key_part[i].field->field_name);
  }
}

int CommonApi::get_index_user_defined_parts(const KEY *key) {
  return static_cast<int>(key->user_defined_key_parts);
}
