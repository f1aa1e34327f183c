// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// The parts of a read, one by one: opening an index, cutting a range into
// units, and the queue of units.

#include <cstring>

#include "common.h"
#include "common/failure.h"
#include "host.h"
#include "innodb_api/latch.h"
#include "innodb_api/partition.h"
#include "innodb_api/plan.h"
#include "innodb_api/queue.h"
#include "innodb_api/range.h"
#include "innodb_api/stop.h"
#include "parallel_test.h"

namespace {

using namespace harness;

/** A plan to read a table of db. It holds the index latch and has a session of
    its own. */
class Opened_plan {
 public:
  explicit Opened_plan(const char *index = "PRIMARY", bool index_only = true,
                       const char *table = "t")
      : thd_(CommonApi::create_thd()),
        table_(CommonApi::open_table(thd_, "db", table)) {
    EXPECT_FALSE(CommonApi::lock_table(thd_, table_, 5));
    plan_ = Read_plan::open(table_, index, index_only, &failure_);
    if (plan_ == nullptr) return;
    latch_ = std::make_unique<Index_latch>(plan_->tree.index);
    latch_->index_s_lock();
    stop_ = std::make_unique<Read_stop>(plan_->trx);
  }
  ~Opened_plan() {
    if (latch_ != nullptr) latch_->index_s_unlock();
    plan_.reset();
    CommonApi::unlock_table(thd_, table_);
    CommonApi::close_thd(thd_);
  }
  Opened_plan(const Opened_plan &) = delete;
  Opened_plan &operator=(const Opened_plan &) = delete;

  explicit operator bool() const { return plan_ != nullptr; }
  Index_latch *latch() const { return latch_.get(); }
  Unit_queue &queue() { return queue_; }

  /** The units of a read of the whole index with that many threads. */
  std::vector<std::shared_ptr<Ctx>> units(size_t threads) {
    const ::Range whole(std::make_shared<Iter>(), std::make_shared<Iter>());
    EXPECT_EQ(setup_ctx(plan_->tree, *stop_, whole, threads, &queue_),
              DB_SUCCESS);
    return drain();
  }
  /** The units that one unit is split into, for two threads. */
  std::vector<std::shared_ptr<Ctx>> split(const Ctx &unit) {
    EXPECT_EQ(split_ctx(plan_->tree, *stop_, unit, 2, &queue_), DB_SUCCESS);
    return drain();
  }
  std::vector<std::shared_ptr<Ctx>> drain() {
    std::vector<std::shared_ptr<Ctx>> units;
    while (auto unit = queue_.deque()) units.push_back(std::move(unit));
    return units;
  }

 private:
  THD *thd_;
  TABLE *table_;
  Failure failure_;
  std::unique_ptr<const Read_plan> plan_;
  std::unique_ptr<Index_latch> latch_;
  std::unique_ptr<Read_stop> stop_;
  Unit_queue queue_;
};

size_t marked(const std::vector<std::shared_ptr<Ctx>> &units) {
  size_t n = 0;
  for (const auto &unit : units) n += unit->split_;
  return n;
}

class ParallelUnits : public Parallel_test {
 protected:
  /** Two rows to a leaf page, and a root with that many leaf pages under it. */
  void make(size_t n_leaves) {
    sql.exec("CREATE TABLE t (id INT PRIMARY KEY, w VARBINARY(8000))");
    const Index_watch index;
    for (int i = 1; index.root_records() < n_leaves || index.levels() == 1; ++i)
      sql.exec("INSERT INTO t VALUES (" + std::to_string(i) +
               ", REPEAT('w', 7000))");
    ASSERT_EQ(index.root_records(), n_leaves);
    ASSERT_EQ(index.levels(), 2u);
  }

  /** Check that the plan holds the latch of the index that was named, and no
      latch of the other index. */
  static void expect_opened(const char *index, const char *other,
                            const char *name, const char *table = "t") {
    const Index_watch watch(table, index), others(table, other);
    EXPECT_EQ(watch.latch_holders(), 0u);
    const Opened_plan plan(name, true, table);
    ASSERT_TRUE(plan);
    EXPECT_EQ(watch.latch_holders(), 1u) << index;
    EXPECT_EQ(others.latch_holders(), 0u) << other;
  }
};

TEST_F(ParallelUnits, NoNameIsTheClusteredIndex) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY by_v (v))");
  expect_opened("PRIMARY", "by_v", nullptr);
  sql.exec("CREATE TABLE u (v INT, KEY by_v (v))");
  expect_opened("GEN_CLUST_INDEX", "by_v", nullptr, "u");
}

TEST_F(ParallelUnits, NamesMatchInAnyCase) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, KEY By_V (v))");
  expect_opened("PRIMARY", "By_V", "primary");
  expect_opened("By_V", "PRIMARY", "BY_v");
}

TEST_F(ParallelUnits, UnknownNamesAreALineEach) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  const Server_log log(sql);
  EXPECT_FALSE(Opened_plan("nothing"));
  EXPECT_FALSE(Opened_plan("Such"));
  EXPECT_EQ(log.count("Cannot find a index \"nothing\".\n"), 1u) << log.text();
  EXPECT_EQ(log.count("Cannot find a index \"Such\".\n"), 1u) << log.text();
}

TEST_F(ParallelUnits, NoneForAnEmptyIndex) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  for (const size_t threads : thread_counts)
    EXPECT_EQ(Opened_plan().units(threads).size(), 0u);
}

