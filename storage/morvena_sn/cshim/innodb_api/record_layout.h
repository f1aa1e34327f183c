/*
  Copyright (c) 2026, the morvena_sn authors.

  This program is free software; you can redistribute it and/or modify it under
  the terms of the GNU General Public License, version 2.0, as published by the
  Free Software Foundation.
*/

/**
  @file innodb_api/record_layout.h
  Where the columns of a read lie in the records of an index, found without the
  offsets of all fields that the host's routines want.

  For leaf records of the COMPACT and DYNAMIC formats; of a clustered index, if
  no column was added or dropped instantly. Before such a record, backwards from
  its header of five bytes, lie a bit for each nullable field and the lengths,
  in one byte or two, of the fields of variable length that are not NULL.
*/

#ifndef MORVENA_SN_INNODB_API_RECORD_LAYOUT_H
#define MORVENA_SN_INNODB_API_RECORD_LAYOUT_H

#include <cstdint>
#include <vector>

#include "host/innodb.h"

/** A field of a record; no data: NULL. */
struct Located_field {
  const byte *data;
  ulint bytes;
};

class Record_layout {
 public:
  /** @param wanted  the fields to be located, by their numbers in the index */
  void init(const dict_index_t *index, const std::vector<ulint> &wanted);

  /** Whether init() found records that can be read this way. */
  bool is_usable() const { return usable_; }

  /** Locate the wanted fields, in the order given to init().
      @return false if one is stored off the page, or the record has another
      layout after all */
  bool locate(const rec_t *rec, Located_field *fields) const;

 private:
  struct Step {
    uint16_t fixed_bytes;  // 0: of variable length
    bool is_nullable;
    bool is_long;  // its length may take two bytes
    int32_t slot;  // among the wanted fields, -1: none
  };

  bool usable_ = false;
  ulint null_bytes_ = 0;
  std::vector<Step> steps_;  // up to the last wanted field
};

inline bool Record_layout::locate(const rec_t *rec,
                                  Located_field *fields) const {
  constexpr byte other_layout = 0xc0;  // instant columns, row versions
  if ((rec[-REC_N_NEW_EXTRA_BYTES] & other_layout) != 0) return false;
  const byte *nulls = rec - (REC_N_NEW_EXTRA_BYTES + 1);
  const byte *lengths = nulls - null_bytes_;
  const byte *data = rec;
  uint32_t null_mask = 1;
  for (const Step &step : steps_) {
    if (step.is_nullable) {
      if (null_mask == 0x100) {
        --nulls;
        null_mask = 1;
      }
      const bool is_null = (*nulls & null_mask) != 0;
      null_mask <<= 1;
      if (is_null) {
        if (step.slot >= 0) fields[step.slot] = {nullptr, 0};
        continue;
      }
    }
    ulint bytes = step.fixed_bytes;
    if (bytes == 0) {
      bytes = *lengths--;
      if (step.is_long && (bytes & 0x80) != 0) {
        bytes = bytes << 8 | *lengths--;
        if ((bytes & 0x4000) != 0 && step.slot >= 0) return false;
        bytes &= 0x3fff;
      }
    }
    if (step.slot >= 0) fields[step.slot] = {data, bytes};
    data += bytes;
  }
  return true;
}

#endif  // MORVENA_SN_INNODB_API_RECORD_LAYOUT_H
