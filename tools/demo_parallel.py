"""Parallel reads of a large table while a writer commits changes to it.

A donor session takes a snapshot; from then on another session changes the table
without a pause. Each read shows what the donor's own SELECT shows.
"""

import random
import threading
import time

from demo_session import AS_READ

ROWS_WANTED = 1_000_000

TABLE = """
CREATE TABLE fetches (
  id INT UNSIGNED NOT NULL PRIMARY KEY COMMENT 'even; the writer adds odd ones',
  name VARCHAR(120) CHARACTER SET ascii COLLATE ascii_bin NOT NULL,
  size BIGINT NOT NULL,
  installed_mb DECIMAL(14,6) NULL,
  day DATE NULL
) ENGINE=InnoDB
"""

SUMMED = [("id", "int"), ("size", "int"), ("installed_mb", "decimal"), ("day", "date")]


class Parallel:
    """One read: its arguments for the plug-in, and the same as a SELECT."""

    def __init__(self, index, where="TRUE", low=None, high=None, words=""):
        self.index, self.where = index, where
        self.low, self.high, self.words = low, high, words
        self.threads = 1

    def with_threads(self, threads):
        self.threads = threads
        return self

    def call(self, donor, table="fetches"):
        columns = ",".join(f"{name} {kind}" for name, kind in SUMMED)
        index, low, high = (
            "NULL" if x is None else f"'{x}'" for x in (self.index, self.low, self.high)
        )
        return (
            f"SELECT morvena_parallel('demo', '{table}', {index}, '{columns}',"
            f" {low}, {high}, '{self.words}', {self.threads}, {donor})"
        )

    def select(self):
        sums = (f"COALESCE(SUM({AS_READ[k].format(c)}), 0)" for c, k in SUMMED)
        return (
            f"SELECT COUNT(*), {', '.join(sums)} FROM fetches"
            f" FORCE INDEX ({self.index or 'PRIMARY'}) WHERE {self.where}"
        )


class Writer(threading.Thread):
    """Changes the table, each statement a transaction, until it is stopped."""

    def __init__(self, session, last_id):
        super().__init__(daemon=True)
        self.session, self.last_id = session, last_id
        self.commits = self.rows = 0
        self.failure = None
        self.under_way = threading.Event()  # has committed, or failed
        self.stopping = threading.Event()

    def run(self):
        try:
            while not self.stopping.is_set():
                for statement in self.statements():
                    changed = self.session.run(f"{statement}; SELECT ROW_COUNT()")
                    self.rows += int(changed[0])
                    self.commits += 1
                    self.under_way.set()
        except SystemExit as failure:
            self.failure = failure
        finally:
            self.under_way.set()

    def statements(self):
        def somewhere():
            start = random.randrange(self.last_id)
            return f"id BETWEEN {start} AND {start + 500}"

        yield f"DELETE FROM fetches WHERE {somewhere()}"
        yield (
            "INSERT IGNORE INTO fetches SELECT id + 1, CONCAT('late-', name),"
            " size + 1, installed_mb, day FROM fetches"
            f" WHERE {somewhere()} AND id % 2 = 0"
        )
        yield (
            "UPDATE fetches SET size = size + 1000, day = day + INTERVAL 1 DAY,"
            f" installed_mb = installed_mb + 0.000001 WHERE {somewhere()}"
        )

    def stop(self):
        self.stopping.set()
        self.join()
        if self.failure:
            raise self.failure


def load(session):
    """The packages again and again, as they are fetched day after day."""
    packages, last = map(int, values(session, "COUNT(*), MAX(id) FROM packages"))
    rounds = -(-ROWS_WANTED // packages)
    session.run(TABLE)
    start = time.perf_counter()
    for number in range(rounds):
        position = f"({number * last} + id)"
        session.run(
            f"INSERT INTO fetches SELECT 2 * {position}, name, size + {number},"
            " installed_mb, IF(id % 50 = 0, NULL,"
            f" '2024-01-01' + INTERVAL {position} DIV 1000 DAY)"
            " FROM packages ORDER BY id"
        )
    session.run("ALTER TABLE fetches ADD KEY by_day (day, size, installed_mb)")
    seconds = time.perf_counter() - start
    rows = rounds * packages
    print(f"\ntable: {rows:,} fetches of packages, made in {seconds:.1f} s")
    return 2 * rounds * last


def values(session, query):
    return session.run(f"SELECT {query}")[0].split("\t")


def reads(last_id):
    low, high = last_id // 8, last_id - last_id // 8
    first, last = "2024-06-01", "2026-06-30"
    yield "whole table, sequential scan", Parallel(None)
    yield (
        "range of the primary key",
        Parallel("PRIMARY", f"id BETWEEN {low} AND {high}", low, high),
    )
    yield (
        "range of by_day, from the index alone",
        Parallel(
            "by_day",
            f"day BETWEEN '{first}' AND '{last}'",
            first,
            last,
            "index_only",
        ),
    )


def show_stop(demo, rows):
    """A callback that has enough, and a table that has no single tree to read."""
    enough = rows // 10
    read = Parallel(None, words=f"enough {enough}").with_threads(4)
    answer = demo.caller.run(read.call(0))[0].split("\t")
    taken = int(answer[0])
    demo.expect(
        f"a callback stops its read after {enough:,} rows: {taken:,} taken",
        enough <= taken < rows and answer[-1] == "stopped",
    )
    columns = ", ".join(f"{name} INT" for name, _ in SUMMED)
    demo.caller.run(
        f"CREATE TABLE parts ({columns}) PARTITION BY HASH (id) PARTITIONS 2"
    )
    error = demo.caller.failure(Parallel(None).call(0, "parts"))
    print(f"a partitioned table: {error}")
    demo.expect("  it is refused", "ERROR 1178" in error)


def show(demo, donor, changing):
    """All reads, with `changing` as the writer's session."""
    last_id = load(demo.caller)
    donor.run("START TRANSACTION WITH CONSISTENT SNAPSHOT")
    print(
        f"session {donor.id}, the donor, has a snapshot;"
        f" session {changing.id} inserts, deletes and updates"
    )
    writer = Writer(changing, last_id)
    writer.start()
    writer.under_way.wait()
    demo.heading()
    for title, read in reads(last_id):
        for threads in (1, 2, 4):
            name = f"{title}, {threads} thread{'s' if threads > 1 else ''}"
            demo.compare(name, read.with_threads(threads), donor, donor.id)
    whole = Parallel(None).with_threads(4)
    before = donor.run(whole.select())
    commits, changed = writer.commits, writer.rows
    donor.run("COMMIT")
    donor.run("START TRANSACTION WITH CONSISTENT SNAPSHOT")
    title = "the donor's next snapshot, whole table, 4 threads"
    rows = demo.compare(title, whole, donor, donor.id)
    after = donor.run(whole.select())
    writer.stop()
    demo.expect(
        f"the writer committed {commits:,} changes of {changed:,} rows meanwhile",
        commits > 0 and before != after,
    )
    show_stop(demo, rows)
    donor.run("ROLLBACK")
