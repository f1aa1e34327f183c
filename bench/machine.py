"""The machine's shape, and how much of it others took meanwhile."""

import os
import platform
import subprocess

TICKS = os.sysconf("SC_CLK_TCK")


def first_line(path, start=""):
    try:
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith(start):
                    return line.strip()
    except OSError:
        pass
    return ""


def output(*command):
    try:
        done = subprocess.run(command, capture_output=True, encoding="utf-8")
    except OSError:
        return ""
    return done.stdout.strip() if done.returncode == 0 else ""


def system_name():
    name = first_line("/etc/os-release", "PRETTY_NAME=")
    return name.partition("=")[2].strip('"') or platform.system()


def caches():
    """Sizes of the first processor's caches, by level."""
    folder = "/sys/devices/system/cpu/cpu0/cache"
    found = []
    for entry in sorted(os.listdir(folder)) if os.path.isdir(folder) else []:
        where = f"{folder}/{entry}"
        if not entry.startswith("index"):
            continue
        if first_line(f"{where}/type") != "Instruction":
            level, size = first_line(f"{where}/level"), first_line(f"{where}/size")
            found.append(f"L{level} {size}")
    return ", ".join(found)


def shape():
    """What the figures depend on, as names and texts."""
    memory_kb = int(first_line("/proc/meminfo", "MemTotal:").split()[1])
    model = first_line("/proc/cpuinfo", "model name").partition(":")[2].strip()
    return {
        "processor": model or platform.machine(),
        "cores": str(len(os.sched_getaffinity(0))),
        "caches": caches() or "unknown",
        "memory": f"{memory_kb / 1024 / 1024:.0f} GB",
        "virtual": "yes"
        if first_line("/proc/cpuinfo", "flags").find(" hypervisor") > 0
        else "no",
        "system": f"{system_name()}, Linux {platform.release()}",
        "compiler": output("g++", "--version").split("\n")[0],
    }


def load():
    return [round(x, 2) for x in os.getloadavg()]


def busy_seconds():
    """Processor time that anything has used, the hypervisor's theft included."""
    words = first_line("/proc/stat", "cpu ").split()[1:9]
    user, nice, system, _, _, irq, softirq, steal = (int(x) for x in words)
    return (user + nice + system + irq + softirq + steal) / TICKS


def process_seconds(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
            words = file.read().rpartition(")")[2].split()
    except OSError:
        return 0.0
    return (int(words[11]) + int(words[12])) / TICKS


class Others:
    """How many cores the rest of the machine keeps busy, from its making on."""

    def __init__(self, clock, pids):
        self.clock, self.pids = clock, pids
        self.start = self.now()

    def now(self):
        own = sum(process_seconds(pid) for pid in self.pids)
        return self.clock(), busy_seconds() - own

    def cores(self):
        (then, before), (now, after) = self.start, self.now()
        return max(0.0, (after - before) / max(now - then, 1e-9))
