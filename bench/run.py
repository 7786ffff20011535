"""Runs the benchmarks and prints one table of them. script/bench calls this after it has built them.

run.py BUILD_DIRECTORY full|quick|smoke SEED

Figures of time come from rixbench: a piece of work against its yardstick, which runs in turn with it. Each benchmark
has a process of its own, and all of them take turns several times; medians count. The other figures are counted from
outside (system calls, instructions) or told by the kernel (page faults, memory), as differences.
"""
import collections
import contextlib
import datetime
import json
import os
import pathlib
import platform
import random
import re
import statistics
import subprocess
import sys
import tempfile

MODES = {"full": (5, 0.3), "quick": (3, 0.06), "smoke": (1, 0.001)}  # rounds, seconds of a benchmark in each
TIMEOUT = 120

# The kinds of figures of time: what is shown of a benchmark. Only a latency is more than the CPU time of the client.
LATENCY, CPU, EACH, PERCENT = "latency", "cpu", "each", "percent"
# Benchmark, kind, text, goal.
TIMES = [
    ("stats/10", LATENCY, "getStats, 10 statistics", None),
    ("stats/100", LATENCY, "getStats, 100", 1.03),
    ("stats/1000", LATENCY, "getStats, 1,000", 1.15),
    ("stats/10000", LATENCY, "getStats, 10,000", 1.6),
    ("stats_and_walk/100", LATENCY, "getStats and a full walk, 100", 1.06),
    ("named/10", LATENCY, "getStatsByStatId, 10 elements", None),
    ("named/100", LATENCY, "getStatsByStatId, 100", 1.06),
    ("named/1000", LATENCY, "getStatsByStatId, 1,000", None),
    ("ids/10", LATENCY, "getStatIds, 10 identifiers", None),
    ("ids/100", LATENCY, "getStatIds, 100", None),
    ("ids/1000", LATENCY, "getStatIds, 1,000", None),
    ("ids/10000", LATENCY, "getStatIds, 10,000", None),
    ("long/10", LATENCY, "getStats, 10 values of 3,000 bytes", None),
    ("long/100", LATENCY, "getStats, 100 values of 3,000 bytes", None),
    ("long/1000", LATENCY, "getStats, 1,000 values of 3,000 bytes", None),
    ("open_and_close/10", LATENCY, "open and close", None),
    ("stats/100", CPU, "client CPU of getStats, 100", None),
    ("stats/1000", CPU, "client CPU of getStats, 1,000", None),
    ("stats/10000", CPU, "client CPU of getStats, 10,000", None),
    ("parse/100", EACH, "parse, each of 100 statistics", 8),
    ("parse/1000", EACH, "parse, each of 1,000", 8),
    ("parse/10000", EACH, "parse, each of 10,000", 8),
    ("parse_long/100", EACH, "parse, each of 100 values of 3,000 bytes", None),
    ("parse_ids/1000", EACH, "parse, each of 1,000 identifiers", None),
    ("walk/100", EACH, "walk, each of 100 steps", 9),
    ("walk/1000", EACH, "walk, each of 1,000", 9),
    ("walk/10000", EACH, "walk, each of 10,000", 9),
    ("id_query/1000", EACH, "getIdQuery, each of 1,000 identifiers", None),
    ("copy/10000", CPU, "copyResultSet and freeResultSet", 1.1),
    ("trace_parse/1000", PERCENT, "tracing off: parse, against without", 2),
    ("trace_walk/1000", PERCENT, "tracing off: walk, against without", 2),
]

Row = collections.namedtuple("Row", "text ours yardstick value goal unit", defaults=("", "", None, None, ""))


