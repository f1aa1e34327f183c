#!/usr/bin/env python3
"""What a long snapshot costs: the readings at growing numbers of versions of
each row, and how long purge takes afterwards. old_snapshot.sh starts the server
for it.
"""

import argparse
import sys
import time

from client import Client

CHUNK = 5000  # the most updates in one call
LEFT = 100  # transactions in the history when purge has ended

PROCEDURE = """
CREATE PROCEDURE churn(n INT, n_rows INT)
BEGIN
  DECLARE chosen INT;
  WHILE n > 0 DO
    SET chosen = 1 + FLOOR(RAND() * n_rows);
    UPDATE versions SET v = v + 1 WHERE id = chosen;
    SET n = n - 1;
  END WHILE;
END"""

COLUMNS = (
    "versions per row",
    "history",
    "undo MB",
    "parallel old",
    "cursor old",
    "SELECT old",
    "parallel fresh",
    "cursor fresh",
    "SELECT fresh",
)


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--client", required=True, help="the program bench_client")
    parser.add_argument("--socket", required=True)
    parser.add_argument("--seconds", type=float, required=True)
    parser.add_argument("--rows", type=int, required=True)
    parser.add_argument("--rate", type=int, help="updates a second, at most")
    return parser.parse_args()


def make(client, rows):
    client.run("CREATE DATABASE bench")
    client.run("USE bench")
    client.run("INSTALL PLUGIN morvena_bench SONAME 'morvena_bench.so'")
    client.run("CREATE FUNCTION morvena_bench RETURNS STRING SONAME 'morvena_bench.so'")
    client.run(
        "CREATE TABLE versions (id INT PRIMARY KEY, v INT NOT NULL,"
        " pad VARCHAR(100) NOT NULL)"
    )
    client.run(f"SET cte_max_recursion_depth = {rows}")
    client.run(
        "INSERT INTO versions WITH RECURSIVE numbers AS (SELECT 1 AS n UNION ALL"
        f" SELECT n + 1 FROM numbers WHERE n < {rows})"
        " SELECT n, n % 1000, REPEAT('p', 80) FROM numbers"
    )
    client.run(PROCEDURE)


class Donor:
    """A session with a snapshot, and the readings of the table under it."""

    def __init__(self, options, inside):
        self.rows, self.inside = options.rows, inside
        self.client = Client(options.client, options.socket)
        self.client.run("USE bench")
        self.id = self.client.run("SELECT CONNECTION_ID()")[0]
        self.take_snapshot()

    def take_snapshot(self):
        self.client.run("COMMIT")
        self.client.run("START TRANSACTION WITH CONSISTENT SNAPSHOT")

    def end(self):
        self.client.run("COMMIT")
        self.client.close()

    def read(self):
        """Milliseconds of each reading, the best of three where they are short."""
        best = self.read_once()
        for _ in range(2):
            if max(best) < 2000:
                best = [min(pair) for pair in zip(best, self.read_once())]
        return best

    def read_once(self):
        """The readings have to find the same."""
        words = f"table=versions columns=v:int donor={self.id}"
        select = self.client.ask("run", "SELECT COUNT(*), SUM(v) FROM versions")
        parallel = self.inside("parallel_read", words + " threads=2")
        cursor = self.inside(
            "cursor_range", words + f" index=PRIMARY low=1 high={self.rows}"
        )
        expected = [int(text) for text in select.texts]
        for sample in (parallel, cursor):
            if [sample.rows, int(sample.texts[0])] != expected:
                sys.exit(f"old_snapshot: not {expected}: {sample.rows} {sample.texts}")
        return [sample.ns / 1e6 for sample in (parallel, cursor, select)]


def history(client):
    return int(
        client.run(
            "SELECT count FROM information_schema.innodb_metrics"
            " WHERE name = 'trx_rseg_history_len'"
        )[0]
    )


def undo_mb(client):
    return (
        int(
            client.run(
                "SELECT SUM(file_size) FROM information_schema.innodb_tablespaces"
                " WHERE space_type = 'Undo'"
            )[0]
        )
        / 2**20
    )


def print_row(values):
    print("".join(f"{value:>17}" for value in values))


def report(control, average, donors):
    times = [f"{ms:.1f} ms" for donor in donors for ms in donor.read()]
    print_row([f"{average:.2f}", history(control), f"{undo_mb(control):.0f}"] + times)


class Writing:
    """Updates of random rows, one to a transaction, at most `rate` a second."""

    def __init__(self, client, rows, rate):
        self.client, self.rows, self.rate = client, rows, rate
        self.chunk = min(CHUNK, rate) if rate else CHUNK
        self.updates, self.seconds = 0, 0.0

    def average(self):
        return self.updates / self.rows

    def run_until(self, average, seconds):
        begin = time.monotonic() - self.seconds
        while self.average() < average and self.seconds < seconds:
            self.client.run(f"CALL churn({self.chunk}, {self.rows})")
            self.updates += self.chunk
            if self.rate:
                due = begin + self.updates / self.rate
                time.sleep(max(0, due - time.monotonic()))
            self.seconds = time.monotonic() - begin


def steps():
    yield 1
    step = 2
    while True:
        yield step
        step *= 2


def wait_for_purge(control, before):
    """Prints how the history went down."""
    begin, shown = time.monotonic(), before
    while True:
        now, seconds = history(control), time.monotonic() - begin
        if now <= shown / 2 or now <= LEFT:
            print(f"history {now} after {seconds:.1f} s")
            shown = now
        if now <= LEFT:
            print(f"purge: {(before - now) / max(seconds, 0.001):.0f} transactions/s")
            return
        if seconds > 1800:
            sys.exit(f"old_snapshot: the history is still {now}")
        time.sleep(0.1)


def main():
    options = arguments()
    control = Client(options.client, options.socket)
    make(control, options.rows)
    old = Donor(options, control.inside)
    fresh = Donor(options, control.inside)
    writing = Writing(control, options.rows, options.rate)
    print_row(COLUMNS)
    old.read()  # after this read all pages are in memory
    report(control, 0, [old, fresh])
    for step in steps():
        writing.run_until(step, options.seconds)
        fresh.take_snapshot()
        report(control, writing.average(), [old, fresh])
        if writing.seconds >= options.seconds:
            break
    print(
        f"{writing.updates} updates in {writing.seconds:.0f} s,"
        f" {writing.updates / writing.seconds:.0f} in a second"
    )
    before = history(control)
    fresh.end()
    old.end()
    wait_for_purge(control, before)


main()
