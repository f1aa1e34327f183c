// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Reads while other sessions write: a read delivers what its donor's snapshot
// sees, each row once, however pages split and merge. ROUNDS in the server's
// environment sets how many reads a case makes. By default a case makes 200
// reads, or fewer if a minute passes first: during a long read the writers
// leave more history behind, and the next reads have to search it.

#include <algorithm>
#include <chrono>
#include <numeric>

#include "parallel_test.h"
#include "writer.h"

namespace {

using namespace harness;

using Ints = std::vector<long long>;

class ParallelLoad : public Parallel_test {
 protected:
  /** Repeats reads while the writers run, each read on a new snapshot. */
  void run(const std::vector<Writer::Statements> &writing,
           const std::function<void(uint32_t donor_id)> &check) {
    std::vector<std::unique_ptr<Writer>> writers;
    for (const auto &statements : writing)
      writers.push_back(std::make_unique<Writer>(
          static_cast<unsigned int>(writers.size()) + 1, statements));
    using Clock = std::chrono::steady_clock;
    const size_t asked = setting("ROUNDS", 0);
    const size_t rounds = asked != 0 ? asked : 200;
    const auto enough = asked != 0 ? Clock::time_point::max()
                                   : Clock::now() + std::chrono::minutes(1);
    const auto written = [&] {
      size_t n = 0;
      for (const auto &writer : writers) n += writer->rounds();
      return n;
    };
    const size_t by_several = reads_by_several();
    size_t n_written_meanwhile = 0;
    // The operating system's scheduler decides which workers get rows. Go on
    // for up to 200 more rounds, until more than one worker delivered rows of a
    // read.
    const auto is_shared = [&] { return reads_by_several() > by_several; };
    for (size_t i = 0; !HasFailure(); ++i) {
      const bool is_enough = i >= rounds || (i != 0 && Clock::now() > enough);
      if (is_enough && (is_shared() || i >= rounds + 200)) break;
      SCOPED_TRACE("round " + std::to_string(i));
      take_snapshot();
      const size_t before = written();
      check(donor.id());
      n_written_meanwhile += written() - before;
      donor.exec("COMMIT");
    }
    for (const auto &writer : writers) EXPECT_GT(writer->rounds(), 0u);
    EXPECT_GT(n_written_meanwhile, 0u);
    EXPECT_TRUE(is_shared());
  }

  template <class Reader>
  static Rows rows_of(const Reader &reader, size_t threads,
                      const Columns &columns) {
    Delivered delivered = collect(reader, threads, columns, Workers::any);
    EXPECT_TRUE(delivered.complete);
    return std::move(delivered.rows);
  }

  /** One column of integers, sorted; the case fails if the read fails. */
  template <class Reader>
  static Ints ints_of(const Reader &reader, size_t threads) {
    return collect_ints(reader, threads, 0, Workers::any);
  }

  /** Two reads at the same time. */
  static void side_by_side(const std::function<void()> &one,
                           const std::function<void()> &other) {
    auto first = on_own_thread(one);
    auto second = on_own_thread(other);
    first.get();
    second.get();
  }

  void make_accounts() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, balance INT NOT NULL,"
        " note VARCHAR(2000), KEY by_balance (balance, id, note(700)))"
        " CHARACTER SET latin1");
    fill("t", 2000, "i, 1000, REPEAT('n', i * 31 % 400)");
  }

  static std::vector<std::string> transfer(unsigned int i) {
    const std::string from = std::to_string(1 + i % 2000);
    const std::string to = std::to_string(1 + i / 7 % 2000);
    const std::string sum = std::to_string(1 + i % 90);
    return {"BEGIN",
            "UPDATE t SET balance = balance - " + sum +
                ", note = REPEAT('f', " + std::to_string(i % 2000) +
                ") WHERE id = " + from,
            "UPDATE t SET balance = balance + " + sum + " WHERE id = " + to,
            "COMMIT"};
  }

  static std::vector<std::string> come_and_go(unsigned int i) {
    const std::string first = std::to_string(1 + i % 6000);
    const std::string pad = std::to_string(i % 1500);
    if (i % 3 == 0)
      return {"DELETE FROM t WHERE id BETWEEN " + first + " AND " + first +
              " + 60"};
    return {"INSERT IGNORE INTO t WITH RECURSIVE n (i) AS (SELECT " + first +
            " UNION ALL SELECT i + 1 FROM n WHERE i < " + first +
            " + 50) SELECT i, i * 7 % 500, REPEAT('p', " + pad + ") FROM n"};
  }

  static std::vector<std::string> grow(unsigned int i) {
    const std::string first = std::to_string(1 + i % 6000);
    return {"UPDATE t SET v = (v + 37) % 500, pad = REPEAT('g', " +
            std::to_string(i / 11 % 3000) + ") WHERE id BETWEEN " + first +
            " AND " + first + " + 15"};
  }

  void make_rows() {
    sql.exec(
        "CREATE TABLE t (id INT PRIMARY KEY, v INT, pad VARCHAR(4000),"
        " KEY by_v (v, pad(700))) CHARACTER SET latin1");
    fill("t", 3000, "i * 2, i % 500, REPEAT('p', i * 17 % 800)");
  }
};

