// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Writers, and the killer.

#include "tables.h"
#include "threads.h"

namespace soak {

namespace {

class Writer {
 public:
  Writer(World &world, uint32_t number)
      : world_(world),
        random_(world.settings.seed * 1000 + 500 + number),
        connection_(world, "writer") {}

  void run() {
    while (!world_.stop) {
      if (!connection_.connect()) {
        world_.pause(50);
        continue;
      }
      write();
    }
  }

 private:
  void write() {
    const Table &table =
        tables[random_.below(static_cast<uint32_t>(tables.size()))];
    const bool in_transaction = random_.once_in(3);
    if (in_transaction) attempt("BEGIN");
    const unsigned int n = in_transaction ? 1 + random_.below(4) : 1;
    for (unsigned int i = 0; i < n; ++i) attempt(statement(table));
    if (in_transaction) attempt(random_.once_in(4) ? "ROLLBACK" : "COMMIT");
    // Give purge and the readers time.
    world_.pause(random_.below(20));
  }

  void attempt(const std::string &sql) {
    const Reply reply = connection_.attempt(sql);
    world_.tally.count(
        "writers' statements",
        reply.error == 0 ? "done" : "error " + std::to_string(reply.error));
  }

  std::string statement(const Table &table) {
    const unsigned int first = random_.below(2 * table.rows);
    const unsigned int span = 5 + random_.below(table.rows / 20);
    const std::string between = " BETWEEN " + std::to_string(first) + " AND " +
                                std::to_string(first + span);
    const std::string size = std::to_string(random_.below(table.longest_pad));
    const std::string v = std::to_string(1 + random_.below(400));
    switch (random_.below(6)) {
      case 0:
        return "DELETE FROM " + table.name + " WHERE id" + between;
      case 1:
      case 2:
        return "INSERT IGNORE INTO " + table.name +
               " (id, v, pad) WITH RECURSIVE n (i) AS (SELECT " +
               std::to_string(first) + " UNION ALL SELECT i + 1 FROM n" +
               " WHERE i < " + std::to_string(first + span) +
               ") SELECT i, (i * 7 + " + v + ") % 500, REPEAT('i', " + size +
               ") FROM n";
      case 3:
        return "UPDATE " + table.name + " SET v = (v + " + v +
               ") % 500 WHERE id" + between;
      case 4:
        return "UPDATE " + table.name + " SET pad = REPEAT('u', " + size +
               ") WHERE id" + between;
      default:
        // The row moves to another page of the primary key.
        return "UPDATE IGNORE " + table.name + " SET id = (id + " + v + ") % " +
               std::to_string(2 * table.rows) + " WHERE id" + between +
               " LIMIT 5";
    }
  }

  World &world_;
  Random random_;
  Connection connection_;
};

}  // namespace

void run_writer(World &world, uint32_t number) { Writer(world, number).run(); }

void run_killer(World &world) {
  Random random(world.settings.seed * 1000 + 999);
  Connection connection(world, "killer");
  while (!world.stop) {
    world.pause(20 + random.below(160));
    if (random.once_in(2)) {
      if (world.targets.kill_a_session(random))
        world.tally.count("kills", "cursors' sessions");
      continue;
    }
    std::string role;
    const uint32_t id = world.targets.pick(random, &role);
    if (id == 0 || !connection.connect()) continue;
    const std::string kind = random.once_in(2) ? "QUERY " : "CONNECTION ";
    if (connection.attempt("KILL " + kind + std::to_string(id)).error == 0)
      world.tally.count("kills", role + "s, KILL " + kind);
  }
}

}  // namespace soak
