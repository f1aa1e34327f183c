#!/usr/bin/env python3
"""Reads a real table through the example plug-in and holds it against SQL.

Usage: demo.py CLIENT SOCKET FOLDER INDEX_FOLDER...

CLIENT is the mysql client to use, FOLDER a place for the table's data, the
INDEX_FOLDERs are where apt may have its package lists. The server behind SOCKET
is a scratch one: it gets a schema "demo" and the example's plug-in.
"""

import datetime
import sys
from decimal import Decimal

import demo_packages
import demo_parallel
from demo_session import AS_READ, Session, timed

EPOCH = datetime.datetime(2000, 1, 1)

# The columns that show_types() reads, and how.
TYPED = [
    ("name", "str"),
    ("size", "int"),
    ("installed_mb", "decimal"),
    ("snapshot_day", "date"),
    ("fetch_time", "time"),
    ("fetched_at", "datetime"),
]


class Read:
    """One read: its arguments for the plug-in, and the same as a SELECT."""

    def __init__(self, index, columns, where, order, low=None, high=None, words=""):
        self.index, self.columns = index, columns
        self.where, self.order = where, order
        self.low, self.high, self.words = low, high, words

    def call(self, donor, more_words=""):
        columns = ",".join(f"{name} {kind}" for name, kind in self.columns)
        low, high = ("NULL" if x is None else f"'{x}'" for x in (self.low, self.high))
        return (
            f"SELECT morvena_read('demo', 'packages', '{self.index}', '{columns}',"
            f" {low}, {high}, '{self.words} {more_words}', {donor})"
        )

    def select(self):
        values = [AS_READ[kind].format(name) for name, kind in self.columns]
        texts = ", ".join(f"COALESCE({value}, 'NULL')" for value in values)
        sums = [
            f"COALESCE(SUM({f'LENGTH({name})' if kind == 'str' else value}), 0)"
            for (name, kind), value in zip(self.columns, values)
        ]
        return (
            f"SELECT COUNT(*), COALESCE(CRC32(GROUP_CONCAT(CONCAT_WS('|', {texts})"
            f" ORDER BY {self.order} SEPARATOR '\\n')), 0), {', '.join(sums)}"
            f" FROM packages FORCE INDEX ({self.index}) WHERE {self.where}"
        )


class Demo:
    """Runs reads both ways and keeps the verdict."""

    def __init__(self, caller):
        self.caller = caller  # the session that calls the plug-in
        self.mismatches = 0

    def heading(self):
        print(f"{'read':<57}{'rows':>9}{'plug-in':>10}{'SQL':>10}")

    def verdict(self, same):
        self.mismatches += not same
        return "same as SQL" if same else "MISMATCH"

    def compare(self, title, read, judge, donor=0):
        """Holds a read against what the session `judge` sees; the row count."""
        ours, our_ms = timed(self.caller, read.call(donor))
        theirs, their_ms = timed(judge, read.select())
        ours, theirs = ours[0].split("\t"), theirs[0].split("\t")
        same = [Decimal(x) for x in ours] == [Decimal(x) for x in theirs]
        rows = int(ours[0])
        print(
            f"{title:<57}{rows:>9,}{our_ms:>7.0f} ms{their_ms:>7.0f} ms"
            f"  {self.verdict(same)}"
        )
        if not same:
            print(f"    plug-in: {ours}\n    SQL:     {theirs}")
        return rows

    def expect(self, what, holds):
        self.mismatches += not holds
        print(f"{what}  {'as expected' if holds else 'MISMATCH'}")

    def compare_value(self, what, ours, theirs):
        print(f"  {what:<54}{ours:>30}  {self.verdict(ours == theirs)}")
        if ours != theirs:
            print(f"    SQL:     {theirs}")


def load(session, folder, index_folders):
    """Makes the table; answers with its number of rows."""
    index = demo_packages.find_index(index_folders)
    data = folder + "/packages.tsv"
    rows = demo_packages.write_rows(index, data)
    session.run("CREATE DATABASE demo")
    session.run("USE demo")
    session.run(demo_packages.TABLE)
    _, ms = timed(
        session,
        f"LOAD DATA INFILE '{data}' INTO TABLE packages CHARACTER SET utf8mb4",
    )
    session.run("ANALYZE TABLE packages")
    print(f"table: {rows:,} packages of the distribution, loaded in {ms:.0f} ms")
    return rows


def install(session):
    """Loads the example; the plug-in itself comes with it."""
    session.run("INSTALL PLUGIN morvena_example SONAME 'morvena_example.so'")
    functions = {
        "sum": "INTEGER",
        "average": "REAL",
        "read": "STRING",
        "parallel": "STRING",
    }
    for name, result in functions.items():
        session.run(
            f"CREATE FUNCTION morvena_{name} RETURNS {result}"
            " SONAME 'morvena_example.so'"
        )


def show_ranges(demo, judge, rows):
    low, high = rows // 8, rows - rows // 8
    columns = [("id", "int"), ("name", "str"), ("size", "int")]
    demo.heading()
    demo.compare(
        "key range of the primary key, forward",
        Read("PRIMARY", columns, f"id BETWEEN {low} AND {high}", "id", low, high),
        judge,
    )
    where = f"id > {low} AND id <= {high}"
    demo.compare(
        "the same, backward (which leaves out the low key's row)",
        Read("PRIMARY", columns, where, "id DESC", low, high, "backward"),
        judge,
    )
    demo.compare(
        "covering read of by_section, 'devel' to 'net'",
        Read(
            "by_section",
            [("section", "str"), ("size", "int"), ("id", "int")],
            "section BETWEEN 'devel' AND 'net'",
            "section, size, id",
            "devel",
            "net",
            "index_only",
        ),
        judge,
    )


