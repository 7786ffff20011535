#!/usr/bin/env python3
"""What the built library exports and needs, and that the programs which the pages show compile and run.

library_test.py SOURCE-DIRECTORY LIBRARY FIRST-PROGRAM SIMULATOR C-COMPILER
"""
import ctypes
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, LIBRARY, FIRST_PROGRAM, SIMULATOR, COMPILER = sys.argv[1:6]
HEADER = (pathlib.Path(SOURCE) / "include/rixstats.h").read_text()
EXTENSIONS = (pathlib.Path(SOURCE) / "include/rixstats_ext.h").read_text()


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=300).stdout


DYNAMIC = output_of("readelf", "-d", LIBRARY)
SANITIZED = "san.so" in DYNAMIC


class Library(unittest.TestCase):
    def test_exports_the_declared_calls_each_under_its_version_and_nothing_else(self):
        declared = {f"{call}@@{version}" for version, header in (("RIXSTATS_1.1", HEADER), ("RIXSTATS_1.2", EXTENSIONS))
                    for call in re.findall(r"^RIXSTATS_API .*?(\w+)\(", header, re.M)}
        symbols = [line.split() for line in output_of("nm", "-D", "--defined-only", LIBRARY).splitlines()]
        # The version nodes themselves are listed as absolute symbols.
        self.assertEqual(23 + 5, len(declared))
        self.assertEqual(declared, {name for _, kind, name in symbols if kind != "A"})

    @unittest.skipIf(SANITIZED, "Python brings no sanitizer")
    def test_tells_each_code_as_the_headers_do(self):
        library = ctypes.CDLL(LIBRARY)
        library.rixCodeName.restype = library.rixCodeText.restype = ctypes.c_char_p
        codes = re.findall(r"^    (STAPI_\w+) = (-?\d+),? +/\* (.*?) \*/", HEADER + EXTENSIONS, re.M)
        self.assertEqual(37, len(codes))
        for name, number, text in codes:
            told = library.rixCodeName(int(number)), library.rixCodeText(int(number))
            self.assertEqual((name.encode(), text.encode()), told)
        for number in (1, -1, -99, -112, -140, 2**31 - 1, -2**31):
            self.assertEqual(b"unknown", library.rixCodeName(number), number)

    @unittest.skipIf(SANITIZED, "a sanitizer's run-time library is linked")
    def test_needs_libc_alone(self):
        self.assertIn("soname: [librixstats.so.1]", DYNAMIC)
        self.assertEqual(["libc.so.6"], re.findall(r"NEEDED\)\s+Shared library: \[(.*?)\]", DYNAMIC))


class Pages(unittest.TestCase):
    def test_readme_shows_the_first_program_as_it_is(self):
        program = (pathlib.Path(SOURCE) / "examples/first_program.c").read_text()
        self.assertIn(f"```c\n{program}```\n", (pathlib.Path(SOURCE) / "README.md").read_text())

    def test_trace_points_page_is_up_to_date(self):
        check = subprocess.run([f"{SOURCE}/script/trace-points", "--check"], capture_output=True, text=True)
        self.assertEqual(0, check.returncode, check.stdout + check.stderr)

    def test_program_in_the_header_compiles_and_links(self):
        comment = HEADER.split("Link with -lrixstats")[0]
        program = "".join(line[7:] + "\n" for line in comment.splitlines() if line.startswith(" *     "))
        self.assertEqual(10, program.count("\n"))
        with tempfile.TemporaryDirectory() as directory:
            source = pathlib.Path(directory) / "first.c"
            source.write_text(program)
            subprocess.run([COMPILER, "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", f"-I{SOURCE}/include", source,
                            LIBRARY, "-Wl,--allow-shlib-undefined", "-o", f"{directory}/first"], check=True, timeout=300)

    def test_first_program_prints_statistics(self):
        simulator = subprocess.Popen([SIMULATOR, "--port", "0"], stdout=subprocess.PIPE, text=True)
        try:
            port = simulator.stdout.readline().rsplit(":", 1)[1].strip()
            self.assertRegex(output_of(FIRST_PROGRAM, "127.0.0.1", port), r"Requests_Received\D+\d+")
        finally:
            simulator.terminate()
            simulator.communicate(timeout=300)
        self.assertEqual(0, simulator.returncode)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
