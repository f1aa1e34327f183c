"""The figures as text, as JSON, and as the generated part of the docs."""

import json

from measure import quartiles

BEGIN = "<!-- figures: written by make bench DOCS=1 -->"
END = "<!-- end of the figures -->"


def seconds_text(seconds):
    if seconds < 1e-3:
        return f"{seconds * 1e6:.1f} µs"
    return f"{seconds * 1e3:.1f} ms"


def rate_text(rows_per_second):
    if rows_per_second < 1e6:
        return f"{rows_per_second / 1e3:.1f} k"
    return f"{rows_per_second / 1e6:.2f} M"


def megabytes(count):
    return f"{count / (1 << 20):.2f} MB"


def verdict(met):
    return {None: "–", True: "met", False: "missed"}[met]


def comparison_row(comparison):
    line = comparison.line
    low, high = comparison.spread
    ours, against = comparison.ours, comparison.against
    return {
        "nr": line.nr,
        "what": line.what,
        "ours": f"{ours.contender.name}: {seconds_text(ours.median)}",
        "against": f"{against.contender.name}: {seconds_text(against.median)}",
        "goal": line.goal,
        "figure": comparison.figure,
        "low": low,
        "high": high,
        "goal_text": "–" if line.goal is None else f"≥ {line.goal:.2f}",
        "figure_text": f"{comparison.figure:.2f} ({low:.2f}..{high:.2f})",
        "met": comparison.met,
    }


def memory_row(memory):
    return {
        "nr": "12",
        "what": f"memory of a read, all columns of {memory.table}",
        "ours": f"allocated: {megabytes(memory.allocated)}",
        "against": f"bound: {megabytes(memory.bound)}",
        "goal": 1.0,
        "figure": memory.bound / memory.allocated,
        "low": None,
        "high": None,
        "goal_text": f"≤ {megabytes(memory.bound)}",
        "figure_text": megabytes(memory.allocated),
        "met": memory.met,
    }


def rows_of(comparisons, memories):
    rows = [comparison_row(c) for c in comparisons]
    rows += [memory_row(m) for m in memories]

    def order(row):
        digits = "".join(x for x in row["nr"] if x.isdigit())
        return (int(digits) if digits else 99, row["nr"])

    return sorted(rows, key=order)


COLUMNS = [
    ("nr", "#"),
    ("what", "what"),
    ("ours", "ours"),
    ("against", "against"),
    ("goal_text", "goal"),
    ("figure_text", "figure"),
    ("verdict", ""),
]


def cells(row):
    row = dict(row, verdict=verdict(row["met"]))
    return [row[key] for key, _ in COLUMNS]


def aligned(table):
    widths = [max(len(line[i]) for line in table) for i in range(len(table[0]))]
    return [
        "  ".join(x.ljust(w) for x, w in zip(line, widths)).rstrip() for line in table
    ]


def markdown(table):
    lines = ["| " + " | ".join(line) + " |" for line in table]
    return lines[:1] + ["|" + "---|" * len(table[0])] + lines[1:]


def table_of(rows):
    return [[title for _, title in COLUMNS]] + [cells(row) for row in rows]


def contender_table(results):
    """Of one group: every contender's time and rate."""
    table = [["", "median", "quartiles", "rows a second", "a thread"]]
    for result in results.values():
        low, high = quartiles(result.seconds)
        rate = result.rows_per_second
        table.append(
            [
                result.contender.name,
                seconds_text(result.median),
                f"{seconds_text(low)}..{seconds_text(high)}",
                rate_text(rate),
                rate_text(rate / result.contender.threads),
            ]
        )
    return table


def profile_table(samples, most=12):
    table = [["share", "in", "function"]]
    for share, module, name in samples[:most]:
        table.append([f"{share:.1f}%", module, name and f"`{name}`"])
    rest = sum(share for share, _, _ in samples[most:])
    if rest >= 0.05:
        table.append([f"{rest:.1f}%", "", "all others"])
    return table


def machine_table(facts):
    return [["", ""]] + [[name, str(value)] for name, value in facts.items()]


class Report:
    """Everything that a run has found."""

    def __init__(self, facts, rows, groups, results, profiles, remarks):
        self.facts, self.rows = facts, rows
        self.groups, self.results = groups, results
        self.profiles, self.remarks = profiles, remarks

    def sections(self):
        """(title, table); the first is the table of goals."""
        yield "Goals", table_of(self.rows)
        for key, results in self.results.items():
            group = self.groups[key]
            yield f"{group.title} ({group.table})", contender_table(results)
        for title, samples in self.profiles.items():
            yield f"Profile: {title}", profile_table(samples)
        yield "Machine", machine_table(self.facts)

    def text(self):
        lines = [""] if self.remarks else []
        lines += self.remarks
        for title, table in self.sections():
            body = table[1:] if table[0] == ["", ""] else table
            lines += ["", title, *("  " + line for line in aligned(body))]
        return "\n".join(lines) + "\n"

    def markdown(self):
        lines = []
        for remark in self.remarks:
            lines += ["", f"**{remark}**"]
        for title, table in self.sections():
            lines += ["", f"### {title}", "", *markdown(table)]
        return "\n".join(lines) + "\n"

    def json(self):
        return json.dumps(
            {
                "machine": self.facts,
                "remarks": self.remarks,
                "lines": self.rows,
                "groups": {
                    key: {
                        "title": self.groups[key].title,
                        "table": self.groups[key].table,
                        "contenders": [
                            {
                                "name": result.contender.name,
                                "threads": result.contender.threads,
                                "rows": result.rows,
                                "seconds": result.seconds,
                            }
                            for result in results.values()
                        ],
                    }
                    for key, results in self.results.items()
                },
                "profiles": {
                    title: [
                        {"percent": share, "module": module, "function": name}
                        for share, module, name in samples
                    ]
                    for title, samples in self.profiles.items()
                },
            },
            indent=1,
            ensure_ascii=False,
        )


def write_docs(path, markdown_text):
    """Replaces what stands between the two marks."""
    with open(path, encoding="utf-8") as file:
        before, mark, rest = file.read().partition(BEGIN)
    _, end_mark, after = rest.partition(END)
    if not mark or not end_mark:
        raise SystemExit(f"bench: {path} lacks the marks of the figures")
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"{before}{BEGIN}\n{markdown_text}\n{END}{after}")
