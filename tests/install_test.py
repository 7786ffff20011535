#!/usr/bin/env python3
"""What an installation gives to those who build on it: programs are built out of tree, in C99, C11 and C++17, shared
and static, through pkg-config and through CMake, and run against the installed simulator.

install_test.py CMAKE C-COMPILER C++-COMPILER --build BUILD-DIRECTORY   installs that build into a temporary prefix
install_test.py CMAKE C-COMPILER C++-COMPILER --root DIRECTORY          looks at packages unpacked there, prefix /usr
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

CMAKE, C_COMPILER, CXX_COMPILER, KIND, WHERE = sys.argv[1:6]
WORK = tempfile.TemporaryDirectory()
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
EXAMPLE_PROGRAMS = [ # standard, compiler, example, its arguments
    ("c99", C_COMPILER, "first_program.c", "127.0.0.1 PORT"),
    ("c11", C_COMPILER, "watch_group.c", "127.0.0.1 PORT Requests 1 1"),
    ("c99", C_COMPILER, "long_running.c", "Requests_Received 0.1 2 127.0.0.1:PORT"),
    ("c++17", CXX_COMPILER, "many_gateways.cpp", "127.0.0.1:PORT"),
]

C_PROJECT = """
cmake_minimum_required(VERSION 3.20)
project(consumer C)
find_package(rixstats 1.1 REQUIRED COMPONENTS shared static)
foreach(library rixstats rixstats_static)
  add_executable(with_${library} first_program.c)
  target_link_libraries(with_${library} rixstats::${library})
endforeach()
target_sources(with_rixstats_static PRIVATE own_names.c)
"""
CXX_PROJECT = """
cmake_minimum_required(VERSION 3.20)
project(consumer CXX)
find_package(rixstats REQUIRED COMPONENTS simulator)
foreach(library rixstats rixstats_static)
  add_executable(with_${library} own_test.cpp)
  target_link_libraries(with_${library} rixstats::${library} rixstats::simulator)
