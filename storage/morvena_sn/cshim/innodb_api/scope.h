// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/scope.h
  Guards that end mini-transactions and free heaps on every way out of a scope.
*/

#ifndef MORVENA_SN_INNODB_API_SCOPE_H
#define MORVENA_SN_INNODB_API_SCOPE_H

#include "host/innodb.h"

/** A mini-transaction that writes no redo; committed at the end of its scope,
   so that no latch outlives it. */
class Read_mtr {
 public:
  Read_mtr() = default;
  ~Read_mtr() { commit(); }
  Read_mtr(const Read_mtr &) = delete;
  Read_mtr &operator=(const Read_mtr &) = delete;

  mtr_t *start() {
    mtr_.start();
    mtr_.set_log_mode(MTR_LOG_NO_REDO);
    active_ = true;
    return &mtr_;
  }
  void commit() {
    if (active_) mtr_.commit();
    active_ = false;
  }
  /** The mini-transaction, started if it is not. */
  mtr_t *get() { return active_ ? &mtr_ : start(); }

 private:
  mtr_t mtr_;
  bool active_ = false;
};

/** A memory heap that is freed at the end of its scope. */
class Scratch_heap {
 public:
  explicit Scratch_heap(ulint bytes) : heap_(host::new_heap(bytes)) {}
  ~Scratch_heap() { mem_heap_free(heap_); }
  Scratch_heap(const Scratch_heap &) = delete;
  Scratch_heap &operator=(const Scratch_heap &) = delete;

  mem_heap_t *&get() { return heap_; }
  void clear() { mem_heap_empty(heap_); }

 private:
  mem_heap_t *heap_;
};

/** The offsets of one record at a time. The array in the object suffices for
    most records. A longer array is made in the heap and then reused. */
class Record_offsets {
 public:
  Record_offsets() { rec_offs_init(stack_); }
  Record_offsets(const Record_offsets &) = delete;
  Record_offsets &operator=(const Record_offsets &) = delete;

  /** @param n_fields  compute the offsets of only this many fields */
  ulint *of(const rec_t *rec, const dict_index_t *index, mem_heap_t **heap,
            ulint n_fields = ULINT_UNDEFINED) {
    offsets_ = host::rec_offsets(rec, index, offsets_, heap, n_fields);
    return offsets_;
  }
  /** To be called before the heap is emptied. */
  void forget_heap() { offsets_ = stack_; }

 private:
  ulint stack_[REC_OFFS_NORMAL_SIZE];
  ulint *offsets_ = stack_;
};

#endif  // MORVENA_SN_INNODB_API_SCOPE_H
