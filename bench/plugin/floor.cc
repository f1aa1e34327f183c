// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The floor: no read of an index can be faster than this. It latches the leaf
// pages one after the other, and looks at every byte of them once.

#include <atomic>
#include <thread>

#include "contender.h"
#include "host/innodb.h"
#include "innodb_api/scope.h"
#include "table_session.h"

namespace bench {

namespace {

/** The leaf pages of an index in key order, from the level above them. */
std::vector<page_no_t> leaf_pages(const dict_index_t *index,
                                  const page_size_t &page_size) {
  std::vector<page_no_t> leaves;
  Scratch_heap heap(1024);
  Record_offsets offsets;
  page_no_t page_no = index->page;
  while (page_no != FIL_NULL) {
    Read_mtr mtr;
    const buf_block_t *block = host::page_get_s_latched(
        page_id_t(index->space, page_no), page_size, mtr.start());
    const page_t *page = buf_block_get_frame(block);
    if (page_is_leaf(page)) return {page_no};
    const bool above_leaves = host::page_level(page, mtr.get()) == 1;
    const rec_t *rec = page_rec_get_next_const(page_get_infimum_rec(page));
    page_no = btr_page_get_next(page, mtr.get());
    for (; page_rec_is_user_rec(rec); rec = page_rec_get_next_const(rec)) {
      const page_no_t child = btr_node_ptr_get_child_page_no(
          rec, offsets.of(rec, index, &heap.get()));
      if (above_leaves) leaves.push_back(child);
      if (!above_leaves) page_no = child;
      if (!above_leaves) break;
    }
  }
  return leaves;
}

/** The sum of a page's bytes, eight at a time, in several chains. */
[[gnu::optimize("O3")]] uint64_t sum_of(const byte *frame, size_t bytes) {
  const auto *words = reinterpret_cast<const uint64_t *>(frame);
  uint64_t sums[8] = {};
  for (size_t i = 0; i < bytes / sizeof *words; i += 8)
    for (size_t j = 0; j < 8; ++j) sums[j] += words[i + j];
  uint64_t sum = 0;
  for (const uint64_t part : sums) sum += part;
  return sum;
}

uint64_t touch(const dict_index_t *index, const page_size_t &page_size,
               const page_no_t *pages, size_t n_pages) {
  uint64_t sum = 0;
  for (size_t i = 0; i < n_pages; ++i) {
    Read_mtr mtr;
    const buf_block_t *block = host::page_get_s_latched(
        page_id_t(index->space, pages[i]), page_size, mtr.start());
    sum += sum_of(buf_block_get_frame(block), page_size.logical());
  }
  return sum;
}

/** Keeps the dictionary's table open. */
class Dictionary_table {
 public:
  Dictionary_table(THD *thd, const std::string &name)
      : table_(dd_table_open_on_name(thd, nullptr, ("bench/" + name).c_str(),
                                     false, 0, nullptr)) {
    if (table_ == nullptr) throw std::runtime_error("no table " + name);
  }
  ~Dictionary_table() { dd_table_close(table_, nullptr, nullptr, false); }
  Dictionary_table(const Dictionary_table &) = delete;
  Dictionary_table &operator=(const Dictionary_table &) = delete;

  dict_index_t *index(const std::string &name) const {
    dict_index_t *index = table_->first_index();
    while (!name.empty() && index != nullptr && name != index->name())
      index = index->next();
    if (index == nullptr) throw std::runtime_error("no index " + name);
    return index;
  }
  page_size_t page_size() const { return dict_table_page_size(table_); }

 private:
  dict_table_t *table_;
};

}  // namespace

Answer touch_pages(const Request &request) {
  const Watch watch;
  Answer answer;
  const Table_session session(request.table);
  const Dictionary_table table(session.thd(), request.table);
  dict_index_t *index = table.index(request.index);
  const page_size_t page_size = table.page_size();
  rw_lock_t *latch = dict_index_get_lock(index);
  host::s_lock(latch, 1);
  const std::vector<page_no_t> pages = leaf_pages(index, page_size);
  std::atomic<uint64_t> sum{0};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < request.threads; ++i) {
    const size_t from = pages.size() * i / request.threads;
    const size_t to = pages.size() * (i + 1) / request.threads;
    threads.emplace_back([&, from, to] {
      my_thread_init();
      sum += touch(index, page_size, pages.data() + from, to - from);
      my_thread_end();
    });
  }
  for (std::thread &thread : threads) thread.join();
  host::s_unlock(latch, 1);
  answer.ns = watch.ns();
  // Show the sum too: a compiler may remove a loop whose result is not used.
  answer.totals = {std::to_string(pages.size()),
                   std::to_string(pages.size() * page_size.logical()),
                   std::to_string(sum)};
  return answer;
}

}  // namespace bench
