/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file innodb_api.h
  The parallel reader of an InnoDB index.
*/

#ifndef MORVENA_SN_INNODB_API_H
#define MORVENA_SN_INNODB_API_H

#include "innodb_api/pool.h"

class ParallelIndexReader : public ThreadBudget {
 public:
  // --- pool: innodb_api/pool.cc ---
  using ThreadPool = ::ThreadPool;
};

#endif  // MORVENA_SN_INNODB_API_H
