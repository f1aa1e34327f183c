// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/field_steps.h
  Finds the wanted fields in records that all have the same fields. Needs only
  InnoDB's basic types, no running server.

  It reads leaf records of the COMPACT and DYNAMIC formats. In front of the
  data, towards lower addresses, a record has one bit for each nullable field.
  Then follow the lengths of those variable-length fields that are not NULL, one
  or two bytes each.
*/

#ifndef MORVENA_SN_INNODB_API_FIELD_STEPS_H
#define MORVENA_SN_INNODB_API_FIELD_STEPS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "univ.i"

/** A field of a record; data is null if the value is NULL. */
struct Located_field {
  const byte *data;
  ulint bytes;
};

class Field_steps {
 public:
  struct Step {
    uint16_t fixed_bytes;  // 0: of variable length
    bool is_nullable;
    bool is_long;  // its length may take two bytes
    int32_t slot;  // its place among the wanted fields; -1: not wanted
  };

  /** Append the field that comes next in a record. */
  void add(const Step &step) {
    if (step.is_nullable) ++n_nullable_;
    null_bytes_ = (n_nullable_ + 7) / 8;
    steps_.push_back(step);
    if (step.slot >= 0) n_steps_ = steps_.size();
  }
  /** Give a value to a wanted field that the records do not have. */
  void add_missing(size_t slot, const Located_field &value) {
    missing_.push_back({slot, value});
  }
  /** To be called after the last add(): drops the steps after the last wanted
      field. */
  void end() { steps_.resize(n_steps_); }

  /**
    @param nulls  the first byte of null bits
    @param data   the first byte of the fields
    @return false if a wanted field is stored off the page
  */
  bool locate(const byte *nulls, const byte *data, Located_field *fields) const;

 private:
  struct Missing {
    size_t slot;
    Located_field value;
  };

  ulint n_nullable_ = 0;
  ulint null_bytes_ = 0;
  size_t n_steps_ = 0;  // up to the last wanted field
  std::vector<Step> steps_;
  std::vector<Missing> missing_;
};

inline bool Field_steps::locate(const byte *nulls, const byte *data,
                                Located_field *fields) const {
  const byte *lengths = nulls - null_bytes_;
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
  for (const Missing &field : missing_) fields[field.slot] = field.value;
  return true;
}

#endif  // MORVENA_SN_INNODB_API_FIELD_STEPS_H
