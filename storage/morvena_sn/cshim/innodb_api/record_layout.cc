// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// record_layout: prepares the search for fields in the records of an index.
// In: an index and the wanted fields. Out: for each version of its records a
// step for each field up to the last wanted one. Threads: the caller's; read
// only afterwards.

#include "innodb_api/record_layout.h"

namespace {

// An empty value is not NULL, so it needs a pointer that is not null.
Located_field default_of(const dict_col_default_t *value) {
  static constexpr byte empty = 0;
  if (value->len == UNIV_SQL_NULL) return {nullptr, 0};
  return {value->value != nullptr ? value->value : &empty, value->len};
}

}  // namespace

// The wanted fields of an index.
class Record_layout::Plan {
 public:
  Plan(const dict_index_t *index, const std::vector<ulint> &wanted)
      : index_(index), slots_(index->n_def, -1) {
    for (size_t slot = 0; slot < wanted.size(); ++slot) {
      if (wanted[slot] >= slots_.size()) return;
      int32_t &taken = slots_[wanted[slot]];
      // A field fills one slot. If it is wanted twice, the second slot would
      // stay empty, so the records cannot be read this way.
      if (taken >= 0) return;
      taken = static_cast<int32_t>(slot);
    }
    is_possible_ = true;
  }

  bool is_possible() const { return is_possible_; }
  size_t n_fields() const { return slots_.size(); }

  // The version of records that have exactly the fields for which
  // has(field, position) is true; position counts fields as they lie in a
  // record.
  template <class Has>
  Version of(Has has) const {
    Version version;
    for (ulint i = 0; i < slots_.size(); ++i) {
      const dict_field_t *field = host::physical_field(index_, i);
      const int32_t slot = slots_[field - index_->get_field(0)];
      if (has(field, i)) {
        version.fields.add({static_cast<uint16_t>(field->fixed_len),
                            (field->col->prtype & DATA_NOT_NULL) == 0,
                            DATA_BIG_COL(field->col) != 0, slot});
        continue;
      }
      if (slot < 0) continue;
      const dict_col_default_t *value = field->col->instant_default;
      if (value == nullptr) return {};
      version.fields.add_missing(static_cast<size_t>(slot), default_of(value));
    }
    version.fields.end();
    version.is_known = true;
    return version;
  }

 private:
  const dict_index_t *index_;
  std::vector<int32_t> slots_;  // by a field's number in the index
  bool is_possible_ = false;
};

void Record_layout::init(const dict_index_t *index,
                         const std::vector<ulint> &wanted) {
  const dict_table_t *table = index->table;
  if (!dict_table_is_comp(table)) return;
  const Plan plan(index, wanted);
  if (!plan.is_possible()) return;
  usable_ = true;
  if (!index->is_clustered() || !host::has_instant_columns(table)) {
    unmarked_ = plan.of([](const dict_field_t *, ulint) { return true; });
    return;
  }
  for (ulint number = 0; number <= host::n_row_versions(table); ++number) {
    versions_.push_back(plan.of([number](const dict_field_t *field, ulint) {
      return host::is_in_version(field->col, number);
    }));
  }
  unmarked_ = versions_[0];
  if (!table->has_instant_cols()) return;
  fewest_fields_ = index->get_instant_fields();
  for (ulint n = fewest_fields_; n <= plan.n_fields(); ++n) {
    earlier_.push_back(plan.of(
        [n](const dict_field_t *, ulint position) { return position < n; }));
  }
  unmarked_ = earlier_[0];
}
