#!/usr/bin/env python3
"""Measures this system beside what a user would use instead; bench.sh starts
the server for it.

Ends with 0 also where goals are missed, with 1 where two contenders that read
the same do not find the same.
"""

import argparse
import os
import sys
import time

import lines
import machine
import memory
import plot
import report
import sampling
import tables
from client import Client
from measure import Comparison, run_group

QUIET = 0.1  # the cores that other processes may keep busy

# The contenders whose time is sampled, by group.
SAMPLED = [
    ("one", "ours"),
    ("one", "count"),
    ("five", "ours"),
    ("all", "ours"),
    ("range_one", "cursor"),
    ("range_one", "loop"),
    ("range", "cursor"),
    ("range", "loop"),
    ("points", "cursor"),
    ("openings", "cursor"),
    ("page", "ours"),
]


def say(text):
    print(f"bench: {text}", flush=True)


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--client", required=True, help="the program bench_client")
    parser.add_argument("--socket", required=True)
    parser.add_argument("--server-pid", type=int, required=True)
    parser.add_argument("--folder", required=True, help="where results go")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--docs", help="a document to write the figures to")
    parser.add_argument("--only", help="groups, separated by commas")
    return parser.parse_args()


def prepare(options, client):
    """Tables and contenders, if the server does not have them from before."""
    known = client.run(
        "SELECT COUNT(*) FROM information_schema.tables" " WHERE table_schema = 'bench'"
    )
    if known[0] != "0":
        client.run("USE bench")
        return
    start = time.monotonic()
    tables.make(options.client, options.socket, client)
    say(f"tables are filled, {time.monotonic() - start:.0f} s")
    client.run("INSTALL PLUGIN morvena_bench SONAME 'morvena_bench.so'")
    client.run("CREATE FUNCTION morvena_bench RETURNS STRING SONAME 'morvena_bench.so'")


def measure(options, client, groups):
    results, mismatches = {}, []
    for key, group in groups.items():
        results[key], found = run_group(client, group, options.rounds)
        mismatches += found
        say(f"{group.title}: measured")
    return results, mismatches


def profile(options, client, groups):
    why = sampling.why_not(options.folder)
    if why is not None:
        return {}, why
    found = {}
    for key, contender in SAMPLED:
        if key not in groups:
            continue
        one = groups[key].contenders[contender]
        title = f"{groups[key].title}, {one.name}"
        found[title] = sampling.sample(client, one, options.server_pid, options.folder)
    return found, None


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def write_documents(options, found):
    """The document's figures, and the picture of them beside it."""
    report.write_docs(options.docs, found.markdown())
    if not options.only:
        plot.draw(options.docs.replace(".md", ".svg"), found.markdown())


def remarks_of(cores, why_no_profile):
    remarks = []
    if cores > QUIET:
        remarks.append(
            f"Others kept {cores:.2f} cores busy meanwhile: these figures are"
            " not to be trusted, those of two threads least."
        )
    if why_no_profile is not None:
        remarks.append(f"No profile: {why_no_profile}.")
    return remarks


def chosen_groups(options):
    groups = lines.groups()
    if options.only:
        groups = {key: groups[key] for key in options.only.split(",")}
    return groups


def find_out(options, client, facts):
    """Everything that is measured, as a report, and the mismatches."""
    groups = chosen_groups(options)
    pids = (options.server_pid, client.process.pid, os.getpid())
    others = machine.Others(time.monotonic, pids)
    results, mismatches = measure(options, client, groups)
    memories = [] if options.only else memory.measure(client, options.rounds)
    cores = others.cores()
    facts["cores that others kept busy"] = f"{cores:.2f}"
    facts["server"] = "MySQL " + client.run("SELECT VERSION()")[0]
    facts["rounds"] = f"{options.rounds} after 1 to warm up"
    profiles, why_not = profile(options, client, groups)
    comparisons = [
        Comparison(line, results[line.group])
        for line in lines.lines()
        if line.group in results
    ]
    rows = report.rows_of(comparisons, memories)
    remarks = remarks_of(cores, why_not)
    found = report.Report(facts, rows, groups, results, profiles, remarks)
    return found, mismatches


def main():
    options = arguments()
    client = Client(options.client, options.socket)
    facts = machine.shape()
    facts["load at the start"] = str(machine.load()[0])
    say("; ".join(f"{name}: {value}" for name, value in facts.items()))
    prepare(options, client)
    found, mismatches = find_out(options, client, facts)
    client.close()
    write(f"{options.folder}/figures.txt", found.text())
    write(f"{options.folder}/results.json", found.json())
    print(found.text(), flush=True)
    plot.draw(f"{options.folder}/figures.svg", found.markdown())
    if options.docs:
        write_documents(options, found)
    for text in mismatches:
        say(f"MISMATCH: {text}")
    return 1 if mismatches else 0


if __name__ == "__main__":
    sys.exit(main())
