#!/usr/bin/env python3
"""The manual pages and what the documents show: they name all that there is, as it is, and their programs compile.

pages_test.py SOURCE-DIRECTORY RIXSTAT RIXGWSIM C-COMPILER C++-COMPILER

In a manual page a block with an #include is a program or a synopsis. In a document a C or C++ block without main() is a
fragment, which has to compile as the body of a function.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE, RIXSTAT, RIXGWSIM, CC, CXX = pathlib.Path(sys.argv[1]), *sys.argv[2:6]
HEADER = "".join((SOURCE / "include" / name).read_text() for name in ("rixstats.h", "rixstats_ext.h"))
PAGES = {path.name[:-len(".scd")]: path.read_text() for path in sorted((SOURCE / "man").glob("*.scd"))}
CALL_PAGES = {name: text for name, text in PAGES.items() if name.endswith(".3")}
OPTION = r"--?[a-z][a-z-]*"
COMPILERS = {"c": [CC, "-xc", "-std=c99"], "cpp": [CXX, "-xc++", "-std=c++17"]}
FRAGMENT_HEADERS = {"c": ["rixstats_ext.h"], "cpp": ["rixstats.hpp", "iostream", "sstream", "catalogue_file.h"]}


def section(page, title):
    return re.search(rf"^# {title}\n(.*?)(?=^# |\Z)", page, re.M | re.S)[1]


def blocks(text):
    """(language, content) of the literal blocks, and the number of the line that each begins at."""
    for match in re.finditer(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S):
        yield text.count("\n", 0, match.start()) + 1, match[1], match[2]


def synopsis(page):
    return next(blocks(section(page, "SYNOPSIS")))[2]


def prototypes(text):
    return {re.sub(r"\s+", " ", found) for found in re.findall(r"^(?:RIXSTATS_API )?((?:int |const char \*)\w+\([^;]*\);)", text, re.M)}


def calls_of(page):
    return {re.search(r"(\w+)\(", prototype)[1] for prototype in prototypes(synopsis(page))}


def codes_of_calls():
    """The codes that the header lists for each call, in the comment before it and in the one that opens its section."""
    codes, family, own = {}, "", ""
    for comment, call in re.findall(r"/\*(.*?)\*/|^RIXSTATS_API .*?(\w+)\(", HEADER, re.M | re.S):
        if comment.startswith(" ----"):
            family, own = comment, ""
        elif comment:
            own = comment
        else:
            listed = family.partition("Codes")[2] + own.partition("Codes")[2]
            codes[call] = {"STAPI_OK", *re.findall(r"STAPI_\w+", listed)}
    return codes


def plain(text):
    return re.sub(r"[_*\s]+", " ", text).strip().rstrip(".").lower()


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, timeout=300, **options)


def programs():
    """(where, language, content) of all that has to compile."""
    for name, page in PAGES.items():
        for line, _, content in blocks(page.replace("\\\\", "\\")):
            if "#include" in content:
                yield f"{name}:{line}", "cpp" if ".hpp>" in content else "c", content
    for path in [*SOURCE.glob("*.md"), *SOURCE.glob("docs/*.md")]:
        for line, language, content in blocks(path.read_text()):
            if language in COMPILERS and "main(" not in content:
                own, body = re.fullmatch(r"((?:#include[^\n]*\n)*)(.*)", content, re.S).groups()
                headers = "".join(f"#include <{header}>\n" for header in FRAGMENT_HEADERS[language])
                content = f"{headers}{own}void shown(void)\n{{\n{body}}}\n"
            if language in COMPILERS:
                yield f"{path.name}:{line}", language, content


class Calls(unittest.TestCase):
    def test_each_call_has_a_page_that_shows_it_as_the_header_does(self):
        exported = re.findall(r"^    (\w+);", (SOURCE / "source/rixstats.map").read_text(), re.M)
        shown = [prototype for page in CALL_PAGES.values() for prototype in prototypes(synopsis(page))]
        self.assertEqual(sorted(prototypes(HEADER)), sorted(shown))
        self.assertEqual(set(exported), set().union(*map(calls_of, CALL_PAGES.values())))
        for name, page in CALL_PAGES.items():  # each call is found by its own name
            names = re.match(r"\n(.*) - ", section(page, "NAME"))[1].split(", ")
            self.assertEqual((calls_of(page), name), (set(names), names[0] + ".3"))

    def test_a_page_lists_the_codes_that_the_header_lists(self):
        for name, page in CALL_PAGES.items():
            listed = set(re.findall(r"\*(STAPI_\w+)\* \(", section(page, "RETURN CODES")))
            self.assertEqual(set().union(*(codes_of_calls()[call] for call in calls_of(page))), listed, name)

    def test_codes_have_their_numbers_and_meanings(self):
        known = {name: (number, text)
                 for name, number, text in re.findall(r"^    (STAPI_\w+) = (-?\d+),? +/\* (.*?) \*/", HEADER, re.M)}
        told = re.findall(r"^\*(STAPI_\w+)\* \((-?\d+)\)\n\t((?:.+\n\t?)+)", PAGES["rixstats.7"], re.M)
        self.assertEqual({name: (number, plain(text)) for name, (number, text) in known.items()},
                         {name: (number, plain(text)) for name, number, text in told})
        for name, page in CALL_PAGES.items():
            for code, number in re.findall(r"\*(STAPI_\w+)\* \((-?\d+)\)", page):
                self.assertEqual(known[code][0], number, f"{code} in {name}")


class Tools(unittest.TestCase):
    def check(self, page, helps):
        offered = re.findall(OPTION, " ".join(re.findall(r"^ +(-\S+)", helps, re.M)))
        named = re.findall(OPTION, " ".join(re.findall(r"^\*-.*", section(PAGES[page], "OPTIONS"), re.M)))
        self.assertEqual(set(offered), set(named))

    def test_pages_name_all_commands_and_options(self):
        general = run(RIXSTAT, "--help").stdout
        commands = re.findall(r"^  (\w+) ", re.search(r"^Commands:\n((?:  .*\n)+)", general, re.M)[1], re.M)
        self.assertEqual(commands, re.findall(r"^\*(\w+)\*", section(PAGES["rixstat.1"], "COMMANDS"), re.M))
        self.check("rixgwsim.1", run(RIXGWSIM, "--help").stdout)
        self.check("rixstat.1", general + "".join(run(RIXSTAT, command, "--help").stdout for command in commands))


class Form(unittest.TestCase):
    def test_programs_compile(self):
        for where, language, content in programs():
            with self.subTest(where=where):
                compiled = run(*COMPILERS[language], "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                               f"-I{SOURCE}/include", f"-I{SOURCE}/tools/simulator", "-", input=content)
                self.assertEqual(0, compiled.returncode, compiled.stderr)

    @unittest.skipUnless(shutil.which("scdoc"), "scdoc is not installed")
    def test_pages_can_be_made_and_shown(self):
        width = {**os.environ, "MANWIDTH": "80"}
        for name, page in PAGES.items():
            with self.subTest(page=name), tempfile.NamedTemporaryFile("w", suffix=name) as file:
                made = run("scdoc", input=page)
                self.assertEqual((0, ""), (made.returncode, made.stderr))
                print(made.stdout, file=file, flush=True)
                if shutil.which("man"):  # its lines have to fit a terminal
                    shown = run("man", "--warnings", "-E", "UTF-8", "-l", file.name, env=width)
                    self.assertEqual((0, ""), (shown.returncode, shown.stderr))
                    self.assertLessEqual(max(map(len, shown.stdout.splitlines())), 80)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
