#!/usr/bin/python3
"""The tool that changes lines to see whether tests notice."""

import importlib.machinery
import importlib.util
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES = os.environ.get("CORVANE_SOURCES", f"{os.path.dirname(os.path.abspath(__file__))}/../..")
TOOL = os.path.realpath(f"{SOURCES}/tools/mutate")

LOADER = importlib.machinery.SourceFileLoader("mutate", TOOL)
mutate = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", LOADER))
LOADER.exec_module(mutate)

PROJECT = {
    "CMakeLists.txt": """cmake_minimum_required(VERSION 3.25)
project(example LANGUAGES CXX)
enable_testing()
add_subdirectory(tests/sums)
""",
    "sums/sums.h": """inline bool isPositive(int number) { return number > 0; }
""",
    "tests/sums/CMakeLists.txt": """add_executable(sums-tests sums.cpp)
target_include_directories(sums-tests PRIVATE ${CMAKE_SOURCE_DIR})
add_test(NAME sums COMMAND sums-tests)
""",
    "tests/sums/sums.cpp": """#include "sums/sums.h"
int main() { return isPositive(1) && !isPositive(-1) ? 0 : 1; }
""",
}


class ChangesTest(unittest.TestCase):
    def test_operators_words_and_numbers(self):
        self.assertEqual(set(mutate.changes("  return a == b && size <= 4;")),
                         {"  return a != b && size <= 4;", "  return a == b || size <= 4;",
                          "  return a == b && size < 4;", "  return a == b && size <= 5;"})
        self.assertEqual(mutate.changes("  bool isOpen = false;"), ["  bool isOpen = true;"])
        self.assertIn("  size = std::max(size, limit);",
                      mutate.changes("  size = std::min(size, limit);"))

    def test_conditions_flags_and_negations(self):
        self.assertEqual(set(mutate.changes("  if (!isOpen()) return;")),
                         {"  if (isOpen()) return;", "  if (true) return;", "  if (false) return;",
                          "  if (!isOpen()) {}"})
        self.assertIn("  open(path, O_RDONLY);", mutate.changes("  open(path, O_RDONLY | O_CLOEXEC);"))

    def test_statements_are_taken_out(self):
        self.assertEqual(mutate.changes("  _changed.notify_all();"), ["  ;"])
        self.assertEqual(mutate.changes("  return close(file);"), [])

    def test_texts_comments_and_directives_stay(self):
        for line in ('  say("1 == 2 && true");'[:-1], "  // a == b", "#if A == 1", ""):
            with self.subTest(line=line):
                self.assertEqual(mutate.changes(line), [])


class RunTest(unittest.TestCase):
    """A small project with one line that its tests hold in part."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="corvane-test.")
        self.addCleanup(shutil.rmtree, self.folder)
        for path, content in PROJECT.items():
            self.write(path, content)
        os.mkdir(f"{self.folder}/tools")
        shutil.copy(TOOL, f"{self.folder}/tools/mutate")
        subprocess.run(["git", "init", "-q", self.folder], check=True)

    def write(self, path, content):
        os.makedirs(os.path.dirname(f"{self.folder}/{path}"), exist_ok=True)
        with open(f"{self.folder}/{path}", "w", encoding="utf-8") as file:
            file.write(content)

    def run_tool(self, *arguments):
        return subprocess.run([sys.executable, f"{self.folder}/tools/mutate", *arguments],
                              check=False, capture_output=True, text=True)

    def test_what_is_noticed_is_killed_and_what_is_not_survives(self):
        result = self.run_tool("sums")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        *fates, figure = result.stdout.splitlines()
        self.assertEqual(figure, "1 of 2 killed (50 %)")
        self.assertEqual(sorted(line.split()[0] for line in fates if line[0] != " "),
                         ["killed", "survived"])
        self.assertIn("    + inline bool isPositive(int number) { return number >= 0; }", fates)

        self.write("tests/sums/sums.cpp", PROJECT["tests/sums/sums.cpp"].replace("(-1)", "(0)"))
        result = self.run_tool("sums")
        self.assertIn("2 of 2 killed (100 %)", result.stdout)
        with open(f"{self.folder}/sums/sums.h", encoding="utf-8") as file:
            self.assertEqual(file.read(), PROJECT["sums/sums.h"])

    def test_what_fails_before_any_change_is_told(self):
        self.write("tests/sums/sums.cpp", "int main() { return 1; }\n")
        result = self.run_tool("sums")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, "The tests of tests/sums do not pass as they are.\n")

    def test_a_folder_that_is_not_there(self):
        result = self.run_tool("nowhere")
        self.assertEqual((result.returncode, result.stderr), (1, "There is no folder 'nowhere'.\n"))


if __name__ == "__main__":
    unittest.main()
