#!/usr/bin/env python3
"""The viewer in every output form, killed, cut off and kept waiting, on a pipe and on a terminal.

rixstat_test.py RIXSTAT RIXGWSIM SOURCE-DIRECTORY
"""
import fcntl
import json
import os
import pathlib
import pty
import re
import resource
import select
import shlex
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

sys.dont_write_bytecode = True # leaves nothing behind in the source directory
from rixstat_support import (LIMIT, RIXSTAT, Running, SilentAfter, Simulator, port_holder, prometheus_values,
                             read_prometheus, read_table, rixstat, samples_of, status_on, unescaped)

SOURCE = pathlib.Path(sys.argv[3])
RUNNING_FORMS = ("json", "ndjson", "csv", "tsv", "prom")
SILENCE = "2"  # more than a slow machine needs for an answer


class Files(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def file(self, name, content):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return str(path)


class Forms(Files):
    def test_tell_the_same_values(self):
        with Simulator("--clock-step", "0") as gateway:
            shown = {form: rixstat("--port", gateway.port, "-o", form, "get")
                     for form in ("table", "name", *RUNNING_FORMS)}
            wide = rixstat("--port", gateway.port, "-o", "wide", "get", "Requests").stdout
        self.assertEqual({(0, "")}, {(result.returncode, result.stderr) for result in shown.values()})
        samples = {form: samples_of(form, shown[form].stdout) for form in RUNNING_FORMS}
        values = samples["csv"][0]
        self.assertGreater(len(values), 100)
        self.assertEqual(list(values), shown["name"].stdout.splitlines())
        self.assertEqual(values, read_table(shown["table"].stdout))
        for form in RUNNING_FORMS:
            self.assertEqual(1, len(samples[form]), form)
            # JSON readers make numbers of numbers: 3.20 is 3.2 to them.
            def comparable(sample):
                decimal = re.compile(r"-?\d+\.\d+" if "json" in form else "no")
                return {i: float(v) if decimal.fullmatch(v) else v for i, v in sample.items()}
            self.assertEqual(comparable(values), comparable(samples[form][0]))
        self.assertRegex(shown["table"].stdout, r"Requests_Bytes_In +\d{1,3}(,\d{3})+\n")
        self.assertRegex(wide, r"Requests +Requests +Requests_Bytes_In +0 +\d+\n")

    def test_keep_every_byte_and_digit(self):
        odd = b'a,"b"\t\\c \xc3\xa9 \xff\xc3\x01 e'
        texts = {"Odd": odd, "Padded": b"007", "Long": b"12345678901234567890123", "Small": b"-0.50", "Not": b"1.7.0",
                 "Quoted": b'"a" b', "Reversed": "\u202etxt".encode(), "Nanos": b"1234567890123456789"[:17],
                 "Tiny": b"-1e-400"}
        lines = b"".join(b"text %s %s\n" % (k.encode(), v) for k, v in texts.items())
        path = self.file("odd.catalogue", b"group G\n" + lines)
        with Simulator("--catalogue", path) as gateway:
            for form in RUNNING_FORMS:
                text = rixstat("--port", gateway.port, "-o", form, "get").stdout
                read = {i: unescaped(v) for i, v in samples_of(form, text)[0].items()}
                expected = {"G_" + k: v for k, v in texts.items()}
                if "json" in form:
                    expected["G_Small"] = b"-0.5"
                self.assertEqual(expected, read, form)
            groups = read_prometheus(rixstat("--port", gateway.port, "-o", "prom", "get").stdout)
            items = json.loads(rixstat("--port", gateway.port, "-o", "json", "get").stdout)["items"]
        self.assertEqual({(("group", "G"), ("id", "G_Small")): "-0.50"}, groups["rixstats_G_Small"])
        self.assertEqual(["G_Small"], [item["id"] for item in items if not isinstance(item["value"], str)])

    def test_failed_elements_stand_beside_the_others(self):
        with Simulator() as gateway:
            def get(form):
                return rixstat("--port", gateway.port, "-o", form, "get", "Queue_Length", "Nobody", "Z*")
            shown = {form: get(form) for form in ("name", *RUNNING_FORMS)}
            nothing = rixstat("--port", gateway.port, "-o", "csv", "watch", "Z*")
        for form, result in shown.items():
            self.assertEqual((1, 2), (result.returncode, result.stderr.count("\n")), form)
            self.assertRegex(result.stderr, r"Nobody.*-1(.|\n)*matches Z\*")
        self.assertEqual((1, 1, 1), (nothing.returncode, nothing.stdout.count("\n"), nothing.stderr.count("\n")))
        self.assertEqual("Queue_Length\n", shown["name"].stdout)
        self.assertIn(",Nobody,,,-1\n", shown["csv"].stdout)
        self.assertEqual({"element": "Nobody", "id": None, "value": None, "code": -1},
                         json.loads(shown["json"].stdout)["items"][1])
        self.assertEqual({(("element", "Nobody"),): "-1"}, read_prometheus(shown["prom"].stdout)["rixstat_element_code"])

    def test_prometheus_text_tells_by_itself_that_nothing_is_there(self):
        path = self.file("empty.catalogue", "group Only\ngroup Other\ntext T 1\n")
        with Simulator("--catalogue", path) as gateway:
            metrics = read_prometheus(rixstat("--port", gateway.port, "-o", "prom", "ids").stdout)
        self.assertEqual([(("group", "Other"), ("id", "Other_T"))], list(metrics["rixstat_ids_info"]))
        for command in ("groups", "get", "watch"):
            with port_holder() as nobody:
                result = rixstat("--port", str(nobody.getsockname()[1]), "-o", "prom", command)
            self.assertEqual((3, {"rixstat_up": {(): "0"}}), (result.returncode, read_prometheus(result.stdout)))

    def test_columns_order_and_patterns(self):
        with Simulator() as gateway:
            def get(*arguments):
                return rixstat("--port", gateway.port, "-o", "csv", "get", *arguments).stdout.splitlines()
            falling = get("Workers", "--columns", "value,id", "--sort=-value", "--no-headers")
            matched = get("Workers_?asks_*", "Queue", "--columns", "id,group")
            groups = rixstat("--port", gateway.port, "-o", "name", "ids", "St?r*").stdout
        values = [float(line.split(",")[0]) for line in falling]
        self.assertEqual((sorted(values, reverse=True), 10), (values, len(values)))
        self.assertEqual(["id,group", "Workers_Tasks_Completed,Workers", "Workers_Tasks_Failed,Workers", "Queue_Length,Queue"],
                         matched[:4])
        self.assertRegex(groups, r"^(Storage_\w+\n)+(Statistics_\w+\n)*$")

    def test_ping_doctor_and_version_have_forms_too(self):
        with Simulator() as gateway:
            ping = rixstat("--port", gateway.port, "-o", "json", "ping", "-n", "5", "-i", "0.01")
            doctor = rixstat("--port", gateway.port, "-o", "prom", "doctor")
        for row in json.loads(ping.stdout)["items"]:
            self.assertEqual(5, row["count"])
            self.assertTrue(0 < row["min_ms"] <= row["mean_ms"] <= row["max_ms"] and row["p99_ms"] == row["max_ms"], row)
        doctor_metrics = read_prometheus(doctor.stdout)
        self.assertEqual((0, 6), (doctor.returncode, len(doctor_metrics["rixstat_doctor_ms"])))
        self.assertNotIn("rixstat_up", doctor_metrics, "the same if nothing had answered")
        self.assertRegex(rixstat("version").stdout, r"rixstat +\d+\.\d+\.\d+\nlibrary +1_1_0_1\n")


class Watch(Files):
    def watch(self, gateway, *arguments):
        viewer = Running("--port", gateway.port, "watch", *arguments)
        self.addCleanup(viewer.process.kill)
        return viewer

    def rows(self, text):
        return [json.loads(line) for line in text.splitlines()]

    def test_keeps_its_schedule(self):
        with Simulator("--delay", "60") as gateway:  # an answer takes 0.12 s
            result = rixstat("--port", gateway.port, "watch", "-i", "0.3", "-n", "8", "-o", "csv", "Queue_Length")
        seconds = [float(line.split(",")[0][17:23]) for line in result.stdout.splitlines()[1:]]
        self.assertEqual((0, 8), (result.returncode, len(seconds)))
        # Had the interval begun behind the answer, no two samples could be nearer than both together, however slow the
        # machine. The first sample asks for more than the others.
        steps = [(later - earlier) % 60 for earlier, later in zip(seconds[1:], seconds[2:])]
        self.assertLess(min(steps), 0.4)

    def test_change_rate_and_restarts(self):
        path = self.file("c", "group G\ninterval Counter 10 5\ngauge Gauge 100 120 5\ngauge Cold -120 -100 5\ncounter Fast 1000\ntext Word x\n")
        with Simulator("--catalogue", path, "--clock-step", "1000") as gateway:
            result = rixstat("--port", gateway.port, "watch", "-i", "0.02", "-n", "24", "-o", "ndjson")
            top = rixstat("--port", gateway.port, "watch", "-i", "0.02", "-n", "2", "-o", "name", "--top", "1", "--by",
                          "delta")
        series = {name: [row for row in self.rows(result.stdout) if row["id"] == f"G_{name}"]
                  for name in ("Counter", "Gauge", "Cold", "Word")}
        restarts = 0
        for before, after in zip(series["Counter"], series["Counter"][1:]):
            fell = after["value"] < before["value"]
            restarts += fell
            self.assertEqual("restarted" if fell else None, after["note"])
            self.assertEqual(None if fell else after["value"] - before["value"], after["change"])
        self.assertGreaterEqual(restarts, 3)
        self.assertTrue(any(row["change"] and row["change"] < 0 and row["rate"] is None for row in series["Gauge"]))
        self.assertTrue(all(row["rate"] is None or row["rate"] >= 0 for row in self.rows(result.stdout)))
        self.assertEqual({None}, {row["note"] for row in series["Gauge"] + series["Cold"]})
        self.assertEqual({None}, {row[key] for row in series["Word"] for key in ("change", "rate", "note")})
        self.assertEqual("G_Fast", top.stdout.splitlines()[1])

    def test_output_is_whole_whenever_it_is_killed(self):
        with Simulator() as gateway:
            for form in RUNNING_FORMS:
                for count, how in ((1, signal.SIGINT), (2, signal.SIGTERM), (3, signal.SIGINT)):
                    viewer = self.watch(gateway, "-i", "0.03", "-o", form)
                    end = b"# EOF\n" if form == "prom" else b"Statistics_Collection_Time.*\n"
                    viewer.read_until(end + b"(?s:.)", count)  # and the next one has begun
                    text, complaints, status = viewer.end(how)
                    samples = samples_of(form, text)
                    self.assertEqual((status_on(how), ""), (status, complaints), form)
                    self.assertGreater(len(samples), count)
                    self.assertEqual(1, len({len(sample) for sample in samples}), (form, "every sample has every statistic"))

    def test_a_reader_that_goes_ends_it_quietly(self):
        with Simulator() as gateway:
            for form in ("table", "json", "csv"):
                viewer = self.watch(gateway, "-i", "3600", "-o", form)
                viewer.read_until(b"\n")
                self.assertEqual(("", 0), viewer.close(), "well before the next sample")
            reading, writing = os.pipe()
            os.close(reading)
            once = subprocess.run([RIXSTAT, "--port", gateway.port, "get"], stdout=writing, stderr=subprocess.PIPE, timeout=LIMIT)
            os.close(writing)
            self.assertEqual((0, b""), (once.returncode, once.stderr))

    def test_survives_a_lost_gateway_and_marks_the_gap(self):
        gap, sample = rb'("gap":"|"note":"gap"|,gap,|rixstat_up 0)', rb"Queue_Added.*\n"
        with port_holder() as holder:
            port = str(holder.getsockname()[1])
            with Simulator(port=port) as gateway:
                viewers = {form: self.watch(gateway, "-i", "0.1", "-o", form, "Queue_Added")
                           for form in ("ndjson", "json", "prom", "csv")}
                for viewer in viewers.values():
                    viewer.read_until(sample)
            for viewer in viewers.values():
                viewer.read_until(gap)
            with Simulator(port=port):
                for viewer in viewers.values():
                    viewer.read_until(gap + rb"[^\0]*" + sample)
                ends = {form: viewer.close() for form, viewer in viewers.items()}
        texts = {form: viewer.output.decode() for form, viewer in viewers.items()}
        for form, (complaints, status) in ends.items():
            self.assertTrue(samples_of(form, texts[form]))
            self.assertEqual((1, 2), (status, complaints.count("\n")), complaints)
            self.assertRegex(complaints, r"-1\d\d\).*connecting again\n.*connected again after \d+ s\n")
        rows = self.rows(texts["ndjson"])
        notes = [row["note"] for row in rows]
        self.assertEqual(1, notes.count("after gap"))
        first, after = notes.index("gap"), notes.index("after gap")
        self.assertEqual({"gap"}, set(notes[first:after]))
        self.assertTrue(all(row["rate"] is None for row in rows[first:after + 1]))
        self.assertEqual({"0", "1"}, set(re.findall(r"^rixstat_up (\d)", texts["prom"], re.M)))
        self.assertTrue(any(json.loads(line).get("gap") for line in texts["json"].splitlines()))

    def test_gaps_count_as_samples(self):
        with Simulator("--scenario", self.file("s", "connection 1 query 3 drop\nconnection 2 drop\n")) as gateway:
            result = rixstat("--port", gateway.port, "watch", "-i", "0.3", "-n", "8", "-o", "csv", "Queue_Added")
        samples = result.stdout.splitlines()[1:]
        self.assertEqual((1, 8), (result.returncode, len(samples)))
        self.assertIn(",gap,", samples[2])
        self.assertIn(",after gap,", result.stdout)

    def test_a_gateway_that_dies_in_any_flow_leaves_whole_output(self):
        for flow in range(1, 12):
            for byte in ("0", "20", "45"):
                with Simulator("--drop-inside-flow", str(flow), "--drop-at-byte", byte) as gateway:
                    once = rixstat("--port", gateway.port, "-o", "json", "get", "Queue")
                    many = rixstat("--port", gateway.port, "-o", "csv", "watch", "-i", "0.02", "-n", "3", "Queue")
                self.assertEqual(6 if flow < 8 else 0, once.returncode, (flow, byte, once)) # a close needs no answer
                self.assertEqual(once.returncode == 0, once.stdout != "" and len(json.loads(once.stdout)["items"]) == 9)
                self.assertIn(many.returncode, (6,) if flow < 8 else (1, 6), many)
                sizes = {len(sample) for sample in samples_of("csv", many.stdout) if "" not in sample}
                self.assertEqual({9} if flow > 7 else set(), sizes)


class Terminal(unittest.TestCase):
    def session(self, gateway, width=80, arguments=(), shown=rb"\x1b\[H", **environment):
        """What watch sends to a terminal of 24 lines, until it has shown this six times, and its status on ^C."""
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, width, 0, 0))
        environment = {"PATH": os.environ["PATH"], "TERM": "xterm", "LC_ALL": "C.UTF-8", **environment}
        viewer = Running("--port", gateway.port, "watch", "-i", "0.1", *arguments, terminal=master, stdin=slave,
                         stdout=slave, stderr=slave, env=environment)
        self.addCleanup(viewer.process.kill)
        os.close(slave)
        viewer.read_until(shown, 6)
        sent, _, status = viewer.end(signal.SIGINT)
        os.close(master)
        return sent, status

    def check_frames(self, text, width):
        frames = text.split("\x1b[H")[1:-1]
        self.assertGreater(len(frames), 3)
        for frame in frames:
            self.assertTrue(frame.endswith("\x1b[J"))
            lines = frame[:-len("\x1b[J")].split("\r\n")
            self.assertEqual("", lines.pop())
            self.assertLess(len(lines), 24)
            self.assertTrue(all(line.endswith("\x1b[K") for line in lines))
            plain = [re.sub(r"\x1b\[\d*[Km]", "", line) for line in lines]
            self.assertLess(max(map(len, plain)), width)
            self.assertNotIn("\x1b", "".join(plain))
        return frames

    def test_is_redrawn_in_place_without_wrapping(self):
        # The rates have to fit their column also where a late sample leaves little time to the next.
        with Simulator("--clock-step", "50") as gateway:
            text, status = self.session(gateway)
        frames = self.check_frames(text, 80)
        self.assertEqual(status_on(signal.SIGINT), status)
        self.assertIn("\x1b[1m", frames[-1])
        self.assertIn("▇" if "▇" in text else "█", text)
        headers = {frame.split("\r\n")[1] for frame in frames}
        self.assertEqual(1, len(headers), "nothing shifts")

    def test_narrow_screens_keep_what_they_can(self):
        with Simulator() as gateway:
            shown = {width: self.session(gateway, width)[0] for width in (20, 30)}
            numbers, _ = self.session(gateway, 24, ("--columns", "value,change,rate", "Requests"))
        for width, text in shown.items():
            self.assertEqual(width == 30, "VALUE" in self.check_frames(text, width)[-1])
        self.assertRegex(self.check_frames(numbers, 24)[-1], r"VALUE +CHANGE\x1b")

    def test_honours_no_color_and_terminals_that_cannot(self):
        with Simulator() as gateway:
            plain, _ = self.session(gateway, 60, NO_COLOR="1", LC_ALL="C")
            dumb, _ = self.session(gateway, shown=b"Requests_Bytes_In", TERM="dumb")
        self.check_frames(plain, 60)
        self.assertNotRegex(plain, r"\x1b\[\d*m")
        self.assertTrue(plain.isascii())
        self.assertNotIn("\x1b", dumb)


