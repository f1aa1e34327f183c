// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

#include "innodb_api/queue.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "gtest/gtest.h"

namespace {

std::shared_ptr<Ctx> new_unit() {
  return std::make_shared<Ctx>(Range(), false);
}

/** Calls wait_for_unit() in a thread of its own. */
class Waiter {
 public:
  explicit Waiter(Unit_queue *queue)
      : thread_([this, queue] {
          answer_ = queue->wait_for_unit();
          has_answer_ = true;
        }) {}
  ~Waiter() {
    if (thread_.joinable()) thread_.join();
  }
  bool answer() {
    thread_.join();
    return answer_;
  }
  /** If true, it may still not have begun to wait. */
  bool still_waits_after_a_moment() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return !has_answer_;
  }

 private:
  bool answer_ = false;
  std::atomic<bool> has_answer_{false};
  std::thread thread_;
};

TEST(UnitQueue, HasNoUnitAtFirst) {
  Unit_queue queue;
  EXPECT_EQ(queue.deque(), nullptr);
  EXPECT_EQ(queue.deque(), nullptr);
}

TEST(UnitQueue, GivesUnitsInTheirOrder) {
  Unit_queue queue;
  std::vector<std::shared_ptr<Ctx>> units;
  for (int i = 0; i < 5; ++i) queue.enqueue(units.emplace_back(new_unit()));
  for (size_t i = 0; i < units.size(); ++i) {
    EXPECT_EQ(units[i]->id_, i);
    EXPECT_EQ(queue.deque(), units[i]);
  }
  EXPECT_EQ(queue.deque(), nullptr);
}

TEST(UnitQueue, IsAtItsEndWhereNothingWasQueued) {
  Unit_queue queue;
  queue.open();
  EXPECT_FALSE(queue.wait_for_unit());
}

TEST(UnitQueue, IsAtItsEndWhenEveryUnitIsCompleted) {
  Unit_queue queue;
  queue.enqueue(new_unit());
  queue.enqueue(new_unit());
  queue.open();
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(queue.wait_for_unit());
    ASSERT_NE(queue.deque(), nullptr);
    queue.complete();
  }
  EXPECT_FALSE(queue.wait_for_unit());
}

TEST(UnitQueue, GivesNothingBeforeItIsOpen) {
  Unit_queue queue;
  queue.enqueue(new_unit());
  Waiter waiter(&queue);
  EXPECT_TRUE(waiter.still_waits_after_a_moment());
  queue.open();
  EXPECT_TRUE(waiter.answer());
}

TEST(UnitQueue, ClosingItEndsEveryWait) {
  Unit_queue queue;
  queue.enqueue(new_unit());
  Waiter before_opening(&queue);
  queue.close();
  EXPECT_FALSE(before_opening.answer());
  queue.open();
  EXPECT_FALSE(queue.wait_for_unit());
}

// Another worker may still split the unit that it has taken.
TEST(UnitQueue, IsWaitedForWhileAUnitIsBeingRead) {
  Unit_queue queue;
  queue.enqueue(new_unit());
  queue.open();
  ASSERT_NE(queue.deque(), nullptr);
  {
    Waiter waiter(&queue);
    EXPECT_TRUE(waiter.still_waits_after_a_moment());
    queue.enqueue(new_unit());
    EXPECT_TRUE(waiter.answer());
  }
  queue.complete();
  ASSERT_NE(queue.deque(), nullptr);
  Waiter waiter(&queue);
  EXPECT_TRUE(waiter.still_waits_after_a_moment());
  queue.complete();
  EXPECT_FALSE(waiter.answer());
}

// Each of the first units is split into ten.
TEST(UnitQueue, ManyWorkersReadEveryUnitOnce) {
  constexpr size_t n_whole = 50, n_parts = 10;
  Unit_queue queue;
  for (size_t i = 0; i < n_whole; ++i) {
    queue.enqueue(std::make_shared<Ctx>(Range(), true));
  }
  std::vector<std::atomic<int>> reads(n_whole * (n_parts + 1));
  std::vector<std::thread> workers;
  for (int i = 0; i < 8; ++i) {
    workers.emplace_back([&] {
      while (queue.wait_for_unit()) {
        const auto unit = queue.deque();
        if (unit == nullptr) continue;
        ++reads[unit->id_];
        for (size_t n = 0; unit->split_ && n < n_parts; ++n) {
          queue.enqueue(new_unit());
        }
        queue.complete();
      }
    });
  }
  queue.open();
  for (auto &worker : workers) worker.join();
  for (const auto &n : reads) EXPECT_EQ(n, 1);
}

}  // namespace
