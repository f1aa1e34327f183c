"""A connection to the server through bench_client, and what it measured."""

import subprocess
from decimal import Decimal, InvalidOperation


class Failure(Exception):
    """A command that could not be run."""


class Sample:
    """One run: how long it took and what came out."""

    def __init__(self, ns, rows, texts):
        self.ns, self.rows, self.texts = ns, rows, texts


def number(text):
    """A total as a number, where it is one."""
    try:
        return Decimal(text)
    except InvalidOperation:
        return text


class Client:
    """One connection, one command after the other."""

    def __init__(self, program, socket):
        self.process = subprocess.Popen(
            [program, socket],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            encoding="utf-8",
        )

    def ask(self, *words):
        command = "\t".join(" ".join(str(word).split()) for word in words)
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline().rstrip("\n").split("\t")
        if answer[0] in ("ERROR", ""):
            raise Failure(f"{command}: {' '.join(answer[1:]) or 'no answer'}")
        return Sample(int(answer[0]), int(answer[1]), answer[2:])

    def run(self, sql):
        """The first row's columns."""
        return self.ask("run", sql).texts

    def inside(self, contender, words):
        """Runs a contender inside the server; the time is what it took there."""
        answer = self.run(f"SELECT morvena_bench('{contender}', '{words}')")
        if answer[0] == "ERROR":
            raise Failure(f"{contender} {words}: {answer[1]}")
        return Sample(int(answer[0]), int(answer[1]), answer[2:])

    def close(self):
        self.process.stdin.close()
        self.process.wait()