TEST_F(ParallelLoad, MoneyThatMovesBetweenAccounts) {
  make_accounts();
  Ints ids(2000);
  std::iota(ids.begin(), ids.end(), 1);
  run({transfer, transfer}, [&](uint32_t donor_id) {
    const auto expect_accounts = [&](const auto &reader, size_t threads) {
      Ints found;
      long long sum = 0;
      for (const Row &row : rows_of(reader, threads, {0, 1})) {
        found.push_back(std::stoll(row[0].value()));
        sum += std::stoll(row[1].value());
      }
      std::sort(found.begin(), found.end());
      EXPECT_TRUE(found == ids) << found.size() << " accounts";
      EXPECT_EQ(sum, 2000000);
    };
    side_by_side([&] { expect_accounts(Scan({.donor = donor_id}), 4); },
                 [&] {
                   expect_accounts(Cursor({.index = "by_balance",
                                           .index_only = true,
                                           .donor = donor_id}),
                                   3);
                 });
  });
}

TEST_F(ParallelLoad, RowsThatComeAndGo) {
  make_rows();
  run({come_and_go, come_and_go}, [&](uint32_t donor_id) {
    const Ints ids = as_ints(donor.query("SELECT id FROM t ORDER BY id"));
    const auto expect_ids = [&](const auto &reader, size_t threads) {
      const Ints found = ints_of(reader, threads);
      EXPECT_TRUE(found == ids) << found.size() << " of " << ids.size();
    };
    side_by_side([&] { expect_ids(Scan({.donor = donor_id}), 4); },
                 [&] { expect_ids(Cursor({.donor = donor_id}), 0); });
  });
}

TEST_F(ParallelLoad, RowsThatGrow) {
  make_rows();
  run({come_and_go, grow}, [&](uint32_t donor_id) {
    const Rows rows = donor_rows("SELECT * FROM t");
    const auto expect = [&](const auto &reader, size_t threads) {
      expect_rows(rows_of(reader, threads, {0, 1, 2}), rows);
    };
    side_by_side([&] { expect(Scan({.donor = donor_id}), 4); },
                 [&] { expect(Cursor({.donor = donor_id}), 8); });
  });
}

TEST_F(ParallelLoad, IndexKeysThatMove) {
  make_rows();
  run({grow, come_and_go}, [&](uint32_t donor_id) {
    const Rows rows = donor_rows("SELECT id, v FROM t");
    const auto expect = [&](size_t threads) {
      const Cursor cursor(
          {.index = "by_v", .index_only = true, .donor = donor_id});
      expect_rows(rows_of(cursor, threads, {0, 1}), rows);
    };
    side_by_side([&] { expect(4); }, [&] { expect(0); });
  });
}

TEST_F(ParallelLoad, RangesOfRowsThatComeAndGo) {
  make_rows();
  run({come_and_go, grow}, [&](uint32_t donor_id) {
    const Ints ids = as_ints(donor.query(
        "SELECT id FROM t WHERE id > 1500 AND id <= 4500 ORDER BY id"));
    const auto expect = [&](size_t threads) {
      Cursor cursor({.donor = donor_id});
      cursor.set_range({Keys().number(1500), Keys().number(4500), false, true});
      const Ints found = ints_of(cursor, threads);
      EXPECT_TRUE(found == ids) << found.size() << " of " << ids.size();
    };
    side_by_side([&] { expect(3); }, [&] { expect(8); });
  });
}

TEST_F(ParallelLoad, RowsWithoutAPrimaryKey) {
  sql.exec(
      "CREATE TABLE t (id INT, v INT, pad VARCHAR(4000),"
      " KEY by_id (id, pad(700))) CHARACTER SET latin1");
  fill("t", 3000, "i * 2, i % 500, REPEAT('p', i * 17 % 800)");
  run({come_and_go, grow}, [&](uint32_t donor_id) {
    const Ints ids = as_ints(donor.query("SELECT id FROM t ORDER BY id"));
    const auto expect = [&](const auto &reader, size_t threads) {
      const Ints found = ints_of(reader, threads);
      EXPECT_TRUE(found == ids) << found.size() << " of " << ids.size();
    };
    side_by_side(
        [&] { expect(Scan({.donor = donor_id}), 4); },
        [&] {
          expect(
              Cursor({.index = "by_id", .index_only = true, .donor = donor_id}),
              3);
        });
  });
}

TEST_F(ParallelLoad, LargeValuesThatComeAndGo) {
  sql.exec("CREATE TABLE t (id INT PRIMARY KEY, v INT, text LONGTEXT, " +
           filler(3000) + ") CHARACTER SET latin1");
  fill("t", 150, "i * 2, i, REPEAT('p', i * 997 % 40000)");
  const auto write = [](unsigned int i) -> std::vector<std::string> {
    const std::string id = std::to_string(1 + i % 300);
    const std::string size = std::to_string(i / 5 % 60000);
    if (i % 4 == 0) return {"DELETE FROM t WHERE id = " + id};
    if (i % 4 == 1)
      return {"UPDATE t SET text = REPEAT('u', " + size + ") WHERE id = " + id};
    return {"INSERT IGNORE INTO t VALUES (" + id + ", 5, REPEAT('i', " + size +
            "))"};
  };
  run({write, write}, [&](uint32_t donor_id) {
    const Rows all = donor_rows("SELECT * FROM t");
    const auto expect_all = [&](const auto &reader, size_t threads) {
      expect_rows(rows_of(reader, threads, {0, 1, 2}), all);
    };
    side_by_side([&] { expect_all(Scan({.donor = donor_id}), 4); },
                 [&] { expect_all(Cursor({.donor = donor_id}), 0); });
  });
}

}  // namespace
