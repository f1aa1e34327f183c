"""What a contender's time goes to: perf's samples of the server."""

import os
import re
import shutil
import subprocess

SECONDS = 3
PER_SECOND = 2000
ATTEMPTS = 4


def why_not(folder):
    """None where perf can sample, else what is in the way."""
    if shutil.which("perf") is None:
        return "perf is not installed (Debian: linux-perf)"
    data = os.path.join(folder, "perf.data")
    done = subprocess.run(
        ["perf", "record", "-q", "-e", "cpu-clock", "-o", data, "true"],
        capture_output=True,
        encoding="utf-8",
    )
    if done.returncode != 0:
        text = (done.stderr.strip().split("\n") or [""])[0]
        return f"perf cannot sample here: {text}"
    return None


def shorten(symbol):
    """A function's name without its parameters' types."""
    if symbol.startswith("0x"):
        return "functions without a name"
    symbol = re.sub(r"\[clone [^]]*\]", "", symbol).strip()
    symbol = re.sub(r"\(anonymous namespace\)::", "", symbol)
    while "<" in symbol and re.search(r"<[^<>]*>", symbol):
        symbol = re.sub(r"<[^<>]*>", "", symbol)
    return symbol.partition("(")[0] or symbol


def record(client, contender, pid, data):
    command = ["perf", "record", "-q", "-e", "cpu-clock", "-F", str(PER_SECOND)]
    command += ["-p", str(pid), "-o", data, "--", "sleep", str(SECONDS)]
    with subprocess.Popen(command, stderr=subprocess.DEVNULL) as perf:
        while perf.poll() is None:
            contender.measure(client)


def sample(client, contender, pid, folder):
    """(share, module, function) of the contender, the largest first; empty when
    perf cannot make sense of its own samples, which happens now and then."""
    data = os.path.join(folder, "perf.data")
    shares = {}
    for _ in range(ATTEMPTS):
        record(client, contender, pid, data)
        for share, module, symbol in report_of(data):
            name = "" if module == "kernel" else shorten(symbol)
            shares[module, name] = shares.get((module, name), 0) + share
        if shares:
            break
    for name in (data, data + ".old"):
        if os.path.exists(name):
            os.remove(name)
    return sorted(((share, *key) for key, share in shares.items()), reverse=True)


def report_of(data):
    """perf's report, line by line: share, module, symbol."""
    command = ["perf", "report", "-i", data, "--stdio", "--no-children", "-q"]
    command += ["--no-inline", "-s", "dso,symbol", "-t", "|"]
    command += ["-F", "overhead,dso,symbol"]
    text = subprocess.run(
        command, capture_output=True, encoding="utf-8", errors="replace"
    ).stdout
    line = re.compile(r"\s*([\d.]+)%\s*\|\s*(\S+)\s*\|\s*\[(.)\]\s*([^|]*)")
    for match in line.finditer(text):
        module = "kernel" if match[3] == "k" else match[2]
        yield float(match[1]), module, match[4]
