"""What the tests of the viewer share: a simulator to talk to, a gateway that falls silent, independent readers of the
output forms."""
import csv
import io
import json
import os
import re
import select
import signal
import socket
import subprocess
import sys
import threading
import time

RIXSTAT, RIXGWSIM = sys.argv[1:3]
LIMIT = 300  # seconds, after which something hangs: a slow machine must not come near them


class Simulator:
    def __init__(self, *options, port="0"):
        self.process = subprocess.Popen([RIXGWSIM, "--port", port, "--seed", "7", "--clock", "fixed", *options],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.line = self.process.stdout.readline()
        self.port = self.line.rsplit(":", 1)[-1].strip()

    def __enter__(self):
        return self

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        _, self.complaints = self.process.communicate(timeout=LIMIT)
        return self.process.returncode

    def __exit__(self, *_):
        if self.process.returncode is None:
            self.stop()


def port_holder():
    """A socket that keeps a free port from others: nothing listens there, but a simulator can."""
    holder = socket.socket()
    holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    holder.bind(("127.0.0.1", 0))
    return holder


class SilentAfter:
    """Passes on to a gateway, but for its replies from one on: those are swallowed."""

    def __init__(self, port, replies):
        self.target, self.replies, self.requests = int(port), replies, 0
        self.swallowed = threading.Event()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = str(self.listener.getsockname()[1])
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:  # the test is over
                return
            with client, socket.create_connection(("127.0.0.1", self.target)) as gateway:
                self.pass_on(client, gateway)

    def pass_on(self, client, gateway):
        watched, latest = [client, gateway], gateway
        while ready := select.select(watched, [], [], LIMIT)[0]:
            data = ready[0].recv(65536)
            self.requests += ready[0] is client and latest is gateway  # either may come in several pieces
            latest = ready[0]
            if latest is client and data:
                gateway.sendall(data)
            elif latest is client:
                return
            elif not data:
                watched.remove(gateway)  # which has said good-bye
            elif self.requests <= self.replies:
                client.sendall(data)
            else:
                self.swallowed.set()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.close()


class Running:
    """A viewer that runs on, and all that it has written to its standard output so far, a pipe or the terminal given.

    It is read past the buffers of Popen, which would keep what they hold from a later communicate()."""

    def __init__(self, *arguments, terminal=None, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options):
        self.process = subprocess.Popen([RIXSTAT, *arguments], stdout=stdout, stderr=stderr, **options)
        self.source = self.process.stdout.fileno() if terminal is None else terminal
        self.output = b""

    def read(self, enough):
        """Reads on until there is enough, or to the end; whether there is enough."""
        end = time.monotonic() + LIMIT
        while not enough():
            left = max(end - time.monotonic(), 0)
            assert select.select([self.source], [], [], left)[0], f"nothing more, or no end: {self.output[-500:]}"
            try:
                data = os.read(self.source, 65536)
            except OSError:  # the end of a terminal
                data = b""
            if not data:
                return False
            self.output += data
        return True

    def read_until(self, pattern, count=1):
        """Reads on until there are so many matches of the pattern."""
        enough = self.read(lambda: len(re.findall(pattern, self.output)) >= count)
        assert enough, f"not {count} of {pattern}: {self.output[-500:]}"

    def end(self, how):
        """What it has written, what it complained of, and its status on this signal."""
        self.process.send_signal(how)
        self.read(lambda: False)
        return self.output.decode(), *self.close()

    def close(self):
        """Reads no more; what it complained of, and its status."""
        if self.process.stdout:
            self.process.stdout.close()
        status = self.process.wait(timeout=LIMIT)
        if self.process.stderr is None:
            return "", status
        with self.process.stderr as complaints:
            return complaints.read().decode(), status


def status_on(how):
    """With which status a signal ends the viewer: of SIGINT it dies, as a shell's loop wants it."""
    return -how if how == signal.SIGINT else 130


def rixstat(*arguments, **options):
    return subprocess.run([RIXSTAT, *arguments], capture_output=True, text=True, timeout=LIMIT, **options)


def unescaped(text):
    """The bytes behind the viewer's escapes."""
    letters = {"n": b"\n", "r": b"\r", "t": b"\t", "\\": b"\\"}
    return re.sub(rb"\\(x[0-9A-F]{2}|.)", lambda m: letters.get(m[1].decode()) or bytes([int(m[1][1:], 16)]), text.encode())


def read_table(text):
    rows = [re.split(r" {2,}", line.strip()) for line in text.splitlines()[1:]]
    return {row[-2]: row[-1].replace(",", "") for row in rows}


def read_prometheus(text):
    """One exposition: {metric: {labels: value}}; a strict reader of the text format's grammar."""
    lines = text.split("\n")
    assert lines.pop() == "" and lines.pop() == "# EOF", "cut short"
    metrics, family = {}, None
    for line in lines:
        comment = re.fullmatch(r"# (HELP|TYPE) ([a-zA-Z_:][a-zA-Z0-9_:]*) (.+)", line)
        if comment and comment[1] == "TYPE":
            assert comment[2] == family and comment[3] == "untyped", line
        elif comment:
            family = comment[2]
            assert family not in metrics, f"{family} comes twice"
            metrics[family] = {}
        else:
            label = r'\w+="(?:[^"\\]|\\[\\"n])*"'
            name, labels, value = re.fullmatch(rf"(\w+)((?:\{{{label}(?:,{label})*\}})?) (\S+)", line).groups()
            pairs = {k: re.sub(r"\\(.)", lambda m: "\n" if m[1] == "n" else m[1], v)
                     for k, v in re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', labels)}
            key = tuple(sorted(pairs.items()))
            assert name == family and key not in metrics[name], line
            float(value)
            metrics[name][key] = value
    return metrics


def prometheus_values(text):
    values = {}
    for name, series in read_prometheus(text).items():
        for labels, value in series.items():
            labels = dict(labels)
            if "id" in labels:
                values[labels["id"]] = labels.get("value", value)
    return values


def samples_of(form, text):
    """The samples in the output of a run, each {id: value as text}; fails if any is not whole."""
    if form == "json":
        documents = [json.loads(line) for line in text.splitlines()]
        return [{item["id"]: str(item["value"]) for item in document["items"]} for document in documents]
    if form == "prom":
        return [prometheus_values(part + "# EOF\n") for part in text.split("# EOF\n")[:-1]] if text else []
    assert text == "" or text.endswith("\n"), "cut short"
    if form == "ndjson":
        rows = [json.loads(line) for line in text.splitlines()]
    else:
        rows = list(csv.DictReader(io.StringIO(text, newline=""), dialect="excel" if form == "csv" else "excel-tab",
                                   strict=True))
        assert all(None not in row and None not in row.values() for row in rows), "not the header's columns"
    times = sorted({row["time"] for row in rows})
    return [{row["id"]: str(row["value"]) for row in rows if row["time"] == time} for time in times]