endforeach()
"""
TEST_WITH_SIMULATOR = """
#include <rixstats.hpp>
#include "simulator.h"
int main()
{
    rixgwsim::Simulator gateway{rixgwsim::Options{}};
    gateway.start();
    rixstats::connection connection;
    if (connection.open("127.0.0.1", gateway.port())) return 1;
    auto answer = connection.statistics();
    for (const rixstats::statistic &statistic : answer)
        if (statistic.present() && statistic.id == "Requests_Received") return 0;
    return 2;
}
"""


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=300, **options)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def only(pattern):
    found = [path for path in PREFIX.glob(pattern) if not path.is_symlink()]
    assert len(found) == 1, f"{pattern}: {found}"
    return found[0]


def setUpModule():
    global PREFIX, ENVIRONMENT, ARCHIVE, EXAMPLES
    if KIND == "--build":
        PREFIX = pathlib.Path(WORK.name, "prefix")
        run(CMAKE, "--install", pathlib.Path(WHERE).resolve(), "--prefix", PREFIX.name, cwd=PREFIX.parent)
    else:
        PREFIX = pathlib.Path(WHERE, "usr")
    ARCHIVE = only("lib/**/librixstats.a")
    EXAMPLES = only("share/doc/*/examples/first_program.c").parent
    ENVIRONMENT = dict(os.environ, LD_LIBRARY_PATH=str(ARCHIVE.parent), PKG_CONFIG_LIBDIR=f"{ARCHIVE.parent}/pkgconfig")
    ENVIRONMENT.pop("PKG_CONFIG_PATH", None)
    if KIND == "--root":
        ENVIRONMENT["PKG_CONFIG_SYSROOT_DIR"] = WHERE


class Installation(unittest.TestCase):
    def setUp(self):
        self.simulator = subprocess.Popen([PREFIX / "bin/rixgwsim", "--port", "0"], stdout=subprocess.PIPE, text=True)
        self.port = self.simulator.stdout.readline().rsplit(":", 1)[1].strip()
        self.addCleanup(self.stop_simulator)
        self.directory = pathlib.Path(tempfile.mkdtemp(dir=WORK.name))

    def stop_simulator(self):
        self.simulator.terminate()
        self.simulator.communicate(timeout=300)
        self.assertEqual(0, self.simulator.returncode)

    def check_first_program(self, program):
        self.assertRegex(run(program, "127.0.0.1", self.port, env=ENVIRONMENT), r"Requests_Received\D+\d+")

    def write_own_names(self):
        """A program's source that has functions of its own by every name inside the library."""
        inside = re.findall(r" [a-z] (_Z\w+)$", run("nm", "--defined-only", ARCHIVE), re.M)
        self.assertGreater(len(inside), 50)
        names = sorted({"stapiInit", *inside})
        own = self.directory / "own_names.c"
        own.write_text("".join(f"void {name}(void);\nvoid {name}(void) {{ __builtin_trap(); }}\n" for name in names))
        return own

    def build_cmake_project(self, project):
        (self.directory / "CMakeLists.txt").write_text(project)
        build = self.directory / "build"
        run(CMAKE, "-G", "Ninja", "-S", self.directory, "-B", build, f"-DCMAKE_PREFIX_PATH={PREFIX}",
            f"-DCMAKE_C_COMPILER={C_COMPILER}", f"-DCMAKE_CXX_COMPILER={CXX_COMPILER}")
        run(CMAKE, "--build", build, "--parallel", "2")
        return [build / f"with_{library}" for library in ("rixstats", "rixstats_static")]

    def test_archive_gives_the_calls_and_nothing_else(self):
        headers = "".join((PREFIX / "include" / name).read_text() for name in ("rixstats.h", "rixstats_ext.h"))
        declared = set(re.findall(r"^RIXSTATS_API .*?(\w+)\(", headers, re.M))
        symbols = re.findall(r" (\w) (\w+)$", run("nm", "--extern-only", ARCHIVE), re.M)
        self.assertEqual(declared, {name for kind, name in symbols if kind not in "Uw"})
        # No C++ library is needed.
        self.assertEqual([], [name for _, name in symbols if re.match("_Z|__cxa|__gxx", name)])

    def test_programs_built_through_pkg_config(self):
        def flags(*options):
            return run("pkg-config", *options, "rixstats", env=ENVIRONMENT).split()

        own = self.write_own_names()
        libraries = {"shared": flags("--libs"), "static": flags("--static", "--libs")}
        libraries["static"][libraries["static"].index("-lrixstats")] = "-l:librixstats.a"
        for standard, compiler, example, arguments in EXAMPLE_PROGRAMS:
            for kind, words in libraries.items():
                with self.subTest(standard=standard, kind=kind):
                    program = self.directory / f"{example}-{kind}"
                    sources = [EXAMPLES / example] + [own] * (kind == "static" and compiler == C_COMPILER)
                    run(compiler, f"-std={standard}", *WARNINGS, *flags("--cflags"), *sources, *words, "-o", program)
                    self.assertEqual(kind == "shared", "[librixstats.so." in run("readelf", "-d", program))
                    shown = run(program, *arguments.replace("PORT", self.port).split(), env=ENVIRONMENT)
                    self.assertIn("Requests", shown)

    def test_programs_built_through_cmake(self):
        shutil.copy(EXAMPLES / "first_program.c", self.directory)
        self.write_own_names()
        for program in self.build_cmake_project(C_PROJECT):
            self.check_first_program(program)

    def test_simulator_in_a_test_of_ones_own(self):
        (self.directory / "own_test.cpp").write_text(TEST_WITH_SIMULATOR)
        for program in self.build_cmake_project(CXX_PROJECT):
            run(program, env=ENVIRONMENT)

    def test_tools_and_python_module(self):
        environment = dict(ENVIRONMENT)
        if KIND == "--build": # the tools find the library beside them
            del environment["LD_LIBRARY_PATH"]
        self.assertIn("Requests_Received", run(PREFIX / "bin/rixstat", "--port", self.port, "get", env=environment))
        environment = dict(ENVIRONMENT, PYTHONPATH=str(only("lib/python3*/*-packages/rixstats.py").parent))
        program = f"import rixstats\nfor s in rixstats.Connection('127.0.0.1', {self.port}).statistics(): print(s.id)"
        self.assertIn("Requests_Received", run(sys.executable, "-B", "-c", program, env=environment))

    def test_completions_lie_where_the_shells_look(self):
        for place in ("bash-completion/completions/rixstat", "zsh/*/_rixstat", "fish/*/rixstat.fish"):
            only("share/" + place)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
