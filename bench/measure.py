"""Runs the contenders of a group in turns, and compares what they say."""

import statistics

from client import number


class Result:
    """A contender's samples of all rounds, in order."""

    def __init__(self, contender):
        self.contender = contender
        self.seconds = []  # of one read each
        self.rows = 0  # of one read

    @property
    def median(self):
        return statistics.median(self.seconds)

    @property
    def rows_per_second(self):
        return self.rows / self.median


def quartiles(values):
    if len(values) < 2:
        return values[0], values[0]
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return low, high


def disagreements(group, facts):
    """Facts that two contenders share and tell differently, as texts."""
    known, found = {}, []
    for key, told in facts.items():
        for fact, value in told.items():
            if value is None:
                continue
            name = group.contenders[key].name
            if fact not in known:
                known[fact] = (name, number(str(value)))
            elif known[fact][1] != number(str(value)):
                found.append(
                    f"{group.title}, {fact}: {known[fact][0]} says"
                    f" {known[fact][1]}, {name} says {value}"
                )
    return found


def run_group(client, group, rounds):
    """The results by contender, and what the contenders disagree about.

    One round warms up. Then each round runs every contender once, every other
    one in reverse order: what changes slowly meets all of them alike.
    """
    results = {key: Result(c) for key, c in group.contenders.items()}
    mismatches = []
    for nr in range(rounds + 1):
        facts = {}
        order = list(group.contenders)
        for key in order if nr % 2 == 0 else reversed(order):
            contender = group.contenders[key]
            sample, facts[key] = contender.measure(client)
            if nr > 0:
                results[key].seconds.append(sample.ns / 1e9 / contender.reads)
        rows = [told["rows"] for told in facts.values() if told.get("rows")]
        for key, result in results.items():
            result.rows = int(rows[0]) / result.contender.reads
        for text in disagreements(group, facts):
            if text not in mismatches:
                mismatches.append(text)
    return results, mismatches


class Comparison:
    """A line with its figures: ratios of the same round."""

    def __init__(self, line, results):
        self.line = line
        self.ours = results[line.ours]
        self.against = min(
            (results[key] for key in line.against), key=lambda r: r.median
        )
        share = 1
        if line.per_thread:
            share = self.against.contender.threads / self.ours.contender.threads
        self.ratios = [
            against / ours * share
            for ours, against in zip(self.ours.seconds, self.against.seconds)
        ]

    @property
    def figure(self):
        return statistics.median(self.ratios)

    @property
    def spread(self):
        return quartiles(self.ratios)

    @property
    def met(self):
        return None if self.line.goal is None else self.figure >= self.line.goal
