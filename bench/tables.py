"""The tables: their rows follow from the row's number alone."""

import threading
import time

from client import Client

ROWS = {
    "lineitem": 2_000_000,
    "wide": 300_000,
    "int_key": 500_000,
    "uuid_key": 500_000,
    "indexed": 1_000_000,
    "big_rows": 50_000,
    "one_page": 100,
}

WIDE_TYPES = ["INT NOT NULL", "SMALLINT NULL", "TINYINT NOT NULL", "INT NULL"]
WIDE_COLUMNS = [(f"c{i:02}", WIDE_TYPES[i % 4]) for i in range(1, 51)]

# Expressions of n, the row's number, and of h, a hash of n: evenly spread and
# always the same for one n.
LINEITEM = """
n, n DIV 4 + 1, h % 200000, h DIV 7 % 10007, n % 7 + 1,
(h % 5000) / 100, (h DIV 3 % 10000000) / 100,
IF(h % 11 = 0, NULL, (h DIV 11 % 1000) / 10000),
DATE '1995-01-01' + INTERVAL h DIV 13 % 3650 DAY,
IF(h % 17 = 0, NULL,
   TIMESTAMP '1995-01-01 00:00:00' + INTERVAL h * 73219 MICROSECOND),
SUBSTR('ANRO', h % 4 + 1, 1),
IF(h % 53 = 0, NULL, ELT(h % 5 + 1, 'AIR', 'MAIL', 'RAIL', 'SHIP', 'TRUCK')),
IF(h % 23 = 0, NULL, LEFT(SHA2(n, 256), 8 + h % 24))"""


def wide_value(i):
    modulus = (1_000_000, 30_000, 120, 2_000_000)[i % 4]
    value = f"(h + {i} * n) % {modulus}"
    nullable = "NOT" not in WIDE_TYPES[i % 4]
    return f"IF((h + {i}) % 31 = 0, NULL, {value})" if nullable else value


WIDE = "n, " + ", ".join(wide_value(i) for i in range(1, 51))

# Table: its columns, and the values of a row.
DEFINITIONS = {
    "lineitem": (
        """id INT UNSIGNED NOT NULL PRIMARY KEY,
        order_id INT UNSIGNED NOT NULL, part_id INT NOT NULL,
        supplier_id INT NOT NULL, line_no SMALLINT NOT NULL,
        quantity DECIMAL(12,2) NOT NULL, price DECIMAL(12,2) NOT NULL,
        discount DECIMAL(6,4) NULL, ship_date DATE NOT NULL,
        received_at DATETIME(6) NULL, status CHAR(1) NOT NULL,
        ship_mode VARCHAR(10) NULL, comment VARCHAR(40) NULL""",
        LINEITEM,
    ),
    "wide": (
        "id INT UNSIGNED NOT NULL PRIMARY KEY, "
        + ", ".join(f"{name} {kind}" for name, kind in WIDE_COLUMNS),
        WIDE,
    ),
    "int_key": (
        """id INT UNSIGNED NOT NULL PRIMARY KEY, v INT NOT NULL,
        w BIGINT NOT NULL, s VARCHAR(30) NOT NULL""",
        "n, h % 1000003, h * 31, LEFT(SHA2(n, 256), 8 + h % 20)",
    ),
    # Rows are not inserted in the order of their keys, so its pages are as full
    # as random insertions leave them.
    "uuid_key": (
        """id BINARY(16) NOT NULL PRIMARY KEY, v INT NOT NULL,
        w BIGINT NOT NULL, s VARCHAR(30) NOT NULL""",
        "UNHEX(LEFT(SHA2(n, 256), 32)), h % 1000003, h * 31, LEFT(SHA2(n, 256), 8 + h % 20)",
    ),
    "indexed": (
        """id INT UNSIGNED NOT NULL PRIMARY KEY, v INT NOT NULL,
        filler VARCHAR(100) NOT NULL""",
        "n, h % 1000003, REPEAT(LEFT(SHA2(n, 256), 16), 5)",
    ),
    "big_rows": (
        """id INT UNSIGNED NOT NULL PRIMARY KEY, v INT NOT NULL,
        head VARCHAR(1200) CHARACTER SET latin1 NOT NULL, body TEXT NOT NULL""",
        "n, h % 1000003, REPEAT(SHA2(n, 256), 17), REPEAT(SHA2(h, 256), 14)",
    ),
    "one_page": (
        "id INT UNSIGNED NOT NULL PRIMARY KEY, v INT NOT NULL",
        "n, h % 1000003",
    ),
}

# The indexes are made after the rows, so their pages are as full as the server
# makes them.
INDEXES = ["ALTER TABLE indexed ADD INDEX by_v (v)"]


def fill(client, name):
    columns, values = DEFINITIONS[name]
    client.run(f"CREATE TABLE {name} ({columns}) ENGINE=InnoDB")
    client.run(
        f"INSERT INTO {name} WITH RECURSIVE numbers AS"
        f" (SELECT 1 AS n, CRC32('1') AS h UNION ALL"
        f"  SELECT n + 1, CRC32(n + 1) FROM numbers WHERE n < {ROWS[name]})"
        f" SELECT {values} FROM numbers"
    )


def fill_all(program, socket, names, failures):
    try:
        client = Client(program, socket)
        client.run("USE bench")
        client.run(f"SET cte_max_recursion_depth = {max(ROWS.values())}")
        for name in names:
            fill(client, name)
        client.close()
    except Exception as failure:  # the thread's end would swallow it
        failures.append(failure)


def wait_for_quiet(client, seconds=60):
    """Until the server has written and purged what the filling left."""
    client.run("SET GLOBAL innodb_max_dirty_pages_pct = 0")
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        dirty = client.run(
            "SELECT variable_value FROM performance_schema.global_status"
            " WHERE variable_name = 'Innodb_buffer_pool_pages_dirty'"
        )
        history = client.run(
            "SELECT count FROM information_schema.innodb_metrics"
            " WHERE name = 'trx_rseg_history_len'"
        )
        if int(dirty[0]) < 50 and int(history[0]) < 50:
            return
        time.sleep(0.5)


def make(program, socket, client):
    """Fills them with two connections at a time."""
    client.run("CREATE DATABASE bench")
    client.run("USE bench")
    failures = []
    others = [name for name in ROWS if name != "lineitem"]
    filling = [
        threading.Thread(target=fill_all, args=(program, socket, names, failures))
        for names in (["lineitem"], others)
    ]
    for thread in filling:
        thread.start()
    for thread in filling:
        thread.join()
    if failures:
        raise failures[0]
    for statement in INDEXES:
        client.run(statement)
    client.run(f"ANALYZE TABLE {', '.join(ROWS)}")
    wait_for_quiet(client)
