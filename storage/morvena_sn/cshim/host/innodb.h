/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file host/innodb.h
  Differences between the hosts' InnoDB, behind one form each.
*/

#ifndef MORVENA_SN_HOST_INNODB_H
#define MORVENA_SN_HOST_INNODB_H

#include "host/version.h"

#include "univ.i"

#include "sync0rw.h"

namespace host {

// 8.0.27: a macro that records file and line. The pass value must be the same
// at lock and unlock; with 1 another thread may unlock.
inline void s_lock(rw_lock_t *lock, ulint pass) {
#if HOST_TAKES_LOCATION
  rw_lock_s_lock_gen(lock, pass, UT_LOCATION_HERE);
#else
  rw_lock_s_lock_gen(lock, pass);
#endif
}

inline void s_unlock(rw_lock_t *lock, [[maybe_unused]] ulint pass) {
  rw_lock_s_unlock_gen(lock, pass);
}

}  // namespace host

#endif  // MORVENA_SN_HOST_INNODB_H