def show_types(demo, judge):
    demo.compare(
        "whole table: text, int, decimal, date, time, datetime",
        Read("PRIMARY", TYPED, "TRUE", "id"),
        judge,
    )
    demo.compare(
        "by_day, packages of snapshots of 2015 to 2024",
        Read(
            "by_day",
            TYPED,
            "snapshot_day BETWEEN '2015-01-01' AND '2024-12-31'",
            "snapshot_day, id",
            "2015-01-01",
            "2024-12-31",
        ),
        judge,
    )


def show_one_row(demo, judge):
    """The values of one row as they come out, and decoded here."""
    row = "FROM packages WHERE snapshot_day IS NOT NULL AND installed_mb > 100"
    number = judge.run(f"SELECT MIN(id) {row}")[0]
    if number == "NULL":
        return  # a list this short has no such package
    read = Read("PRIMARY", TYPED, f"id = {number}", "id", number, number)
    text = demo.caller.run(read.call(0, "show"))[1]
    name, size, decimal, days, duration, moment = text.split("|")
    columns = ", ".join(column for column, _ in TYPED)
    row = judge.run(f"SELECT {columns} FROM packages WHERE id = {number}")[0]
    _, _, sql_decimal, sql_date, sql_time, sql_datetime = row.split("\t")
    print(f"\npackage {name} ({int(size):,} bytes), value by value")
    demo.compare_value(
        f"decimal {decimal}", f"{Decimal(decimal):.6f}", sql_decimal
    )
    day = EPOCH + datetime.timedelta(days=int(days))
    demo.compare_value(f"date {days} days since 2000", f"{day:%Y-%m-%d}", sql_date)
    clock = EPOCH + datetime.timedelta(microseconds=int(duration))
    demo.compare_value(
        f"time {duration} microseconds", f"{clock:%H:%M:%S.%f}", sql_time
    )
    at = EPOCH + datetime.timedelta(microseconds=int(moment))
    demo.compare_value(
        f"datetime {moment} microseconds since 2000",
        f"{at:%Y-%m-%d %H:%M:%S.%f}",
        sql_datetime,
    )


def show_functions(demo, judge):
    """The example's own SQL functions, in the calling session."""
    print("\nSQL functions of the example, inside the donor's own transaction")
    arguments = "'demo', 'packages', 'by_section', 'size', 'editors', 'libs'"
    for title, ours, theirs in (
        ("morvena_sum, on the client's thread", "morvena_sum", "SUM"),
        ("morvena_average, on a thread of its own", "morvena_average", "AVG"),
    ):
        ours = judge.run(f"SELECT ROUND({ours}({arguments}), 3)")[0]
        theirs = judge.run(
            f"SELECT ROUND({theirs}(size), 3) FROM packages"
            " WHERE section BETWEEN 'editors' AND 'libs'"
        )[0]
        demo.compare_value(title, f"{Decimal(ours):.3f}", f"{Decimal(theirs):.3f}")


def show_donor(demo, donor, writer):
    """A donor's snapshot, with what others deleted and what it wrote itself."""
    donor.run("START TRANSACTION WITH CONSISTENT SNAPSHOT")
    donor.run(
        "INSERT INTO packages SELECT id + 1000000, CONCAT('own-', name), version,"
        " 'demo', size, installed_mb, snapshot_day, fetch_time, fetched_at,"
        " summary FROM packages WHERE section = 'shells'"
    )
    # The index keeps the two writers' row locks apart.
    hint = "/*+ INDEX(packages by_section) */"
    donor.run(
        f"UPDATE {hint} packages SET size = size + 1 WHERE section = 'editors'"
    )
    writer.run(f"DELETE {hint} FROM packages WHERE section = 'libs'")
    print(
        f"\nsession {donor.id}, the donor, has a snapshot and uncommitted rows;"
        f"\nsession {writer.id} has deleted section 'libs' since, and committed"
    )
    columns = [("id", "int"), ("section", "str"), ("size", "int")]

    def section(name):
        where = f"section = '{name}'"
        return Read("by_section", columns, where, "size, id", name, name)

    whole = Read("PRIMARY", columns, "TRUE", "id")
    demo.heading()
    for title, read in (
        ("donor's snapshot: the section deleted since", section("libs")),
        ("donor's snapshot: its own inserted rows", section("demo")),
        ("donor's snapshot: its own changed rows", section("editors")),
    ):
        demo.compare(title, read, donor, donor.id)
    title = "donor's snapshot: the whole table"
    seen = demo.compare(title, whole, donor, donor.id)
    left = demo.compare("no donor: the whole table", whole, writer)
    if seen <= left:
        demo.mismatches += 1
        print("MISMATCH: the donor's snapshot shows no more rows than a fresh one")
    show_functions(demo, donor)
    donor.run("ROLLBACK")


def main(client, socket, folder, *index_folders):
    caller, donor, writer = (Session(client, socket) for _ in range(3))
    rows = load(caller, folder, index_folders)
    install(caller)
    for session in (caller, donor, writer):
        session.run("USE demo")
        session.run("SET SESSION group_concat_max_len = 1 << 30")
    print("times: until the client has the answer; SQL's statement computes the same")
    print("row count, sums and checksum of the rows in order\n")
    demo = Demo(caller)
    show_ranges(demo, writer, rows)
    show_types(demo, writer)
    show_one_row(demo, writer)
    show_donor(demo, donor, writer)
    demo_parallel.show(demo, donor, writer)
    for session in (caller, donor, writer):
        session.close()
    if demo.mismatches:
        raise SystemExit(f"\ndemo: {demo.mismatches} results differ from SQL's")
    print("\nevery result is the same as SQL's")


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except KeyboardInterrupt:
        raise SystemExit(130) from None
