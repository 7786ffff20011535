#!/usr/bin/env python3
"""The viewer and the simulator as a user runs them.

tools_test.py RIXSTAT RIXGWSIM
"""
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True # leaves nothing behind in the source directory
from rixstat_support import LIMIT, RIXGWSIM, RIXSTAT, Simulator, port_holder, rixstat


class Viewer(unittest.TestCase):
    def test_shows_groups_ids_and_values(self):
        with Simulator() as gateway:
            groups = rixstat("--port", gateway.port, "groups")
            ids = rixstat("--port", gateway.port, "ids", "Workers", "Storage")
            values = rixstat("--port", gateway.port, "get", "Workers")
            everything = rixstat("--port", gateway.port, "get")
            self.assertEqual(0, gateway.stop())
        self.assertEqual("", gateway.complaints)
        self.assertEqual([0, 0, 0, 0], [r.returncode for r in (groups, ids, values, everything)])
        self.assertEqual("", groups.stderr + ids.stderr + values.stderr + everything.stderr)
        self.assertIn("Workers\n", groups.stdout)
        self.assertRegex(ids.stdout, r"Storage +Storage_\w+\n$")
        rows = [re.match(r"Workers +(Workers_\w+) +(\S+)$", row).groups() for row in values.stdout.splitlines()[1:]]
        self.assertEqual([row[0] for row in rows], re.findall(r"^Workers +(\S+)", ids.stdout, re.M))
        self.assertEqual(1, len({len(row) for row in values.stdout.splitlines()[1:]}), "numbers are aligned")
        self.assertGreaterEqual(len(everything.stdout.splitlines()), 100)

    def test_asks_for_thousands_of_statistics_in_blocks_of_any_length(self):
        names = [f"N{i:04}" for i in range(2000)]
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "large.catalogue")
            many = "".join(f"text M{i} {i}\n" for i in range(8000))
            pathlib.Path(path).write_text("group G\n" + "".join(f"text {name} v{name}\n" for name in names) +
                                          "group H\n" + many + "long Huge 65535 x\n")
            for blocks in ("1024", "0", "7"):
                with Simulator("--catalogue", path, "--blocks", blocks) as gateway:
                    ids = rixstat("--port", gateway.port, "ids", "G")
                    values = rixstat("--port", gateway.port, "get", *(f"G_{name}" for name in names))
                    everything = rixstat("--port", gateway.port, "get")
                self.assertEqual([f"G_{name}" for name in names], re.findall(r"^G +(\S+)$", ids.stdout, re.M))
                self.assertEqual([f"v{name}" for name in names], re.findall(r"(\S+)$", values.stdout, re.M)[1:])
                self.assertEqual(10002, everything.stdout.count("\n"))
                self.assertIn("x" * 65535, everything.stdout)

    def test_equal_seeds_give_equal_values(self):
        def values():
            with Simulator() as gateway:
                return [rixstat("--port", gateway.port, "get").stdout for _ in range(2)]
        first, second = values(), values()
        self.assertEqual(first, second)
        self.assertNotEqual(first[0], first[1], "time goes on between two queries")

    def test_shows_failed_elements_beside_the_others(self):
        with Simulator() as gateway:
            result = rixstat("--port", gateway.port, "get", "Workers_Threads_Busy", "Nobody")
        self.assertEqual(1, result.returncode)
        self.assertRegex(result.stdout, r"Workers_Threads_Busy +Workers_Threads_Busy +\d+\n")
        self.assertRegex(result.stdout, r"Nobody .*-1")

    def test_tells_in_one_line_what_went_wrong(self):
        with port_holder() as nobody:
            port = str(nobody.getsockname()[1])
            refused = rixstat("--port", port, "groups")
        unknown = rixstat("--host", "no such host", "groups")
        with Simulator("--auth-rc", "8") as gateway:
            denied = rixstat("--port", gateway.port, "get")
        with Simulator("--drop-after-flows", "6") as gateway:
            lost = rixstat("--port", gateway.port, "get")
        for result, status, code in ((refused, 3, r"STAPI_CONNECTION_REFUSED \(-135\)"),
                                     (unknown, 3, r"STAPI_HOST_NOT_FOUND \(-132\)"),
                                     (denied, 5, r"STAPI_CONNECT_FAILED \(-118\).*authorisation.* 8"),
                                     (lost, 6, r"STAPI_GATEWAY_EXCHANGE_FAILED \(-122\)")):
            self.assertEqual((status, "", 1), (result.returncode, result.stdout, result.stderr.count("\n")), result.stderr)
            self.assertRegex(result.stderr, code)
        self.assertIn("127.0.0.1", refused.stderr)
        self.assertIn(port, refused.stderr)

    def test_usage_errors_have_status_2(self):
        for arguments in ([], ["no-such-command"], ["--port", "0", "groups"], ["--port", "x", "groups"], ["get", ""],
                          ["--trace", "6", "groups"]):
            self.assertEqual(2, rixstat(*arguments).returncode, arguments)

    def test_output_that_cannot_be_written_is_a_failure(self):
        with Simulator() as gateway, open("/dev/full", "w") as full:
            result = subprocess.run([RIXSTAT, "--port", gateway.port, "get"], stdout=full, stderr=subprocess.PIPE, timeout=LIMIT)
        self.assertEqual(1, result.returncode)

    def test_traces_to_a_file_and_dumps_for_support(self):
        with Simulator() as gateway, tempfile.TemporaryDirectory() as directory:
            trace = pathlib.Path(directory) / "t.log"
            self.assertEqual(0, rixstat("--port", gateway.port, "get", "--trace", "4", "--trace-file", str(trace)).returncode)
            lines = trace.read_text().splitlines()
            dump = rixstat("--port", gateway.port, "dump", "Workers")
        self.assertRegex(lines[0], r"^\*\*\* \d\d/\d\d/\d\d YST Vendral Gateway RIXSTATS DLL trace V10\.1\.0\.0 ")
        layout = re.compile(r"\d\d/\d\d/\d\d \d\d:\d\d:\d\d:\d{3} \[0x[0-9A-F]{8},0x[0-9A-F]{8}\] \[\d{4}\] "
                            r"(\*EXC\* |EVENT  |ENTRY  |EXIT   |DEBUG  |DATA   )\S|0x[0-9A-F]{8,}: [0-9A-F ]{35} : ")
        for line in lines[1:]:
            self.assertRegex(line, layout)
        # Eight flows: each request is dumped, each reply's header and, but for the handshake's and the close's, body.
        self.assertEqual(8, sum("[3226] DATA" in line for line in lines))
        self.assertEqual(8 + 6, sum("[3243] DATA" in line for line in lines))
        self.assertEqual(0, dump.returncode)
        self.assertIn("rixstats state dump: API Version=1_1_0_1 Trace Level=0 statAPITraceFile=stderr\n", dump.stderr)
        self.assertIn("Gateway Token List entry -0001- : GatwayToken(0x", dump.stderr)
        self.assertRegex(dump.stderr, r"\nDump of ResultSet\(0x\w+\) owner\(8888\) head\(0x\w+\) next\(0x\w+\)\n-{80}\n")


