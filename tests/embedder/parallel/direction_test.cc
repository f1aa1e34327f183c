// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Forward and backward reads, row by row, give the same keys while other
// sessions write. ROUNDS in the server's environment sets how many pairs of
// reads a case makes.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "parallel_test.h"
#include "writer.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

/** Rows of about 3 KB, four or five to a page, so that most changes of their
    size split or merge a page. */
class DirectionLoad : public Parallel_test {
 protected:
  DirectionLoad() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT NOT NULL, pad VARCHAR(6000)"
        " NOT NULL, KEY by_v (v, id, pad(700))) CHARACTER SET latin1");
    fill("t", 1000, "i * 2, i * 7 % 500, REPEAT('p', 2500 + i % 1000)");
  }

  static std::vector<std::string> change(unsigned int i) {
    const std::string first = std::to_string(1 + i % 2000);
    const std::string size = std::to_string(2500 + i / 3 % 1500);
    const std::string between = " BETWEEN " + first + " AND " + first + " + 8";
    switch (i % 5) {
      case 0:
        return {"DELETE FROM t WHERE id" + between};
      case 1:
        return {"UPDATE t SET pad = REPEAT('s', 100) WHERE id" + between};
      case 2:
        return {"INSERT IGNORE INTO t WITH RECURSIVE n (i) AS (SELECT " +
                first + " UNION ALL SELECT i + 1 FROM n WHERE i < " + first +
                " + 8) SELECT i, i * 7 % 500, REPEAT('i', " + size +
                ") FROM n"};
      default:
        return {"UPDATE t SET v = (v + 41) % 500, pad = REPEAT('u', " + size +
                ") WHERE id" + between};
    }
  }

  /** Sleeps after every ten rows, so that the writers make progress during the
      read. */
  static Ints read_slowly(Cursor &cursor, const Range &range) {
    Ints ids;
    if (!cursor.set_range(range)) return ids;
    while (cursor.next()) {
      ids.push_back(cursor.read_int(0).value());
      if (ids.size() % 10 == 0)
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    return ids;
  }

  void expect_the_same_keys(const char *index) {
    const Writer one(1, change), two(2, change), three(3, change);
    const auto written = [&] {
      return one.rounds() + two.rounds() + three.rounds();
    };
    const size_t rounds = setting("ROUNDS", 12);
    size_t changes = 0, keys = 0;
    for (size_t i = 0; i < rounds && !HasFailure(); ++i) {
      SCOPED_TRACE("round " + std::to_string(i));
      take_snapshot();
      Cursor cursor({.index = index, .donor = donor.id()});
      const size_t before = written();
      const Ints forward = read_slowly(cursor, {});
      Ints backward = read_slowly(cursor, {.reverse = true});
      changes += written() - before;
      keys += forward.size() + backward.size();
      donor.exec("COMMIT");
      std::reverse(backward.begin(), backward.end());
      EXPECT_GT(forward.size(), 100u);
      EXPECT_TRUE(forward == backward)
          << forward.size() << " forward, " << backward.size() << " backward";
    }
    fprintf(stderr, "direction: %zu pairs, %zu keys, %zu changes meanwhile\n",
            rounds, keys, changes);
    EXPECT_GT(changes, rounds);
  }
};

TEST_F(DirectionLoad, AlongThePrimaryKey) { expect_the_same_keys("PRIMARY"); }

TEST_F(DirectionLoad, AlongAnIndex) { expect_the_same_keys("by_v"); }

}  // namespace
