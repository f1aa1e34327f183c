"""The contenders: each is run on a client and says what came out.

What came out is a dictionary of facts, "rows" and totals by column; none is
what a contender does not tell. Contenders that are measured together must agree
in every fact that they share.
"""

from tables import ROWS

AGGREGATES = {
    "int": "SUM({0})",
    "decimal": "SUM({0})",
    "date": "MAX({0})",
    "datetime": "MAX({0})",
    "string": "SUM(LENGTH({0}))",
}

# Writes the latest dates and datetimes as the reads inside the server do.
SINCE_2000 = {
    "date": "DATEDIFF({0}, '2000-01-01')",
    "datetime": "TIMESTAMPDIFF(MICROSECOND, '2000-01-01', {0})",
}


def words_of(columns):
    return ",".join(f"{name}:{kind}" for name, kind in columns)


def facts(rows, columns, totals):
    result = {name: total for (name, _), total in zip(columns, totals)}
    return dict(result, rows=rows)


class Contender:
    """A name to show, how many threads share the work, and how it is run."""

    def __init__(self, name, threads=1, reads=1):
        self.name, self.threads = name, threads
        self.reads = reads  # the number of reads in a run's time

    def measure(self, client):
        """The sample and its facts."""
        raise NotImplementedError


class Inside(Contender):
    """One that runs inside the server."""

    def __init__(self, name, function, table, columns=(), threads=1, **words):
        super().__init__(name, threads, words.get("count", 1))
        self.function, self.table, self.columns = function, table, columns
        words = dict(words, table=table, threads=threads)
        if columns:
            words["columns"] = words_of(columns)
        self.words = " ".join(f"{key}={value}" for key, value in words.items())

    def measure(self, client):
        sample = client.inside(self.function, self.words)
        return sample, facts(sample.rows, self.columns, sample.texts)


class Floor(Inside):
    """Touches pages: there are no rows to agree about."""

    def __init__(self, name, table, threads=1, **words):
        super().__init__(name, "touch_pages", table, (), threads, **words)
        self.bytes = 0

    def measure(self, client):
        sample, _ = super().measure(client)
        self.bytes = int(sample.texts[1])
        return sample, {}


class Aggregates(Contender):
    """SQL that computes what the contenders inside the server compute."""

    def __init__(self, name, table, columns):
        super().__init__(name)
        self.columns = columns
        totals = [AGGREGATES[kind].format(column) for column, kind in columns]
        totals = [
            SINCE_2000.get(kind, "{0}").format(total)
            for total, (_, kind) in zip(totals, columns)
        ]
        self.sql = f"SELECT {', '.join(totals)} FROM {table}"

    def measure(self, client):
        sample = client.ask("run", self.sql)
        return sample, facts(None, self.columns, sample.texts)


class Count(Contender):
    """COUNT(*), which the server reads in parallel."""

    def __init__(self, name, table, threads):
        super().__init__(name, threads)
        self.table = table

    def measure(self, client):
        client.run(f"SET innodb_parallel_read_threads = {self.threads}")
        sample = client.ask("run", f"SELECT COUNT(*) FROM {self.table}")
        return sample, {"rows": sample.texts[0]}


class CountPrepared(Contender):
    """The same, prepared, so many times."""

    def __init__(self, name, table, threads, count):
        super().__init__(name, threads, count)
        self.table = table

    def measure(self, client):
        client.run(f"SET innodb_parallel_read_threads = {self.threads}")
        sql = f"SELECT COUNT(*) FROM {self.table}"
        sample = client.ask("prepared", self.reads, sql)
        return sample, {"rows": sample.texts[0]}


class Select(Contender):
    """SELECT of columns, every value taken off the wire."""

    def __init__(self, name, table, columns, prepared):
        super().__init__(name)
        self.columns, self.prepared = columns, prepared
        names = ", ".join(column for column, _ in columns)
        self.sql = f"SELECT {names} FROM {table}"

    def measure(self, client):
        if not self.prepared:
            sample = client.ask("text", self.sql)
            return sample, {"rows": sample.rows}
        sample = client.ask("prepared", 1, self.sql)
        return sample, comparable(sample, self.columns)


class Points(Contender):
    """A prepared SELECT by primary key, so many times."""

    def __init__(self, name, table, columns, count):
        super().__init__(name, 1, count)
        self.columns, self.table = columns, table
        names = ", ".join(column for column, _ in columns)
        self.sql = f"SELECT {names} FROM {table} WHERE id = ?"

    def measure(self, client):
        keys = ROWS[self.table]
        sample = client.ask("points", self.reads, keys, self.sql)
        return sample, comparable(sample, self.columns)


def comparable(sample, columns):
    """Of a client's totals, those that mean what the others' mean."""
    result = facts(sample.rows, columns, sample.texts)
    for name, kind in columns:
        if kind not in ("int", "string"):
            del result[name]
    return result