class SimulatorProgram(unittest.TestCase):
    def test_prints_where_it_listens_and_stops_on_signals(self):
        for how in (signal.SIGINT, signal.SIGTERM):
            with Simulator() as gateway:
                self.assertRegex(gateway.line, r"^listening on 127\.0\.0\.1:\d+\n$")
                with socket.create_connection(("127.0.0.1", int(gateway.port)), timeout=LIMIT):
                    self.assertEqual(0, gateway.stop(how), "also with a connection open")

    def test_tells_the_way_out_where_its_port_is_taken(self):
        with Simulator() as first, Simulator(port=first.port) as second:
            self.assertEqual(("", 1), (second.line, second.stop()))
        self.assertRegex(second.complaints, rf"127\.0\.0\.1 port {first.port}: .*--port 0 .*\n$")

    def test_refuses_what_does_not_follow_the_protocol(self):
        with Simulator() as gateway, socket.create_connection(("127.0.0.1", int(gateway.port)), timeout=LIMIT) as client:
            client.sendall(b"GET / HTTP/1.0\r\n\r\n" + bytes(20))
            self.assertEqual(b"", client.recv(1))
            gateway.stop()
        self.assertIn("eyecatcher", gateway.complaints)

    def test_loads_a_catalogue_and_explains_a_bad_one(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "my.catalogue")
            pathlib.Path(path).write_text("group Orders\ntext Owner Night shift\nlong Manual 300 0123456789\n")
            with Simulator("--catalogue", path) as gateway:
                shown = rixstat("--port", gateway.port, "get", "Orders").stdout
            pathlib.Path(path).write_text("group Orders\nfrobnicate Owner 1\n")
            bad = subprocess.run([RIXGWSIM, "--catalogue", path], capture_output=True, text=True, timeout=LIMIT)
        self.assertRegex(shown, r"Orders_Owner +Night shift\n")
        self.assertIn("0123456789" * 300, shown)
        self.assertNotEqual(0, bad.returncode)
        self.assertRegex(bad.stderr, r"my\.catalogue\W+2\D.*frobnicate")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
