"""A client connection for the demonstration, and what SQL says for each read."""

import subprocess
import time

END = "-- end of answer --"

# What SQL says to get what the plug-in's read of that type gives.
AS_READ = {
    "int": "{0}",
    "str": "{0}",
    "decimal": "CAST({0} AS DECIMAL(38,9))",
    "date": "DATEDIFF({0}, '2000-01-01')",
    "time": "TIME_TO_SEC({0}) * 1000000 + MICROSECOND({0})",
    "datetime": "TIMESTAMPDIFF(MICROSECOND, '2000-01-01', {0})",
}


class Session:
    """A client connection that stays open, one statement after the other."""

    def __init__(self, client, socket):
        command = [client, "--no-defaults", "--socket=" + socket, "--user=root"]
        command += ["--batch", "--raw", "--skip-column-names", "--unbuffered"]
        command += ["--default-character-set=utf8mb4"]
        self.command = command
        self.process = subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            encoding="utf-8",
        )
        self.id = int(self.run("SELECT CONNECTION_ID()")[0])

    def run(self, sql):
        """The answer's lines; a statement that fails ends the demo."""
        self.process.stdin.write(f"{sql};\nSELECT '{END}';\n")
        self.process.stdin.flush()
        lines = []
        for line in self.process.stdout:
            line = line.rstrip("\n")
            if line == END:
                return lines
            lines.append(line)
        raise SystemExit(f"demo: no answer to: {sql}")

    def failure(self, sql):
        """What the server answers to a statement that is to fail."""
        command = self.command + ["--execute=" + sql]
        done = subprocess.run(command, capture_output=True, encoding="utf-8")
        return done.stderr.strip() if done.returncode else "no failure"

    def close(self):
        self.process.stdin.close()
        self.process.wait()


def timed(session, sql):
    """The answer, and the milliseconds until the client had it."""
    start = time.perf_counter()
    lines = session.run(sql)
    return lines, (time.perf_counter() - start) * 1000
