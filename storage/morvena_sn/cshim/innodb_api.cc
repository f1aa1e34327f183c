/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

// What the parallel reader registers with the host at load.

#include "innodb_api.h"

#include "host.h"

#include "univ.i"

#ifdef UNIV_PFS_THREAD
// Pool threads are plain ones: the key is counted, not used.
mysql_pfs_key_t parallel_thread_key;
#endif
