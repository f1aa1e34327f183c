// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// Runs statements that change the tables while others read them. Most of them
// first wait for the readers, two seconds at most, and give up then.

#include "tables.h"
#include "threads.h"

namespace soak {

namespace {

class Definer {
 public:
  explicit Definer(World &world)
      : world_(world),
        random_(world.settings.seed * 1000 + 900),
        connection_(world, "definer") {}

  void run() {
    while (!world_.stop) {
      world_.pause(random_.below(300));
      if (connection_.connect()) define();
    }
    put_back();
  }

 private:
  void define();
  bool attempt(const std::string &what, const std::string &sql);
  void move_away_and_back(const Table &table);
  void drop_and_make(const Table &table);
  void empty(const Table &table);
  void put_back();

  World &world_;
  Random random_;
  Connection connection_;
};

bool Definer::attempt(const std::string &what, const std::string &sql) {
  const Reply reply = connection_.attempt(sql);
  world_.tally.count(
      "statements that change tables",
      what + (reply.error == 0 ? ": done"
                               : ": error " + std::to_string(reply.error)));
  return reply.error == 0;
}

void Definer::move_away_and_back(const Table &table) {
  const std::string away = table.name + "_away";
  if (!attempt("RENAME", "RENAME TABLE " + table.name + " TO " + away)) return;
  world_.pause(20);
  put_back();
}

// Tries many times, because a table must not stay away. At a shutdown it may.
void Definer::put_back() {
  for (int i = 0; i < 20; ++i) {
    // A shutdown waits for this loop, and a client may hold the table until the
    // server has stopped.
    if (world_.stop && i >= 5) return;
    if (!connection_.connect()) {
      if (world_.stop) return;
      continue;
    }
    const Reply names = connection_.attempt("SHOW TABLES LIKE '%\\_away'");
    if (names.error != 0) continue;
    if (names.rows.empty()) return;
    const std::string away = names.rows[0][0].value();
    connection_.attempt("RENAME TABLE " + away + " TO " +
                        away.substr(0, away.size() - 5));
  }
}

void Definer::drop_and_make(const Table &table) {
  if (!attempt("DROP TABLE", "DROP TABLE IF EXISTS " + table.name)) return;
  while (!connection_.connect() ||
         connection_
                 .attempt("CREATE TABLE IF NOT EXISTS " + table.name + " " +
                          table.definition)
                 .error != 0) {
    if (world_.stop) return;
  }
  connection_.attempt(fill_statement(table));
}

void Definer::empty(const Table &table) {
  if (attempt("TRUNCATE", "TRUNCATE TABLE " + table.name))
    connection_.attempt(fill_statement(table));
}

void Definer::define() {
  const Table &table =
      tables[random_.below(static_cast<uint32_t>(tables.size()))];
  const std::string alter = "ALTER TABLE " + table.name;
  const uint32_t kind = random_.below(14);
  // If a shutdown interrupts one of these, the server aborts: see Connection.
  const bool builds = kind == 5 || kind == 7;
  if (builds && !world_.settings.builds_indexes) return;
  switch (kind) {
    case 0:
      attempt("FLUSH TABLES", "FLUSH TABLES");
      return;
    case 1:
      attempt("FLUSH TABLES", "FLUSH TABLES " + table.name);
      return;
    case 2:
      move_away_and_back(table);
      return;
    case 3:
      drop_and_make(table);
      return;
    case 4:
      empty(table);
      return;
    case 5:
      attempt("ADD INDEX", alter + " ADD INDEX extra (v, id)");
      return;
    case 6:
      attempt("DROP INDEX", alter + " DROP INDEX extra");
      return;
    case 7:
      attempt("rebuild", alter + " FORCE");
      return;
    case 8:
      attempt("rebuild by copy", alter + " FORCE, ALGORITHM = COPY");
      return;
    case 9:
      attempt("ANALYZE", "ANALYZE TABLE " + table.name);
      return;
    case 10:
    case 11:
      attempt("EXCHANGE PARTITION",
              "ALTER TABLE parted EXCHANGE PARTITION p1 WITH TABLE " +
                  std::string(spare));
      return;
  }
  // A partitioned table keeps the columns of the one it exchanges with.
  if (table.is_partitioned) return;
  const std::string column = random_.once_in(2) ? "extra" : "other";
  if (random_.once_in(2)) {
    attempt("DROP COLUMN", alter + " DROP COLUMN " + column);
  } else {
    attempt("ADD COLUMN", alter + " ADD COLUMN " + column +
                              " INT NOT NULL DEFAULT 5" +
                              (random_.once_in(2) ? " FIRST" : ""));
  }
}

}  // namespace

void run_definer(World &world) { Definer(world).run(); }

}  // namespace soak
