// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/in_callback.h
  Whether a thread is in a callback of a parallel read, where it holds pages.
*/

#ifndef MORVENA_SN_INNODB_API_IN_CALLBACK_H
#define MORVENA_SN_INNODB_API_IN_CALLBACK_H

/** @return whether the calling thread is in one */
bool in_callback();

#endif  // MORVENA_SN_INNODB_API_IN_CALLBACK_H
