"""What is measured: groups of contenders, and the lines that compare two of a
group."""

from contenders import (
    Aggregates,
    Count,
    CountPrepared,
    Floor,
    Inside,
    Points,
    Select,
)
from tables import ROWS, WIDE_COLUMNS

THREADS = 2
BY = f"{THREADS} threads"

ONE = [("supplier_id", "int")]
FIVE = [
    ("price", "decimal"),
    ("discount", "decimal"),
    ("ship_date", "date"),
    ("received_at", "datetime"),
    ("comment", "string"),
]
ALL = [
    ("id", "int"),
    ("order_id", "int"),
    ("part_id", "int"),
    ("supplier_id", "int"),
    ("line_no", "int"),
    ("quantity", "decimal"),
    ("price", "decimal"),
    ("discount", "decimal"),
    ("ship_date", "date"),
    ("received_at", "datetime"),
    ("status", "string"),
    ("ship_mode", "string"),
    ("comment", "string"),
]
FIFTY = [(name, "int") for name, _ in WIDE_COLUMNS]
V = [("v", "int")]
KEYED = [("v", "int"), ("w", "int"), ("s", "string")]
BIG = [("id", "int"), ("v", "int"), ("head", "string"), ("body", "string")]
POINT = [("supplier_id", "int"), ("comment", "string")]


class Group:
    """Contenders that are run in turns, round by round."""

    def __init__(self, title, table, contenders):
        self.title, self.table = title, table
        self.contenders = contenders  # by a key that lines use


class Line:
    """One line of the table: how many times as fast `ours` is as `against`; of
    several of those the fastest counts. A goal of none states the figure."""

    def __init__(self, nr, what, group, ours, against, goal, per_thread=False):
        self.nr, self.what, self.group = nr, what, group
        self.ours, self.against, self.goal = ours, against, goal
        self.per_thread = per_thread


def parallel(table, columns, threads=THREADS, name=None, **words):
    name = name or f"parallel read, {threads} thread{'s'[: threads > 1]}"
    return Inside(name, "parallel_read", table, columns, threads, **words)


def server_scan(table, columns):
    name = f"server's parallel scan, {BY}"
    function = "handler_parallel_scan"
    return Inside(name, function, table, columns, THREADS)


def server_loop(table, columns, **words):
    name = "server's handler, row by row"
    return Inside(name, "handler_loop", table, columns, **words)


def floor(table):
    return Floor(f"every byte of the pages, {BY}", table, THREADS)


def one_column():
    table = "lineitem"
    contenders = {
        "ours": parallel(table, ONE),
        "ours1": parallel(table, ONE, 1),
        "count": Count(f"COUNT(*), {BY}", table, THREADS),
        "sql": Aggregates("SELECT SUM()", table, ONE),
        "scan": server_scan(table, ONE),
        "loop": server_loop(table, ONE),
        "floor": floor(table),
    }
    return Group("one integer column", table, contenders)


def five_columns():
    table = "lineitem"
    contenders = {
        "ours": parallel(table, FIVE),
        "ours1": parallel(table, FIVE, 1),
        "sql": Aggregates("SELECT of 5 aggregates", table, FIVE),
        "scan": server_scan(table, FIVE),
        "loop": server_loop(table, FIVE),
    }
    title = "two decimals, date, datetime(6), string"
    return Group(title, table, contenders)


def all_columns(title, table, columns):
    contenders = {
        "ours": parallel(table, columns),
        "text": Select("SELECT, as text", table, columns, False),
        "binary": Select("SELECT, prepared", table, columns, True),
        "scan": server_scan(table, columns),
        "floor": floor(table),
    }
    return Group(title, table, contenders)


def wide():
    table = "wide"
    contenders = {
        "one": parallel(table, FIFTY[24:25], name=f"one column, {BY}"),
        "fifty": parallel(table, FIFTY, name=f"all 50, {BY}"),
    }
    return Group("50 narrow columns", table, contenders)