class Bench:
    def __init__(self, build, mode, work):
        self.programs = pathlib.Path(build) / "bench"
        self.library = pathlib.Path(build) / "source" / "librixstats.so"
        self.rounds, self.seconds = MODES[mode]
        self.work = pathlib.Path(work)
        self.failures = []

    def output(self, *command):
        done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=TIMEOUT, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"{pathlib.Path(command[0]).name} failed: {done.stderr.strip()[-400:]}")
        return done.stdout

    def driver(self, kind="traced"):
        return self.programs / f"rixbench_driver_{kind}"

    # ---- Times

    def benchmark(self, name):
        report = self.output(self.programs / "rixbench", f"--benchmark_filter=^{name}/manual_time$",
                             f"--benchmark_min_time={self.seconds}", "--benchmark_format=json")
        return json.loads(report)["benchmarks"][0]

    def times(self):
        names = sorted({row[0] for row in TIMES})
        found = {name: [] for name in names}
        for _ in range(self.rounds):
            random.shuffle(names)
            for name in names:
                found[name].append(self.benchmark(name))
        for name, kind, text, goal in TIMES:
            yield time_row(name, kind, text, goal, found[name])

    # ---- Counts

    @contextlib.contextmanager
    def gateway(self, items):
        with subprocess.Popen([self.driver(), "gateway", str(items), "1"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True) as process:
            try:
                yield process.stdout.readline().strip()
            finally:
                process.stdin.close()
                process.wait(TIMEOUT)

    def system_calls(self, work, subject, count):
        log = self.work / "strace"
        self.output("strace", "-c", "-o", log, self.driver(), work, subject, count)
        return int(log.read_text().splitlines()[-1].split()[3])

    def instructions(self, work, subject, count, kind="traced"):
        log = self.work / "callgrind"
        self.output("valgrind", "--tool=callgrind", f"--callgrind-out-file={log}", self.driver(kind), work, subject,
                    count)
        return int(re.search(r"^(?:summary|totals): (\d+)", log.read_text(), re.M).group(1))

    @staticmethod
    def of_one(count, work, subject, **others):
        """What doing it once more costs."""
        few, more = 5, 25
        return (count(work, subject, more, **others) - count(work, subject, few, **others)) / (more - few)

    def counts(self):
        with self.gateway(100) as port:
            for work, text, goal in (("query", "a query", 8), ("walk", "a walk of 100", 0),
                                     ("open", "open and close", 38)):
                yield Row(f"system calls of {text}", value=self.of_one(self.system_calls, work, port), goal=goal)
            yield Row("instructions of a query, 100 statistics", value=self.of_one(self.instructions, "query", port))
            yield from self.traced_and_not("parse", 1000, 1000, "instructions of parse, each of 1,000 statistics")
            yield from self.traced_and_not("walk", port, 100, "instructions of walk, each of 100 steps")
            resident = int(self.output(self.driver(), "memory", port, 200))
            yield Row("resident memory of a connection, 100 statistics", value=resident / 1024, goal=48, unit="KiB")
        with self.gateway(10000) as port:
            faults = float(self.output(self.driver(), "faults", port, 50))
            yield Row("page faults of a settled query, 10,000 statistics", value=faults, goal=0)

    def traced_and_not(self, work, subject, items, text):
        traced, untraced = (self.of_one(self.instructions, work, subject, kind=kind) / items
                            for kind in ("traced", "untraced"))
        yield Row(text, value=traced)
        yield Row(f"tracing off: {text.removeprefix('instructions of ').partition(',')[0]} in instructions",
                  f"{traced:.2f}", f"{untraced:.2f}", 100 * (traced / untraced - 1), unit="%")

    # ---- The library as a file

    def file(self):
        stripped = self.work / "stripped"
        self.output("strip", "-o", stripped, self.library)
        yield Row("shared library, stripped", value=stripped.stat().st_size / 1024, goal=128, unit="KiB")
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", self.output("readelf", "-d", self.library))
        besides = set(needed) - {"libc.so.6"}
        yield Row("libraries needed besides libc", ", ".join(needed), "libc.so.6", len(besides), 0)

    def rows(self):
        """Where a tool does not work here, the rows that hang on it are missing, and the failure is kept."""
        for part in (self.times, self.counts, self.file):
            try:
                yield from part()
            except (OSError, RuntimeError, subprocess.TimeoutExpired) as failure:
                self.failures.append(str(failure))


def time_row(name, kind, text, goal, runs):
    def median(counter):
        return statistics.median(run[counter] for run in runs)

    suffix = "" if kind == LATENCY else "_cpu"
    ours, yardstick, ratio = (median(counter + suffix) for counter in ("ours", "yardstick", "ratio"))
    if kind == EACH:
        value, unit = ours / int(name.partition("/")[2]), "ns"
    elif kind == PERCENT:
        value, unit = 100 * (ratio - 1), "%"
    else:
        value, unit = ratio, ""
    if "bytes" in runs[0]:
        text += f", {median('bytes') / 1024:.0f} KiB"
    return Row(text, microseconds(ours), microseconds(yardstick), value, goal, unit)


def microseconds(nanoseconds):
    return f"{nanoseconds / 1000:,.{2 if nanoseconds < 10000 else 1}f} us"


def number(value):
    return f"{value:,.3f}".rstrip("0").rstrip(".") if abs(value) < 10 else f"{value:,.1f}".removesuffix(".0")


def cells(row):
    value, goal = (f"{number(n)} {row.unit}".strip() if n is not None else "" for n in (row.value, row.goal))
    verdict = "" if row.goal is None else "ok" if row.value <= row.goal else "over"
    return [row.text, row.ours, row.yardstick, value, goal, verdict]


def show(rows):
    table = [["Figure", "Measured", "Yardstick", "Result", "Goal", ""], *(cells(row) for row in rows)]
    widths = [max(len(line[i]) for line in table) for i in range(6)]
    table.insert(1, ["-" * widths[0], *("-" * (width - 1) + ":" for width in widths[1:5]), "-" * widths[5]])
    for line in table:
        padded = [line[0].ljust(widths[0]), *(line[i].rjust(widths[i]) for i in range(1, 5)), line[5].ljust(widths[5])]
        print("| " + " | ".join(padded) + " |")


def machine():
    model = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    return f"{model.group(1) if model else platform.machine()}, {os.cpu_count()} cores, Linux {platform.release()}"


def main():
    build, mode, seed = sys.argv[1:]
    core = max(os.sched_getaffinity(0))
    os.sched_setaffinity(0, {core})  # for clients, peers and all: waking another core costs more than an exchange
    os.environ["RIXBENCH_SEED"] = seed
    random.seed(seed)
    with tempfile.TemporaryDirectory() as work:
        bench = Bench(build, mode, work)
        rows = list(bench.rows())
    command = "script/bench" if mode == "full" else f"script/bench --{mode}"
    print(f"{datetime.date.today()}, {machine()}, all on one core; {command} --seed {seed}\n")
    show(rows)
    for failure in bench.failures:
        print(f"bench: figures are missing: {failure}", file=sys.stderr)
    return 1 if bench.failures else 0


if __name__ == "__main__":
    sys.exit(main())
