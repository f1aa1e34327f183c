// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/record_layout.h
  Finds the columns of a read in the records of an index. It does not compute
  the offsets of all fields, as InnoDB's functions do.

  It reads leaf records of the COMPACT and DYNAMIC formats. Their header of five
  bytes lies between the data and the null bits and lengths that Field_steps
  reads.

  After columns were added or dropped instantly, the clustered index has records
  of several versions, each with the columns that the table had at the time. A
  mark in the header tells whether a record gives its version. The version then
  lies between the header and the null bits. It is the number of the row version
  or, in the older scheme of servers without row versions, the number of fields.
  A column that a version lacks has the value that it was added with.
*/

#ifndef MORVENA_SN_INNODB_API_RECORD_LAYOUT_H
#define MORVENA_SN_INNODB_API_RECORD_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/innodb.h"
#include "innodb_api/field_steps.h"

class Record_layout {
 public:
  /** @param wanted  the fields to be located, by their numbers in the index */
  void init(const dict_index_t *index, const std::vector<ulint> &wanted);

  /** Whether init() found that the records can be read this way. */
  bool is_usable() const { return usable_; }

  /** Locate the wanted fields, in the order given to init().
      @return false if one is stored off the page, or the layout of the record's
      version is not known */
  bool locate(const rec_t *rec, Located_field *fields) const;

 private:
  struct Version {
    bool is_known = false;
    Field_steps fields;
  };
  class Plan;

  const Version *marked_version(const rec_t *rec, const byte **nulls) const;

  bool usable_ = false;
  Version unmarked_;               // of records that do not give theirs
  std::vector<Version> versions_;  // by the number of the row version
  ulint fewest_fields_ = 0;        // of a record in the older scheme
  std::vector<Version> earlier_;   // by the number of fields beyond those
};

/** @return the version that a record is marked with, null for one that is not
    known; *nulls moves to the null bits */
inline const Record_layout::Version *Record_layout::marked_version(
    const rec_t *rec, const byte **nulls) const {
  const bool has_version =
      (rec[-REC_N_NEW_EXTRA_BYTES] & host::record_has_version) != 0;
  const std::vector<Version> &known = has_version ? versions_ : earlier_;
  ulint number = *(*nulls)--;
  if (!has_version) {
    if ((number & REC_N_FIELDS_TWO_BYTES_FLAG) != 0) {
      number = (number & REC_N_FIELDS_ONE_BYTE_MAX) << 8 | *(*nulls)--;
    }
    if (number < fewest_fields_) return nullptr;
    number -= fewest_fields_;
  }
  return number < known.size() ? &known[number] : nullptr;
}

inline bool Record_layout::locate(const rec_t *rec,
                                  Located_field *fields) const {
  constexpr byte marks = REC_INFO_INSTANT_FLAG | host::record_has_version;
  const byte *nulls = rec - (REC_N_NEW_EXTRA_BYTES + 1);
  const Version *version = &unmarked_;
  if ((rec[-REC_N_NEW_EXTRA_BYTES] & marks) != 0) {
    version = marked_version(rec, &nulls);
    if (version == nullptr) return false;
  }
  if (!version->is_known) return false;
  return version->fields.locate(nulls, rec, fields);
}

#endif  // MORVENA_SN_INNODB_API_RECORD_LAYOUT_H