def keys():
    contenders = {
        "uuid": parallel("uuid_key", KEYED, name=f"UUID key, {BY}"),
        "int": parallel("int_key", KEYED, name=f"integer key, {BY}"),
    }
    return Group("key of 16 random bytes, and an integer", "uuid_key", contenders)


def secondary():
    table = "indexed"
    index = {"index": "by_v", "index_only": 1}
    contenders = {
        "index": parallel(table, V, name=f"index-only, {BY}", **index),
        "table": parallel(table, V, name=f"clustered, {BY}"),
    }
    return Group("narrow secondary index", table, contenders)


def by_key(title, name, function, count):
    table = "lineitem"
    words = {"index": "PRIMARY", "count": count, "keys": ROWS[table]}
    contenders = {
        "cursor": Inside(name, function, table, POINT, **words),
        "sql": Points("prepared SELECT", table, POINT, count),
    }
    return Group(title, table, contenders)


def long_range(columns):
    table = "lineitem"
    words = {"index": "PRIMARY", "low": 200_001, "high": 1_800_000}
    contenders = {
        "cursor": Inside("index cursor", "cursor_range", table, columns, **words),
        "loop": server_loop(table, columns, **words),
    }
    title = f"1,600,000 rows in key order, columns: {len(columns)}"
    return Group(title, table, contenders)


def one_page():
    table, reads = "one_page", 200
    contenders = {
        "ours": parallel(table, V, name=f"open, read, close, {BY}", count=reads),
        "alone": Inside(
            f"the read alone, {BY}",
            "parallel_read_alone",
            table,
            V,
            THREADS,
            count=reads,
        ),
        "count": CountPrepared(f"prepared COUNT(*), {BY}", table, THREADS, reads),
        "count1": CountPrepared("prepared COUNT(*), 1 thread", table, 1, reads),
    }
    return Group("table of one page", table, contenders)


def groups():
    points = "one row by primary key"
    openings = "one row by primary key, a cursor opened for it"
    return {
        "one": one_column(),
        "five": five_columns(),
        "all": all_columns("all 13 columns", "lineitem", ALL),
        "wide": wide(),
        "keys": keys(),
        "secondary": secondary(),
        "points": by_key(points, "open cursor", "cursor_points", 20_000),
        "openings": by_key(openings, "open, read, close", "cursor_openings", 5_000),
        "range": long_range(FIVE),
        "range_one": long_range(ONE),
        "page": one_page(),
        "big": all_columns("rows of 2 KB, all columns", "big_rows", BIG),
    }


def lines():
    selects = ["text", "binary"]
    counts = ["count", "count1"]
    return [
        Line("1", "one column: COUNT(*)", "one", "ours", ["count"], 1.0),
        Line("2", "five typed columns: aggregates", "five", "ours", ["sql"], 4.0),
        Line("3", "all columns, a thread: SELECT", "all", "ours", selects, 3.0, True),
        Line("4", "one of 50 columns: all 50", "wide", "one", ["fifty"], 5.0),
        Line("5a", "2 threads, one column: 1 thread", "one", "ours", ["ours1"], 1.9),
        Line("5b", "2 threads, five columns: 1 thread", "five", "ours", ["ours1"], 1.9),
        Line("6", "UUID key: integer key", "keys", "uuid", ["int"], 0.85),
        Line("7", "index-only: clustered", "secondary", "index", ["table"], 1.0),
        Line("8", "rows by key: prepared SELECT", "points", "cursor", ["sql"], 8.0),
        Line(
            "9a",
            "long range, one column: handler",
            "range_one",
            "cursor",
            ["loop"],
            0.95,
        ),
        Line(
            "9b", "long range, five columns: handler", "range", "cursor", ["loop"], 0.95
        ),
        Line(
            "10",
            "cursor for one row: prepared SELECT",
            "openings",
            "cursor",
            ["sql"],
            1.0,
        ),
        Line("11", "table of one page: COUNT(*)", "page", "ours", counts, 1.0),
        Line("13", "one column: the floor", "one", "ours", ["floor"], None),
        Line("–", "rows of 2 KB, a thread: SELECT", "big", "ours", selects, None, True),
    ]
