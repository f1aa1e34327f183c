// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/unit.h
  A unit of work.
*/

#ifndef MORVENA_SN_INNODB_API_UNIT_H
#define MORVENA_SN_INNODB_API_UNIT_H

#include <cstddef>
#include <memory>
#include <utility>

struct Iter;

/** Start and end; innodb_api/range.h defines Iter. */
using Range = std::pair<std::shared_ptr<Iter>, std::shared_ptr<Iter>>;

/** A sub-range that one worker reads or splits. */
struct Ctx {
  Ctx(Range range, bool split) : split_(split), range_(std::move(range)) {}

  size_t id_ = 0;     // its number, in the order in which units were queued
  const bool split_;  // to be cut into finer units instead of being read
  const Range range_;
};

#endif  // MORVENA_SN_INNODB_API_UNIT_H