class Failures(Files):
    def check(self, result, status, *patterns):
        self.assertEqual((status, 1), (result.returncode, result.stderr.count("\n")), result)
        for pattern in (r"^rixstat: host \S+, port \d+: ", *patterns):
            self.assertRegex(result.stderr, pattern)

    def test_a_gateway_silent_at_any_flow_ends_every_command(self):
        def ask(replies, *command):
            with SilentAfter(gateway.port, replies) as silent:
                begin = time.monotonic()
                result = rixstat("--port", silent.port, "--timeout", SILENCE, *command)
                self.assertGreaterEqual(time.monotonic() - begin, float(SILENCE))
            return result
        commands = ("groups", "ids", "watch", "ping", "doctor", "dump")
        with Simulator() as gateway, ThreadPoolExecutor(5) as several, SilentAfter(gateway.port, 0) as silent:
            patient = Running("--port", silent.port, "--timeout", "10", "get")
            self.addCleanup(patient.process.kill)
            gets = [several.submit(ask, replies, "-o", "json", "get", "Queue_Length") for replies in range(8)]
            late_doctor = several.submit(ask, 7, "doctor")
            others = [several.submit(ask, 5 if command == "dump" else 1, command) for command in commands]
            gets[0].result()
            self.assertIsNone(patient.process.poll(), "the longer limit ends later")
            self.assertEqual(4, patient.close()[1])
            for replies, result in enumerate(get.result() for get in gets):
                step = "opening" if replies < 5 else "asking for statistics" if replies < 7 else "closing"
                self.check(result, 4, f"{step}.* STAPI_.*no answer within {SILENCE} seconds.*--timeout")
                self.assertEqual(step == "closing", result.stdout != "" and len(json.loads(result.stdout)["items"]) == 1)
            self.check(late_doctor.result(), 4, "closing")
            self.assertEqual(6, late_doctor.result().stdout.count("  ok  "))
            for command, result in zip(commands, (other.result() for other in others)):
                self.assertEqual(4, result.returncode, command)
                self.assertRegex(result.stderr, f"no answer within {SILENCE} seconds")

    def test_signals_end_the_wait_for_a_silent_gateway(self):
        with Simulator() as gateway:
            trace = self.directory / "trace"
            doctor = ("--trace", "4", "--trace-file", str(trace), "doctor")
            for how, replies, arguments, shown in ((signal.SIGINT, 3, ("get",), 0), (signal.SIGTERM, 6, ("get", "Queue"), 0),
                                                   (signal.SIGINT, 15, ("ping", "-i", "0.01"), 3), (signal.SIGINT, 3, doctor, 0)):
                with SilentAfter(gateway.port, replies) as silent:
                    viewer = Running("--port", silent.port, *arguments)
                    self.assertTrue(silent.swallowed.wait(LIMIT))
                    text, complaints, status = viewer.end(how)
                self.assertEqual((status_on(how), "", shown), (status, complaints, text.count("\n")), arguments)
            self.assertIn("[3003] ", trace.read_text(), "the trace tells how far the opening came")

    def test_a_host_that_does_not_take_the_connection(self):
        with socket.socket() as full:
            full.bind(("127.0.0.1", 0))
            full.listen(0)
            waiting = [socket.socket() for _ in range(3)]
            for client in waiting:
                client.setblocking(False)
                client.connect_ex(full.getsockname())
            result = rixstat("--port", str(full.getsockname()[1]), "--timeout", SILENCE, "-o", "json", "doctor")
            for client in waiting:
                client.close()
        self.check(result, 4, r"no answer within \S+ seconds to the connect; is the host up, .* firewall")
        self.assertEqual(["ok", "failed", "not tried"], [row["result"] for row in json.loads(result.stdout)["items"]][:3])

    def test_refusals(self):
        for options, step, word in ((("--gateway-rc", "5"), 2, "code 5"),
                                    (("--auth-rc", "8"), 3, "authorisation with its code 8"),
                                    (("--gateway-rc", "5", "--faults-from-flow", "3"), 3, "code 5"),
                                    (("--admin-rc", "6", "--faults-from-flow", "5"), 4, "code 6"),
                                    (("--gateway-rc", "5", "--faults-from-flow", "7"), 5, "code 5"),
                                    (("--exception", "--faults-from-flow", "7"), 5, "execute")):
            with Simulator(*options) as gateway:
                get = rixstat("--port", gateway.port, "get")
                watch, ping, dump = [rixstat("--port", gateway.port, name) for name in ("watch", "ping", "dump")]
                steps = ("--port", gateway.port, "-o", "csv", "--columns", "result", "--no-headers", "doctor")
                doctor = rixstat(*steps)
                traced = rixstat("--trace", "1", "--trace-file", os.devnull, *steps)
            for result in (get, watch, ping, doctor, traced):
                self.check(result, 5, f"refused.*{word}")
            self.assertEqual((5, doctor.stdout), (dump.returncode, traced.stdout))
            expected = ["ok"] * step + ["failed"] + ["not tried"] * (5 - step)
            self.assertEqual(expected, doctor.stdout.splitlines(), options)

    def test_the_trace_goes_where_it_is_wanted(self):
        path = self.directory / "t.log"
        with Simulator("--auth-rc", "8") as gateway:
            shown = rixstat("--port", gateway.port, "--trace", "1", "get")
            kept = rixstat("--port", gateway.port, "--trace", "1", "--trace-file", str(path), "get")
            silent = rixstat("--port", gateway.port, "--trace-file", str(path) + "2", "get")
        self.assertEqual([5, 5, 5], [result.returncode for result in (shown, kept, silent)])
        for trace in (shown.stderr, path.read_text()):
            self.assertRegex(trace, r"^\*\*\* .*\n.*\[3212\] \*EXC\* ")
        self.assertEqual(1, kept.stderr.count("\n"))
        self.check(rixstat("--trace-file", str(self.directory / "no" / "t"), "groups"), 1, "-130")
        pipe = self.directory / "pipe"
        os.mkfifo(pipe)
        self.check(rixstat("--trace-file", str(pipe), "groups"), 1, "-130.*start the program that reads it")
        with Simulator() as gateway, open(self.directory / "piped", "w+") as piped:
            reader = subprocess.Popen(["cat", pipe], stdout=piped)
            result = rixstat("--port", gateway.port, "--trace", "4", "--trace-file", str(pipe), "get")
            self.assertEqual((0, 0), (result.returncode, reader.wait(timeout=LIMIT)))
            self.assertIn("[1006] EXIT", piped.seek(0) or piped.read())
            rixstat("--port", gateway.port, "--trace-file", str(path) + "3", "dump", "Queue_Length")
            untraced = rixstat("--port", gateway.port, "get", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0)))
            self.assertEqual((0, ""), (untraced.returncode, untraced.stderr), "it writes no trace of its own")
            for options in (("dump",), ("--trace", "1", "dump"), ("--trace", "4", "get")):
                full = rixstat("--port", gateway.port, "--trace-file", "/dev/full", *options)
                self.assertEqual((1, "rixstat: cannot write the trace to /dev/full: No space left on device\n"),
                                 (full.returncode, full.stderr))
        dump = pathlib.Path(str(path) + "3").read_text()
        self.assertRegex(dump, rf"^rixstats state dump: .* statAPITraceFile={path}3\n(.*\n)*Gateway Token List entry -0001-(.*\n)+.*RIXSTSET")
        self.assertNotIn("***", dump)

    def test_configuration(self):
        def run(text, *arguments):
            self.file("rixstat/config.toml", text)
            return rixstat(*arguments, env={**os.environ, "XDG_CONFIG_HOME": str(self.directory)})
        with Simulator() as gateway:
            named = f"# mine\r\nport = 1\n\n[gateways.prod] # live\nhost = '127.0.0.1'\nport = {gateway.port}\n"
            self.assertEqual(0, run(named, "@prod", "-o", "name", "groups").returncode)
            self.assertEqual("Queue_Length\n", run(named, "-o", "name", "get", "@prod", "Queue_Length").stdout)
            for refused in (("@prod", "get", "@prod"), ("version", "prod")):
                self.assertEqual(2, run(named, *refused).returncode)
            self.assertEqual(0, run(f"port = {gateway.port}\n", "groups").returncode)
            self.check(run(named, "groups"), 3, "port 1:")
            self.check(run(named, "@prod", "--port", "2", "groups"), 3, "port 2:")
        for text, problem in ((named, r"no gateway @test .*\(there are: @prod\)"),
                              ("port = 1\nhots = 'x'\n", "line 2: no setting hots"),
                              ("port = 'x'\n", "line 1: port must"), ("[other]\n", "line 1: expected"),
                              ("host = \"a\n", "line 1: expected"), ("port = 1\nport = 2\n", "line 2: port is set twice"),
                              ("[gateways.a]\n[gateways.a]\n", "line 2: there is"), ("#" * 300000, "line 1: is longer")):
            result = run(text, "@test", "groups")
            self.assertEqual(2, result.returncode)
            self.assertRegex(result.stderr, problem)
        (self.directory / "rixstat/config.toml").unlink()
        (self.directory / "rixstat/config.toml").mkdir()
        unreadable, unread = (rixstat(command, env={**os.environ, "XDG_CONFIG_HOME": str(self.directory)})
                              for command in ("groups", "version"))
        self.assertEqual((2, True, 0), (unreadable.returncode, "cannot be read" in unreadable.stderr, unread.returncode))


