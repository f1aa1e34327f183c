"""The distribution's package list as a table: where it is, and its rows.

The index names no dates and no times, but it holds what they follow from: many
versions name the day of the snapshot they were built from ("git20240131"), and
sizes say how long a transfer takes.
"""

import datetime
import os
import re
import subprocess

TABLE = """
CREATE TABLE packages (
  id INT UNSIGNED NOT NULL PRIMARY KEY COMMENT 'position in the list',
  name VARCHAR(120) CHARACTER SET ascii COLLATE ascii_bin NOT NULL,
  version VARCHAR(120) CHARACTER SET ascii COLLATE ascii_bin NOT NULL,
  section VARCHAR(60) CHARACTER SET ascii COLLATE ascii_bin NOT NULL,
  size BIGINT NOT NULL COMMENT 'bytes',
  installed_mb DECIMAL(14,6) NULL COMMENT 'megabytes of 10^6 bytes',
  snapshot_day DATE NULL COMMENT 'day that the version names, if it does',
  fetch_time TIME(6) NOT NULL COMMENT 'to fetch it at 1 byte a microsecond',
  fetched_at DATETIME(6) NOT NULL COMMENT 'so, after all in front of it',
  summary TEXT NULL,
  KEY by_section (section, size),
  KEY by_day (snapshot_day)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4
"""

DAY = re.compile(r"(?<!\d)(20[0-2]\d)(0[1-9]|1[0-2])([0-2]\d|3[01])(?!\d)")
LONGEST_FETCH = 838 * 3600 * 10**6


def find_index(folders):
    """The largest package list of the first folder that has one."""
    for folder in folders:
        names = os.listdir(folder) if os.path.isdir(folder) else []
        found = [os.path.join(folder, x) for x in names if "_Packages" in x]
        if found:
            return max(found, key=os.path.getsize)
    return "/var/lib/dpkg/status"


def _lines(path):
    if path.endswith(("_Packages", "status")):
        with open(path, encoding="utf-8") as file:
            yield from file
        return
    # apt keeps its lists in a compression of its own choice and reads all.
    cat = ["/usr/lib/apt/apt-helper", "cat-file", path]
    with subprocess.Popen(cat, stdout=subprocess.PIPE, encoding="utf-8") as run:
        yield from run.stdout
    if run.returncode != 0:
        raise SystemExit(f"demo: cannot read {path}")


def _paragraphs(path):
    """Each package's fields; continuation lines are not needed."""
    fields = {}
    for line in _lines(path):
        if line == "\n":
            if fields:
                yield fields
            fields = {}
        elif not line[0].isspace():
            key, _, value = line.rstrip("\n").partition(": ")
            fields[key] = value
    if fields:
        yield fields


def _snapshot_day(version):
    match = DAY.search(version)
    try:
        return match and datetime.date(*map(int, match.groups()))
    except ValueError:
        return None  # such as the 31st of June: some other number


def _time(microseconds):
    seconds, fraction = divmod(microseconds, 10**6)
    minutes, seconds = divmod(seconds, 60)
    return f"{minutes // 60}:{minutes % 60:02}:{seconds:02}.{fraction:06}"


def _megabytes(kibibytes):
    whole, rest = divmod(int(kibibytes) * 1024, 10**6)
    return f"{whole}.{rest:06}"


def _row(number, fields, start, elapsed):
    installed = fields.get("Installed-Size")
    size = int(fields.get("Size", 1024 * int(installed or 0)))
    fetched_at = start + datetime.timedelta(microseconds=elapsed + size)
    return (
        number,
        fields["Package"],
        fields["Version"],
        fields.get("Section", "unknown"),
        size,
        installed and _megabytes(installed),
        _snapshot_day(fields["Version"]),
        _time(min(size, LONGEST_FETCH)),
        fetched_at.isoformat(" ", "microseconds"),
        fields.get("Description"),
    )


def _escaped(value):
    if value is None:
        return "\\N"
    return str(value).replace("\\", "\\\\").replace("\t", "\\t")


def write_rows(index, path):
    """Writes the rows as LOAD DATA takes them; answers with their number."""
    start = datetime.datetime.fromtimestamp(int(os.path.getmtime(index)))
    number = elapsed = 0
    with open(path, "w", encoding="utf-8") as file:
        for number, fields in enumerate(_paragraphs(index), 1):
            row = _row(number, fields, start, elapsed)
            elapsed += row[4]
            print(*map(_escaped, row), sep="\t", file=file)
    return number
