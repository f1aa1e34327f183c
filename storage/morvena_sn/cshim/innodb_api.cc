// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// What the parallel reader registers with the host at load.

#include "innodb_api.h"

#include "host.h"

#include "univ.i"

#ifdef UNIV_PFS_THREAD
// Pool threads are plain ones: the key is counted, not used.
mysql_pfs_key_t parallel_thread_key;
#endif
