#!/usr/bin/env python3
"""The C++ wrapper, the Python binding, the examples and the simulator's scenarios, each as its users meet it.

bindings_test.py SOURCE-DIRECTORY BUILD-DIRECTORY SANITIZERS

A library built with a sanitizer cannot be loaded by an interpreter that is not: the binding is left out then.
"""
import os
import pathlib
import pickle
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from unittest import mock

SOURCE, BUILD, SANITIZED = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3] != ""
WRAPPERS = [BUILD / "tests/wrapper_test", BUILD / "tests/wrapper_test_no_exceptions"]
os.environ["RIXSTATS_LIBRARY"] = str(BUILD / "source/librixstats.so.1")
os.environ["PYTHONPATH"] = str(SOURCE / "bindings/python")
os.environ["PYTHONDONTWRITEBYTECODE"] = "1"
sys.dont_write_bytecode = True
sys.path.insert(0, os.environ["PYTHONPATH"])
import rixstats  # noqa: E402
from rixstats import Code  # noqa: E402

CATALOGUE = "group Requests\ntext Received 48\ntext Refused 2\ngroup Empty\ngroup Workers\ntext Busy 7\n"
needs_library = unittest.skipIf(SANITIZED, "the library is built with a sanitizer")


class Simulator:
    """A running rixgwsim. Its option files are given by their contents."""

    def __init__(self, **files):
        with tempfile.TemporaryDirectory() as directory:
            options = []
            for option, content in files.items():
                pathlib.Path(directory, f"my.{option}").write_text(content, "utf-8", "surrogateescape")
                options += [f"--{option}", f"{directory}/my.{option}"]
            self.process = subprocess.Popen([BUILD / "tools/simulator/rixgwsim", "--port", "0", *options],
                                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            self.port = self.process.stdout.readline().rsplit(":", 1)[-1].strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.complaints = self.process.communicate(timeout=300)[1]

    def connect(self):
        return rixstats.Connection("127.0.0.1", int(self.port))


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, timeout=300, **options)


class Wrapper(unittest.TestCase):
    def test_with_and_without_exceptions(self):
        scenario = "connection 2 query 1 exception\nconnection 4 query 1 delay 900s\nconnection 5 flow 6 delay 900s\n"
        for program in WRAPPERS:
            with Simulator(catalogue=CATALOGUE, scenario=scenario) as gateway:
                result = run(program, gateway.port)
            self.assertEqual((0, "", ""), (result.returncode, result.stderr, gateway.complaints))

    def test_codes_are_those_of_the_header(self):
        headers = "".join((SOURCE / "include" / name).read_text() for name in ("rixstats.h", "rixstats_ext.h"))
        codes = re.findall(r"(STAPI_\w+) = (-?\d+),?\s+/\* (.*?) \*/", headers)
        told = run(WRAPPERS[0], "codes", input=" ".join(number for _, number, _ in codes)).stdout
        self.assertEqual([f"{name}\t{text} ({name}, {number})" for name, number, text in codes], told.splitlines())
        self.assertEqual([(name, int(number)) for name, number, _ in codes],
                         [(code.name, code) for code in Code if code != Code.NO_MUTEX])