class Completion(Files):
    def complete(self, gateway, *words):
        line = " ".join((RIXSTAT, "--port", gateway.port, *words))
        script = (f'source "{SOURCE}/tools/rixstat/completions/rixstat.bash"; COMP_LINE=$1 COMP_POINT=${{#1}}; '
                  '_rixstat rixstat "${1##*[ @=]}"; printf "%s\\n" "${COMPREPLY[@]}"')
        return subprocess.run(["bash", "-c", script, "bash", line], capture_output=True, text=True, timeout=LIMIT,
                              cwd=self.directory).stdout.split()

    def test_offers_commands_forms_and_the_gateways_ids(self):
        with Simulator() as gateway:
            self.assertEqual(["get", "groups"], sorted(self.complete(gateway, "g")))
            self.assertEqual(["json"], self.complete(gateway, "-o", "j"))
            self.assertEqual(["json"], self.complete(gateway, "--output=j"))
            self.assertEqual(["Workers"], self.complete(gateway, "ids", "Wo"))
            self.assertIn("Workers", self.complete(gateway, "get", "Wo"))
            self.assertEqual(["Queue_Length", "Queue_Length_Limit"], self.complete(gateway, "-o", "csv", "watch", "Queue_L"))

    def typed(self, gateway, line):
        """The words that an interactive bash passes on for this line, after a tabulator at its end."""
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.directory)
            os.execve("/bin/bash", ["bash", "--norc", "--noprofile", "-i"], {
                "PATH": f"{pathlib.Path(RIXSTAT).resolve().parent}:{os.environ['PATH']}", "TERM": "dumb", "PS1": "ready$ ",
                "HOME": str(self.directory), "HISTFILE": "", "LC_ALL": "C.UTF-8"})
        sent = b""
        for text, answer in (("", rb"ready\$ $"),
                             (f"source {shlex.quote(str(SOURCE))}/tools/rixstat/completions/rixstat.bash\n", rb"\nready\$ $"),
                             (f"rixstat --port {gateway.port} {line}\t\x01printf '%s|' 'en''d' \n", rb"end\|.*ready\$ $")):
            os.write(terminal, text.encode())
            sent = b""
            while not re.search(answer, sent) and select.select([terminal], [], [], LIMIT)[0]:
                sent += os.read(terminal, 65536)
        os.close(terminal)
        os.waitpid(child, 0)
        return re.search(r"end\|(.*)\|", sent.decode())[1].split("|")

    def test_reads_the_line_as_the_shell_does(self):
        path = self.file("odd.catalogue", "group G\ntext $(>first) 1\ntext it's 1\ntext über 1\n")
        self.file("a dir/it's $x", "")
        self.file("ä ö/t", "")
        with Simulator("--catalogue", path) as gateway:
            for line, completed in ((r"""--columns 'a b' get --sort "x \" y" --trace-file get\ 't' -o c""", "csv"),
                                    ("--output='j", "--output=json"), (r"get G_\$", "G_$(>first)"),
                                    ("get 'G_$", "G_$(>first)"), (r'get "G_\$', "G_$(>first)"), ("get G_i", "G_it's"),
                                    ("get 'G_i", "G_it's"), ("'get' 'G'_ü", "G_über"), ("--trace-file a", "a dir/"),
                                    ('--trace-file "a dir/i', "a dir/it's $x"), ("--trace-file=ä", "--trace-file=ä ö/"),
                                    (r"--trace-file ~/ä\ ö/", f"{self.directory}/ä ö/t")):
                self.assertEqual(completed, self.typed(gateway, line)[-1], line)

    def test_never_runs_what_a_gateway_sends(self):
        path = self.file("evil.catalogue", "group G\ntext $(>first) 1\ntext `>second` 1\n")
        with Simulator("--catalogue", path) as gateway:
            self.assertEqual([r"G_\$\(\>first\)", r"G_\`\>second\`"], self.complete(gateway, "get", "G_"))
        self.assertEqual(["evil.catalogue"], os.listdir(self.directory))

    def test_knows_all_that_help_lists(self):
        helps = [rixstat(*arguments, "--help").stdout for arguments in ((), ("watch",), ("ping",))]
        words = set(re.findall(r"^  (?:-\w,)?--([\w-]+)", "".join(helps), re.M))
        for section in ("Commands", "Output forms"):
            words |= set(re.findall(r"^  (\w+) ", re.search(rf"{section}:\n((?:  .*\n)+)", helps[0])[1], re.M))
        self.assertGreaterEqual(len(words), 29)
        for name in ("rixstat.bash", "_rixstat", "rixstat.fish"):
            text = (SOURCE / "tools/rixstat/completions" / name).read_text()
            missing = {word for word in words if not re.search(rf"(?<![\w-])(--)?{word}(?![\w-])", text)}
            self.assertEqual(set(), missing, name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
