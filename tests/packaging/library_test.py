"""The installed library, as a program of another source tree uses it."""

import os
import shlex
import subprocess
import sys
import tempfile
import unittest

BUILD = os.path.dirname(os.environ["CORVANE_PROGRAMS"])

CLIENT = r"""
#include <PrivilegedHelperClient.h>

#include <cstdio>

int main() {
  corvane::PrivilegedHelperClient::Options options;
  options.helperAddress = "/nonexistent";
  const auto failure = corvane::PrivilegedHelperClient(options).connect();
  std::puts(failure ? failure->description.c_str() : "connected");
}
"""

PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(other LANGUAGES CXX)
find_package(corvane-client 1.3 REQUIRED)
add_executable(other other.cpp)
target_link_libraries(other PRIVATE corvane::client)
target_compile_features(other PRIVATE cxx_std_20)
"""


class LibraryTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        self.prefix = f"{self.folder}/prefix"
        self.run_tool("cmake", "--install", BUILD, "--prefix", self.prefix)
        with open(f"{self.folder}/other.cpp", "w", encoding="utf-8") as source:
            source.write(CLIENT)

    def run_tool(self, *command, **environment):
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, env={**os.environ, **environment}, check=False,
                                cwd=self.folder)
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def assertWorks(self, program):
        self.assertIn("No helper could be reached at /nonexistent", self.run_tool(program))

    def test_it_is_found_with_pkg_config(self):
        found, = (folder for folder, _, files in os.walk(self.prefix) if "corvane-client.pc" in files)
        flags = self.run_tool("pkg-config", f"--define-variable=prefix={self.prefix}", "--cflags",
                              "--libs", "corvane-client", PKG_CONFIG_PATH=found)
        self.run_tool("c++", "other.cpp", "-o", "other", *shlex.split(flags))
        self.assertWorks(f"{self.folder}/other")

    def test_it_is_found_with_cmake(self):
        with open(f"{self.folder}/CMakeLists.txt", "w", encoding="utf-8") as project:
            project.write(PROJECT)
        self.run_tool("cmake", "-G", "Ninja", "-S", ".", "-B", "build",
                      f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.run_tool("cmake", "--build", "build")
        self.assertWorks(f"{self.folder}/build/other")


if __name__ == "__main__":
    sys.exit(not unittest.main(exit=False, verbosity=2).result.wasSuccessful())