@needs_library
class Binding(unittest.TestCase):
    def assert_fails(self, code, function, *arguments):
        with self.assertRaises(rixstats.Error) as caught:
            function(*arguments)
        self.assertEqual((code, Code(code).name), (caught.exception.code, caught.exception.name))

    def test_answers_are_values_of_any_bytes(self):
        odd = b"group \xff\xe4\ntext \xc3\xa4 \xfe\n".decode("utf-8", "surrogateescape")
        with Simulator(catalogue=CATALOGUE + odd) as gateway, gateway.connect() as connection:
            self.assertEqual("2_0", connection.protocol_version)
            some = connection.statistics_in_groups("Requests", "Requests", "Nobody", "Empty")
            ids = connection.ids().ids
            self.assertEqual(ids, connection.ids_in_groups(*connection.group_ids().ids).ids)
            self.assertEqual(["48", "2", "7", "\udcfe"], [stat.value for stat in connection.statistics_by_id(*ids)])
            self.assertRaises(ValueError, connection.statistics_by_id)
            self.assertRaises(ValueError, connection.statistics_by_id, "")
            self.assertRaises(ValueError, connection.statistics_by_id, "a\0b")
            self.assert_fails(Code.STAPI_BAD_PORT, rixstats.Connection, "127.0.0.1", 2**32 + int(gateway.port))
        self.assertEqual([("Requests", 0, 2), ("Requests", 0, 2), ("Nobody", -1, 0), ("Empty", 0, 0)],
                         [(group.element, group.code, len(group)) for group in some.groups])
        self.assertEqual({"Nobody": -1}, some.failed)
        self.assertEqual(rixstats.Statistic("Requests", "Requests_Refused", "2"), some[1])
        self.assertEqual(("\udcff\udce4_ä", ""), (ids[3], gateway.complaints))

    def test_threads_forks_and_all_connections(self):
        with Simulator() as gateway, gateway.connect() as connection:
            answers = []
            threads = [threading.Thread(target=lambda: answers.append(connection.ids())) for _ in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join(300)
            self.assertEqual(4, len(answers))
            child = os.fork()
            if child == 0:
                try:
                    connection.ids()
                except rixstats.Error as error:
                    connection.close()
                    os._exit(0 if error.code == Code.STAPI_WRONG_PROCESS else 1)
            self.assertEqual(0, os.waitpid(child, 0)[1])
            connection.ids()
            with self.assertWarns(ResourceWarning):
                gateway.connect()  # and left
            rixstats.close_all()
            self.assert_fails(Code.STAPI_NULL_GATEWAY_TOKEN, connection.ids)
            self.assertTrue(connection.closed)

    def test_a_timeout_ends_the_wait_for_a_silent_gateway(self):
        scenario = "connection 1 flow 4 delay 900s\nconnection 2 query 1 delay 900s\nconnection 3 flow 6 delay 900s\n"
        with Simulator(scenario=scenario) as gateway:
            def connect():
                return rixstats.Connection("127.0.0.1", int(gateway.port), timeout=0.2)
            with self.assertRaises(TimeoutError) as caught:
                connect()
            again = pickle.loads(pickle.dumps(caught.exception))
            self.assertEqual((Code.STAPI_TIME_LIMIT_REACHED, rixstats.Step.VERSION), (again.code, again.failure.step))
            connection = connect()
            self.assertRaises(rixstats.TimedOut, connection.ids)
            self.assertTrue(connection.closed)
            connect().close()
            self.assertRaises(ValueError, setattr, connection, "timeout", 0)
            with gateway.connect() as patient:
                patient.timeout = 20
                patient.ids()

    def run_against(self, gateway, program, *, until=None, how=signal.SIGINT):
        """A program with a free hand: its status and what it wrote on standard error. Gets a signal once it has printed."""
        process = subprocess.Popen([sys.executable, "-c", f"import rixstats\nport = {gateway.port}\n{program}"],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            if until is not None:
                self.assertEqual(until + "\n", process.stdout.readline())
                time.sleep(0.3)  # until it waits
                process.send_signal(how)
            _, complaints = process.communicate(timeout=300)
            return process.returncode, complaints
        finally:
            process.kill()

    def test_a_silent_gateway_holds_up_neither_the_end_of_a_program_nor_ctrl_c(self):
        left = "connection = rixstats.Connection('127.0.0.1', port)\n"
        with Simulator(scenario="connection every 1 flow 6 delay 900s\n") as gateway:
            self.assertEqual((0, ""), self.run_against(gateway, left))
            self.assertEqual((0, ""), self.run_against(gateway, left + "del connection\n"))
            for wait in ("ids", "close"):
                status, complaints = self.run_against(gateway, f"{left}print(1, flush=True)\nconnection.{wait}()\n", until="1")
                self.assertEqual((-signal.SIGINT, 1), (status, complaints.count("KeyboardInterrupt")), complaints)
        with Simulator(scenario="connection every 1 flow 3 delay 900s\n") as gateway:
            status, complaints = self.run_against(gateway, "print(1, flush=True)\n" + left, until="1")
            self.assertEqual((-signal.SIGINT, 1), (status, complaints.count("KeyboardInterrupt")), complaints)

    def test_a_signal_handler_may_close_or_raise_at_every_line(self):
        program = """if True:
            import faulthandler, os, signal, sys, time
            faulthandler.dump_traceback_later(200, exit=True)
            class Stop(Exception): pass
            def ending(*_): connections[-1].close()
            def closing_all(*_): rixstats.close_all()
            def raising(*_): raise Stop
            def signalled(line, work):
                # Does the work, and sends the signal at this line of the binding. False: it has not so many.
                left = line
                def trace(frame, event, _):
                    nonlocal left
                    left -= event == "line"
                    if left == 0 and event == "line":
                        signal.raise_signal(signal.SIGUSR1)
                    return trace
                sys.settrace(lambda frame, *_: trace if frame.f_code.co_filename == rixstats.__file__ else None)
                try:
                    work()
                except (Stop, rixstats.Error):
                    pass
                finally:
                    sys.settrace(None)
                return left <= 0
            def connect(): connections.append(rixstats.Connection("127.0.0.1", port))
            works = {"open": connect, "ids": lambda: connections[-1].ids(), "close": lambda: connections[-1].close()}
            for name, handler in [("open", raising)] + [(name, handler) for name in ("ids", "close")
                                                        for handler in (ending, closing_all, raising)]:
                signal.signal(signal.SIGUSR1, handler)
                line, more = 0, True
                while more:
                    line, connections = line + 1, []
                    if name != "open":
                        connect()
                    more = signalled(line, works[name])
                    assert not more or name == "open" or handler == raising or connections[-1].closed, (name, line)
                    for connection in connections:
                        connection.close()
                assert line > 10, (name, line)
            def left(): return len(os.listdir("/proc/self/task")) - 1 - 1  # but for the main thread and faulthandler's
            for _ in range(1000):
                if left() > 0:
                    time.sleep(0.01)
            assert left() == 0, left()
        """
        with Simulator() as gateway:
            self.assertEqual((0, ""), self.run_against(gateway, program))

    def test_closing_all_does_not_take_an_answer_from_its_reader(self):
        program = """if True:
            import threading, time
            make, reading, answers = rixstats._statistic, threading.Event(), []
            def slowly(element, data):
                if not reading.is_set():
                    reading.set()
                    time.sleep(0.5)
                return make(element, data)
            rixstats._statistic = slowly
            def read():
                with rixstats.Connection("127.0.0.1", port) as connection:
                    answers.append(connection.statistics())
            reader = threading.Thread(target=read)
            reader.start()
            reading.wait(300)
            rixstats.close_all()
            reader.join(300)
            assert len(answers[0]) == 1000
        """
        catalogue = "group G\n" + "".join(f"text S{number} {'x' * 1000}\n" for number in range(1000))
        with Simulator(catalogue=catalogue) as gateway:
            self.assertEqual((0, ""), self.run_against(gateway, program))

    def test_another_thread_ends_a_query_that_waits(self):
        with Simulator(scenario="query 2 delay 30s\n") as gateway, gateway.connect() as connection:
            connection.ids()
            timer = threading.Timer(0.3, connection.close)
            timer.start()
            self.assertRaises(rixstats.Error, connection.ids)
            timer.join(300)
            self.assert_fails(Code.STAPI_NULL_GATEWAY_TOKEN, connection.ids)

    def test_a_close_just_behind_the_query_takes_the_answer_along(self):
        with Simulator() as gateway, gateway.connect() as connection:
            query = rixstats._library().getStatIds
            late = mock.Mock(side_effect=lambda *arguments: (query(*arguments), connection.close())[0])
            with mock.patch.object(rixstats._library(), "getStatIds", late):
                self.assert_fails(Code.STAPI_COMMS_FAILURE, connection.ids)

    def test_scenario_chooses_connection_flow_and_query(self):
        scenario = ("# who gets what\nconnection 1 drop\nconnection 2 flow 3 drop\nconnection 3 query 2 exception\n"
                    "connection 4 query every 2 delay 1500ms\nconnection 5-6 query 1 gateway-rc 8\n"
                    "connection 7- flow 5 piece-size 1\nconnection 7 query 2- drop 40\nconnection every 8 auth-rc 5\n")
        answered = {1: None, 2: None, 3: 1, 4: 3, 5: 0, 6: 0, 7: 1, 8: None, 9: 3}  # None: it does not open
        with Simulator(scenario=scenario) as gateway:
            for number, queries in answered.items():
                if queries is None:
                    self.assert_fails(Code.STAPI_CONNECT_FAILED, gateway.connect)
                    continue
                with gateway.connect() as connection:
                    times = [time.monotonic()] + [(connection.ids(), time.monotonic())[1] for _ in range(queries)]
                    if queries < 3:
                        self.assert_fails(Code.STAPI_GATEWAY_EXCHANGE_FAILED, connection.ids)
                if number == 4:
                    self.assertGreaterEqual(times[2] - times[1], 1.5)
                    self.assertLess(max(times[1] - times[0], times[3] - times[2]), 1.5)
        self.assertEqual("", gateway.complaints)


class Programs(unittest.TestCase):
    def test_errors_in_a_scenario_name_the_line(self):
        for line, complaint in (("connection", "a number"), ("connection x drop", "'x' is not a whole number"),
                                ("connection 0 drop", "out of range"), ("flow 5-3 drop", "ends before it begins"),
                                ("every 5 delay 200ms", "'every' is no fault"), ("flow 3", "the fault is missing"),
                                ("delay 200", "is no delay"), ("delay 99999999999s", "out of range"),
                                ("exception 3", "'3' is too much"), ("gateway-rc", "the gateway code is missing")):
            with Simulator(scenario=f"# one\n\nconnection 1 drop\n{line}\n") as gateway:
                self.assertEqual("", gateway.port, line)
            self.assertRegex(gateway.complaints, rf"my\.scenario:4: .*{re.escape(complaint)}")

    def test_watch_group_shows_change(self):
        with Simulator() as gateway:
            watched = run(BUILD / "examples/watch_group", "127.0.0.1", gateway.port, "Requests:Nobody", "0.3", "2")
        self.assertEqual((0, ""), (watched.returncode, watched.stderr))
        self.assertRegex(watched.stdout, r"\n\n(?s:.*)Requests_Received +\d+ +\+\d+\.\d\d/s\n")
        self.assertEqual(2, watched.stdout.count("Nobody failed with gateway code -1\n"))

    def test_without_the_library_python_tells_where_to_name_it(self):
        for file in ("nowhere/librixstats.so.1", "libc.so.6"):
            told = run(sys.executable, "-c", "import rixstats; rixstats.library_version()",
                       env={**os.environ, "RIXSTATS_LIBRARY": file}).stderr
            self.assertRegex(told, rf"\nOSError: cannot use {file} .* set RIXSTATS_LIBRARY")

    @needs_library
    def test_watch_group_in_python(self):
        program = [sys.executable, SOURCE / "examples/watch_group.py", "127.0.0.1"]
        with Simulator() as gateway:
            watched = run(*program, gateway.port, "Requests", "0.3", "2")
        self.assertRegex(watched.stdout, r"Requests_Received +(\d+) -> \d+\n")
        refused = run(*program, "1", "Requests")
        self.assertEqual((0, "", 1), (watched.returncode, watched.stderr, refused.returncode))
        self.assertIn("STAPI_CONNECTION_REFUSED", refused.stderr)

    def test_many_gateways(self):
        with Simulator(catalogue=CATALOGUE) as one, Simulator() as two:
            ports = [one.port, two.port, "1"]
            asked = run(BUILD / "examples/many_gateways", *(f"127.0.0.1:{port}" for port in ports))
        self.assertEqual(1, asked.returncode, "one of them does not run")
        self.assertIn(f"127.0.0.1:{one.port}: 3 statistics (Requests 2, Empty 0, Workers 1)\n", asked.stdout)
        self.assertRegex(asked.stdout, r":1: .*STAPI_CONNECTION_REFUSED")

    def test_long_running_goes_on_when_gateways_do_not(self):
        programs = [[BUILD / "examples/long_running"], [BUILD / "examples/long_running_cpp"]]
        if not SANITIZED:
            programs.append([sys.executable, SOURCE / "examples/long_running.py"])
        for program in programs:
            with Simulator(scenario="connection 1 query 2 delay 900s\n") as silent, Simulator() as gateway:
                ports = [silent.port, gateway.port, "1"]
                begin = time.monotonic()
                watched = run(*program, "Requests_Received", "0.2", "5", *(f"127.0.0.1:{port}" for port in ports))
                self.assertGreater(time.monotonic() - begin, 1.5, "rounds missed for a silent second are left out")
                after = [re.findall(rf":{port}: (.*)", watched.stdout) for port in ports]
            self.assertEqual((0, ""), (watched.returncode, watched.stderr))
            for lines, kinds in zip(after, ("=L=/", "=////", "RR")):
                patterns = {"=": r"Requests_Received = \d+", "/": r"Requests_Received \d+\.\d+/s",
                            "L": ".*STAPI_TIME_LIMIT_REACHED", "R": ".*STAPI_CONNECTION_REFUSED"}
                self.assertEqual(len(kinds), len(lines), watched.stdout)
                for kind, line in zip(kinds, lines):
                    self.assertRegex(line, patterns[kind], watched.stdout)
            with Simulator(catalogue="group G\ntext Word x\n") as gateway:
                for statistic, told in (("nosuch", r"the gateway has no nosuch \(code -1\)"),
                                        ("G_Word", "G_Word = x is no number")):
                    unfit = run(*program, statistic, "0.01", "2", f"127.0.0.1:{gateway.port}")
                    self.assertEqual((0, ""), (unfit.returncode, unfit.stderr))
                    self.assertRegex(unfit.stdout, rf"^(127\.0\.0\.1:{gateway.port}: {told}\n){{2}}$")
            for arguments in (("Id", "x", "2", "h:1"), ("Id", "nan", "2", "h:1"), ("Id", "1", "0", "h:1"),
                              ("", "1", "2", "h:1"), ("Id", "1", "2", "h"), ("Id", "1", "2", "h:0"), ("Id", "1", "2")):
                refused = run(*program, *arguments)
                self.assertEqual((2, ""), (refused.returncode, refused.stdout), arguments)
                self.assertRegex(refused.stderr, r"\Ausage: .*\n\Z")

    def test_failing_gateway_meets_the_example_scenario(self):
        with Simulator(scenario=(SOURCE / "tools/simulator/example.scenario").read_text()) as gateway:
            asked = run(BUILD / "examples/failing_gateway", "127.0.0.1", gateway.port, "6")
        self.assertEqual((0, 6), (asked.returncode, asked.stdout.count("104 statistics\n")), asked.stderr)
        self.assertEqual([("opening", "-118")] * 2 + [("asking", "-122")],
                         re.findall(r": (\w+) failed with code (\S+)\n", asked.stderr))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
