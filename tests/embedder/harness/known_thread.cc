// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "known_thread.h"

#include "my_config.h"
#include "my_thread.h"
#include "mysql/psi/mysql_thread.h"

namespace harness {
namespace {

PSI_thread_key register_key() {
  static PSI_thread_key key;
  PSI_thread_info info[] = {{&key, "case", "case", 0, 0, ""}};
  PSI_THREAD_CALL(register_thread)("morvena_sn_test", info, 1);
  return key;
}

}  // namespace

Known_thread::Known_thread() {
  static const PSI_thread_key key = register_key();
  my_thread_init();
  PSI_THREAD_CALL(set_thread)(PSI_THREAD_CALL(new_thread)(key, 0, this, 0));
}

Known_thread::~Known_thread() {
  PSI_THREAD_CALL(delete_current_thread)();
  my_thread_end();
}

const void *own_thread_row() { return PSI_THREAD_CALL(get_thread)(); }

}  // namespace harness
