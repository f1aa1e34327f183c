#!/usr/bin/env python3
"""The figures as a picture: rows a second of the contenders that read one table
in different ways.

    plot.py DOCUMENT PICTURE

draws, as SVG, the figures that stand between the two marks of a document.
"""

import sys
from html import escape

import lines
import report

SHOWN = ("one", "five", "all", "points")  # groups of lines.py
OURS = ("parallel read", "open cursor")  # how the names of our contenders begin

WIDTH, MARGIN = 860, 20
BARS, LABELS = 280, 110  # where bars begin; room for figures behind them
BAR, STEP, HEAD, GAP = 18, 25, 28, 12
COLOURS = {True: "#2a7f62", False: "#9aa5b1"}


def sections(markdown):
    """The tables by their headings, without the lines above their rows."""
    found, title = {}, None
    for line in markdown.splitlines():
        if line.startswith("### "):
            title = line[4:]
            found[title] = []
        elif line.startswith("| ") and title is not None:
            found[title].append([x.strip() for x in line.strip("|").split("|")])
    return {title: rows[1:] for title, rows in found.items()}


def rate(text):
    """Of a cell like "73.35 M"."""
    number, unit = text.split()
    return float(number) * {"k": 1e3, "M": 1e6}[unit]


def machine(tables):
    facts = dict(row for row in tables["Machine"] if len(row) == 2)
    return f"{facts['server']}; {facts['processor']}, {facts['cores']} cores"


class Picture:
    """Collects SVG from the top downwards."""

    def __init__(self):
        self.parts, self.y = [], MARGIN

    def text(self, x, text, words=""):
        self.parts.append(f'<text x="{x}" y="{self.y}" {words}>{escape(text)}</text>')

    def heading(self, text, words='font-weight="bold"'):
        self.y += HEAD - 10
        self.text(MARGIN, text, words)
        self.y += 10

    def bar(self, name, share, figure, ours):
        length = max(1, round(share * (WIDTH - BARS - LABELS)))
        self.y += 14
        self.text(BARS - 8, name, 'text-anchor="end"')
        self.text(BARS + length + 6, figure, 'font-weight="bold"' if ours else "")
        self.parts.append(
            f'<rect x="{BARS}" y="{self.y - 14}" width="{length}" height="{BAR}"'
            f' rx="2" fill="{COLOURS[ours]}"/>'
        )
        self.y += STEP - 14

    def svg(self):
        height = self.y + MARGIN
        return "\n".join(
            [
                f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}"'
                f' height="{height}" viewBox="0 0 {WIDTH} {height}"'
                ' font-family="sans-serif" font-size="13" fill="#1f2933">',
                f'<rect width="{WIDTH}" height="{height}" rx="6" fill="#ffffff"/>',
                *self.parts,
                "</svg>",
                "",
            ]
        )


def draw_group(picture, title, rows):
    """One floor only is left out: beside it all others would look alike."""
    floor = [row for row in rows if row[0].startswith("every byte")]
    rows = [row for row in rows if row not in floor]
    if floor:
        title += f"; reading every byte of the pages: {floor[0][3]}"
    picture.heading(title)
    most = max(rate(row[3]) for row in rows)
    for row in rows:
        ours = row[0].startswith(OURS)
        name = f"morvena_sn: {row[0]}" if ours else row[0]
        picture.bar(name, rate(row[3]) / most, row[3], ours)
    picture.y += GAP


def draw(path, markdown):
    """Draws what `markdown`, the text of a report, has of the groups shown."""
    tables, groups = sections(markdown), lines.groups()
    picture = Picture()
    picture.heading(f"Rows a second ({machine(tables)})", 'font-size="15"')
    picture.y += GAP
    for group in (groups[key] for key in SHOWN):
        title = f"{group.title} ({group.table})"
        if title in tables:
            draw_group(picture, title, tables[title])
    with open(path, "w", encoding="utf-8") as file:
        file.write(picture.svg())


def main():
    document, path = sys.argv[1:]
    with open(document, encoding="utf-8") as file:
        _, mark, rest = file.read().partition(report.BEGIN)
    markdown, end_mark, _ = rest.partition(report.END)
    if not mark or not end_mark:
        raise SystemExit(f"plot: {document} lacks the marks of the figures")
    draw(path, markdown)


if __name__ == "__main__":
    main()