TEST_F(ParallelUnits, OneForALeafRoot) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  fill("t", 100, "i");
  for (const size_t threads : thread_counts)
    EXPECT_EQ(Opened_plan().units(threads).size(), 1u);
}

TEST_F(ParallelUnits, ThreeLeavesAndFourThreadsAreThreeToBeCutAgain) {
  make(3);
  const auto units = Opened_plan().units(4);
  EXPECT_EQ(units.size(), 3u);
  EXPECT_EQ(marked(units), 3u);
}

// A unit starts at every twelfth of the hundred leaf pages, 0 to 96, and
// another at the last page: ten units. Eight of them are two for each thread;
// the other two are marked to be split.
TEST_F(ParallelUnits, AHundredLeavesAndFourThreadsAreTen) {
  make(100);
  const auto units = Opened_plan().units(4);
  EXPECT_EQ(units.size(), 10u);
  EXPECT_EQ(marked(units), 2u);
  EXPECT_TRUE(units[8]->split_ && units[9]->split_);
}

TEST_F(ParallelUnits, OfTheCallingThreadAreTwoAtMost) {
  make(100);
  const auto units = Opened_plan().units(0);
  EXPECT_EQ(units.size(), 2u);
  EXPECT_EQ(marked(units), 0u);
}

TEST_F(ParallelUnits, AreTakenInTheirOrder) {
  make(40);
  const auto units = Opened_plan().units(5);
  ASSERT_GT(units.size(), 5u);
  for (size_t i = 0; i < units.size(); ++i) EXPECT_EQ(units[i]->id_, i);
}

TEST_F(ParallelUnits, NoneIsLeftInAnEmptyQueue) {
  make(3);
  Opened_plan plan;
  EXPECT_EQ(plan.queue().deque(), nullptr);
  plan.units(2);
  EXPECT_EQ(plan.queue().deque(), nullptr);
  EXPECT_EQ(plan.queue().deque(), nullptr);
}

// Five leaf pages and two threads: five units, the last of which is marked to
// be split.
TEST_F(ParallelUnits, AMarkedOneOfALeafIsCutIntoOne) {
  make(5);
  Opened_plan plan;
  const auto units = plan.units(2);
  ASSERT_EQ(units.size(), 5u);
  ASSERT_TRUE(units[4]->split_);
  const auto finer = plan.split(*units[4]);
  EXPECT_EQ(finer.size(), 1u);
  EXPECT_EQ(marked(finer), 0u);
}

// A unit starts at every fourth of the 17 leaf pages, 0 to 16: five units for
// two threads. The fourth unit has four leaf pages.
TEST_F(ParallelUnits, OneOfFourLeavesIsCutIntoFour) {
  make(17);
  Opened_plan plan;
  const auto units = plan.units(2);
  ASSERT_EQ(units.size(), 5u);
  const auto finer = plan.split(*units[3]);
  EXPECT_EQ(finer.size(), 4u);
  EXPECT_EQ(marked(finer), 0u);
  for (size_t i = 0; i < finer.size(); ++i) EXPECT_EQ(finer[i]->id_, 5 + i);
}

// The record at a boundary may change before the unit is read; its key does
// not.
TEST_F(ParallelUnits, TheLastPieceEndsByTheKeyAlone) {
  make(17);
  Opened_plan plan;
  const auto units = plan.units(2);
  ASSERT_EQ(units.size(), 5u);
  const auto finer = plan.split(*units[3]);
  ASSERT_EQ(finer.size(), 4u);
  for (const auto &unit : finer)
    EXPECT_EQ(dtuple_get_n_fields_cmp(unit->range_.second->tuple_), 1u);
}

// Only the length of a field counts, not its bytes.
TEST_F(ParallelUnits, KeysAreOrderedByTheirLengths) {
  sql.exec("CREATE TABLE t (id VARBINARY(20) PRIMARY KEY)");
  sql.exec("INSERT INTO t VALUES ('zz'), ('aaa'), ('bbb')");
  Cursor cursor;
  const Opened_plan plan;
  dict_table_t *table =
      dd_table_open_on_name(current_thd, nullptr, "db/t", false, 0);
  const dict_index_t *index = table->first_index();
  mem_heap_t *heap = host::new_heap(1024);
  const auto tuple = [&](const char *text) {
    dtuple_t *key = dtuple_create(heap, 1);
    dict_index_copy_types(key, index, 1);
    dfield_set_data(dtuple_get_nth_field(key, 0), text, strlen(text));
    return key;
  };
  EXPECT_EQ(cmp_dtuple(index, tuple("aaa"), tuple("bbb")), 0);
  EXPECT_LT(cmp_dtuple(index, tuple("zz"), tuple("aaa")), 0);
  EXPECT_GT(cmp_dtuple(index, tuple("aaa"), tuple("zz")), 0);
  mem_heap_free(heap);
  dd_table_close(table, nullptr, nullptr, false);
}

TEST_F(ParallelUnits, TheIndexLatchIsTakenOnceAndGivenBackOnce) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY)");
  const Index_watch index;
  const Opened_plan plan;  // holds the index latch
  EXPECT_EQ(index.latch_holders(), 1u);
  plan.latch()->index_s_lock();
  EXPECT_EQ(index.latch_holders(), 1u);
  plan.latch()->index_s_unlock();
  EXPECT_EQ(index.latch_holders(), 1u);
  plan.latch()->index_s_unlock();
  EXPECT_EQ(index.latch_holders(), 0u);
  plan.latch()->index_s_lock();
}

}  // namespace
