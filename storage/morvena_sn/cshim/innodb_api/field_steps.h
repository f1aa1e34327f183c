// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/field_steps.h
  Where the wanted fields lie in records that all have the same fields. Needs no
  server but its types.

  For leaf records of the COMPACT and DYNAMIC formats. Before the data lie,
  backwards, a bit for each nullable field and the lengths, in one byte or two,
  of the fields of variable length that are not NULL.
*/

#ifndef MORVENA_SN_INNODB_API_FIELD_STEPS_H
#define MORVENA_SN_INNODB_API_FIELD_STEPS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "univ.i"

/** A field of a record; no data: NULL. */
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
    int32_t slot;  // among the wanted fields, -1: none
  };

  /** Append the field that comes next in a record. */
  void add(const Step &step) {
    if (step.is_nullable) ++n_nullable_;
    null_bytes_ = (n_nullable_ + 7) / 8;
    steps_.push_back(step);
    if (step.slot >= 0) n_steps_ = steps_.size();
  }
  /** Have a wanted field that the records lack be found with this value. */
  void add_missing(size_t slot, const Located_field &value) {
    missing_.push_back({slot, value});
  }
  /** There is no further field: forget what comes after the last wanted one. */
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
  size_t n_steps_ = 0;  // up to the last wanted one
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
