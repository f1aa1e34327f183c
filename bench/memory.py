"""Line 12: the memory of one parallel read, against what it may take."""

from lines import ALL, BIG, THREADS

ROWS_OF_BATCH = 4096
PAGE = 16 * 1024
HEAP_BLOCK = 8000  # block size of InnoDB's heaps; a value lies in one block
MEGABYTE = 1 << 20

READS = [("lineitem", ALL, None), ("big_rows", BIG, "body")]


class Memory:
    """The most that a read had allocated, of several; and its bound."""

    def __init__(self, table, allocated, resident, bound):
        self.table, self.bound = table, bound
        self.allocated, self.resident = allocated, resident

    @property
    def met(self):
        return self.allocated <= self.bound


def blob_heap(client, table, column):
    """What the large values of a batch take: they lie in a heap, of a page
    where there are none."""
    if column is None:
        return PAGE
    longest = int(client.run(f"SELECT MAX(LENGTH({column})) FROM {table}")[0])
    in_block = max(1, HEAP_BLOCK // longest)
    blocks = -(-ROWS_OF_BATCH // in_block)
    return max(PAGE, blocks * max(HEAP_BLOCK, longest))


def measure(client, rounds):
    results = []
    for table, columns, large in READS:
        words = ",".join(f"{name}:{kind}" for name, kind in columns)
        words = f"table={table} threads={THREADS} columns={words}"
        allocated, resident = [], []
        for nr in range(rounds + 1):
            texts = client.inside("parallel_memory", words).texts
            if nr > 0:
                allocated.append(int(texts[0]))
                resident.append(int(texts[1]))
        batch = ROWS_OF_BATCH * int(texts[2])
        heap = blob_heap(client, table, large)
        bound = THREADS * (batch + PAGE + heap) + MEGABYTE
        results.append(Memory(table, max(allocated), max(resident), bound))
    return results
