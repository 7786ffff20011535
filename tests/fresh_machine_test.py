#!/usr/bin/env python3
"""What README.md and the manual pages show, typed as they show it, where only their own commands have installed things.

script/bare runs it in a root and a network that it can change as it likes: it names itself gw7, uses port 2980, and
installs below /usr/local, which it undoes at its end.
"""
import fcntl
import os
import pathlib
import re
import shlex
import socket
import struct
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent
README = (SOURCE / "README.md").read_text()
WORK = tempfile.TemporaryDirectory()
BUILT = SOURCE / "build/release"
CPP_PROGRAM = "#include <rixstats.hpp>\n#include <iostream>\nint main()\n{\n%s}\n"
CMAKE_PROJECT = "cmake_minimum_required(VERSION 3.20)\nproject(my_monitor C)\nadd_executable(my_monitor my_monitor.c)\n"


def commands(text):
    """The command lines of a block, without what is said of them, and without the sudo that root does not need."""
    return [line.split(" # ")[0].replace("sudo ", "").strip() for line in text.splitlines() if line]


def blocks(text, language=""):
    found = re.findall(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S)
    return [content for its_language, content in found if its_language == language]


def block_with(words):
    return next(block for block in blocks(README) if words in block)


def run(line, directory=SOURCE, seconds=300, **environment):
    """Runs a line in the shell. What does not end is interrupted after the given time."""
    process = subprocess.Popen(["timeout", "--signal=INT", "--kill-after=5", str(seconds), "bash", "-c", line],
                               cwd=directory, env={**os.environ, **environment}, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, start_new_session=True)
    out, err = process.communicate(timeout=seconds + 30)
    return process.returncode, out, err


class FreshMachine(unittest.TestCase):
    """In the order of their names: what is installed is there for those that follow."""

    @classmethod
    def setUpClass(cls):
        with socket.socket() as any_socket:  # a new network's loopback device is down
            fcntl.ioctl(any_socket, 0x8914, struct.pack("16sh14x", b"lo", 1))  # SIOCSIFFLAGS, IFF_UP
        pathlib.Path("/etc/hosts").write_text("127.0.0.1 localhost gw7\n")
        for line in commands(block_with("script/build release first_program")):
            if line.endswith("&"):
                cls.gateway = cls.start_simulator(line)
            else:
                cls.first_shown = cls.checked(line)

    @classmethod
    def tearDownClass(cls):
        cls.gateway.terminate()
        cls.gateway.communicate(timeout=20)
        subprocess.run(f"xargs rm < {BUILT}/install_manifest.txt && ldconfig", shell=True, check=True)

    @staticmethod
    def start_simulator(line, directory=SOURCE):
        simulator = subprocess.Popen(shlex.split(line.rstrip("& ")), cwd=directory, stdout=subprocess.PIPE, text=True)
        assert simulator.stdout.readline().startswith("listening on "), line
        return simulator

    @staticmethod
    def checked(line, directory=SOURCE, **environment):
        code, out, err = run(line, directory, **environment)
        assert code == 0, f"{line}: {out}{err}"
        return out

    def test_1_without_installation(self):
        self.assertIn("Requests_Received = ", self.first_shown)
        self.checked(re.search(r"`(cmake --preset .*?)`", README)[1])
        self.check_python(**dict(re.findall(r"`(PYTHONPATH|RIXSTATS_LIBRARY)=(\S+)`", README)))
        moved = BUILT.rename(BUILT.with_name("moved"))
        self.addCleanup(moved.rename, BUILT)
        self.checked("build/moved/tools/rixstat/rixstat version")

    def check_python(self, **environment):
        program = pathlib.Path(WORK.name, "sample.py")
        program.write_text(blocks(README, "python")[0])
        self.assertRegex(self.checked(f"python3 {program}", **environment), r"(?m)^Queue_\S+ \d")

    def test_2_installed_below_usr_local(self):
        self.checked(commands(block_with("cmake --install"))[0])
        self.check_python()
        program = pathlib.Path(WORK.name, "sample.cpp")
        program.write_text(CPP_PROGRAM % blocks(README, "cpp")[0])
        self.assertIn("Queue_", self.checked("c++ -std=c++17 sample.cpp -lrixstats && ./a.out", WORK.name))

    def test_3_programs_are_linked_as_the_table_says(self):
        program = SOURCE / "my_monitor.c"
        self.addCleanup(program.unlink)
        program.write_bytes((SOURCE / "examples/first_program.c").read_bytes())
        rows = dict(re.findall(r"^\| ([\w -]+) \| (`.*`) \|$", README, re.M))
        lines = {way: f"{row.strip('`')} -o {WORK.name}/monitor && {WORK.name}/monitor" for way, row in rows.items()}
        project = CMAKE_PROJECT + rows["CMake"].replace("`, `", "\n").strip("`")
        pathlib.Path(WORK.name, "CMakeLists.txt").write_text(project)
        lines["CMake"] = f"cp my_monitor.c {WORK.name} && cmake -G Ninja -S {WORK.name} -B {WORK.name}/b &&" \
                         f" cmake --build {WORK.name}/b && {WORK.name}/b/my_monitor"
        self.assertEqual(4, len(lines))
        for way, line in lines.items():
            with self.subTest(way=way):
                self.assertIn("Requests_Received = ", self.checked(line))

    def test_4_programs_of_the_manual_pages(self):
        for page in sorted((SOURCE / "man").glob("*.scd")):
            for text in blocks(page.read_text().replace("\\\\", "\\")):
                if "main(" not in text:
                    continue
                compiler, name = ("c++ -std=c++17", "page.cpp") if ".hpp" in text else ("cc -std=c99", "page.c")
                pathlib.Path(WORK.name, name).write_text(text)
                with self.subTest(page=page.name):
                    self.checked(f"{compiler} {name} -lrixstats && ./a.out", WORK.name)

    def test_5_commands_of_the_tools(self):
        examples = blocks((SOURCE / "man/rixstat.1.scd").read_text().partition("# EXAMPLES")[2])[0]
        lines = commands(block_with("rixgwsim --port 0") + examples)
        pathlib.Path(WORK.name, "my.scenario").write_bytes((SOURCE / "tools/simulator/example.scenario").read_bytes())
        for line in sorted(lines, key=lambda line: line.startswith("rixgwsim")):  # those want the port
            with self.subTest(line=line):
                if "watch" in line:  # without end
                    self.assertEqual((124, ""), run(line, WORK.name, 3)[::2])
                    continue
                if line.startswith("rixstat"):
                    self.assertEqual((0, ""), run(line, WORK.name)[::2])
                    continue
                self.gateway.terminate()
                self.gateway.communicate(timeout=20)
                type(self).gateway = self.start_simulator(line, WORK.name)


if __name__ == "__main__":
    unittest.main()
