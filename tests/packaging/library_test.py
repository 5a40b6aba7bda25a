"""The installed libraries, as a program of another source tree uses them."""

import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

BUILD = os.path.dirname(os.environ["CORVANE_PROGRAMS"])

CLIENT = r"""
#include <corvane/OperationQueue.h>
#include <corvane/PrivilegedHelperClient.h>
#include <corvane/operations/OperationCodes.h>
#include <corvane/platform/AuthorizationStatus.h>

#include <cstdio>

static_assert(corvane::codeNop == 9998 && corvane::errAuthorizationDenied == -60005);

int main() {
  corvane::PrivilegedHelperClient::Options options;
  options.helperAddress = "/nonexistent";
  const auto connected = corvane::PrivilegedHelperClient(options).connect();
  std::puts(connected ? "connected" : connected.error().description.c_str());
}
"""

# A helper that has its set by name; what it lacks are the property lists that give the name.
HELPER = r"""
#include <corvane/operations/PrincipalClass.h>

namespace {
const corvane::PrincipalClass principalClass(
    "Other", &corvane::ZELPrivilegedOperationSet::privilegedOperationSet);
}
"""

# Says nothing of C++ 20: the libraries do.
PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(other LANGUAGES CXX)
find_package(corvane 1.3 REQUIRED%s)
add_executable(other other.cpp)
target_link_libraries(other PRIVATE corvane::%s)
"""

HELPER_REFUSES = "The principal class is either not set or not implemented."


class LibraryTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        self.prefix = f"{self.folder}/prefix"
        self.tool("cmake", "--install", BUILD, "--prefix", self.prefix)

    def tool(self, *command, status=0, **environment):
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, env={**os.environ, **environment}, check=False,
                                cwd=self.folder)
        self.assertEqual(result.returncode, status, result.stdout)
        return result.stdout

    def write(self, name, text):
        with open(f"{self.folder}/{name}", "w", encoding="utf-8") as file:
            file.write(text)

    def configure(self, components, source="", library="client", **how):
        self.write("CMakeLists.txt", PROJECT % (components, library))
        self.write("other.cpp", source)
        return self.tool("cmake", "-G", "Ninja", "-S", ".", "-B", "build",
                         f"-DCMAKE_PREFIX_PATH={self.prefix}", **how)

    def built_with_cmake(self, source, components, library):
        self.configure(components, source, library)
        self.tool("cmake", "--build", "build")
        return f"{self.folder}/build/other"

    def built_with_pkg_config(self, source, module):
        self.write("other.cpp", source)
        found, = (folder for folder, _, files in os.walk(self.prefix) if f"{module}.pc" in files)
        flags = self.tool("pkg-config", f"--define-variable=prefix={self.prefix}", "--cflags",
                          "--libs", module, PKG_CONFIG_PATH=found)
        self.tool("c++", "other.cpp", "-o", "other", *shlex.split(flags))
        return f"{self.folder}/other"

    def assertIsClient(self, program):
        self.assertIn("No helper could be reached at /nonexistent", self.tool(program))

    def assertIsHelper(self, program):
        self.assertIn(HELPER_REFUSES, self.tool(program, status=1))

    def test_a_client_is_built_with_cmake(self):
        self.assertIsClient(self.built_with_cmake(CLIENT, " COMPONENTS client", "client"))

    def test_without_components_the_client_is_meant(self):
        self.configure("")

    def test_a_helper_is_built_with_cmake(self):
        self.assertIsHelper(self.built_with_cmake(HELPER, " COMPONENTS helper", "privilegedhelper"))

    def test_a_client_is_built_with_pkg_config(self):
        self.assertIsClient(self.built_with_pkg_config(CLIENT, "corvane-client"))

    def test_a_helper_is_built_with_pkg_config(self):
        self.assertIsHelper(self.built_with_pkg_config(HELPER, "corvane-helper"))

    def test_a_component_that_there_is_not_is_named(self):
        told = " ".join(self.configure(" COMPONENTS client server", status=1).split())
        self.assertIn("corvane has no component 'server', only client and helper.", told)

    def test_a_component_that_there_need_not_be_is_no_fault(self):
        self.configure(" COMPONENTS client OPTIONAL_COMPONENTS server")

    def test_the_package_of_a_library_that_is_missing_is_named(self):
        modules = f"{self.folder}/modules"
        os.mkdir(modules)
        known = self.tool("pkg-config", "--variable", "pcfiledir", "libsystemd").strip()
        os.symlink(f"{known}/libsystemd.pc", f"{modules}/libsystemd.pc")
        told = " ".join(self.configure(" COMPONENTS helper", status=1,
                                       PKG_CONFIG_LIBDIR=modules).split())
        self.assertIn("corvane needs the package libsodium-dev.", told)

    def test_headers_are_found_below_the_name_of_the_library_alone(self):
        self.assertEqual(os.listdir(f"{self.prefix}/include"), ["corvane"])
        for folder, _, names in os.walk(f"{self.prefix}/include"):
            for name in names:
                with open(f"{folder}/{name}", encoding="utf-8") as header:
                    for included in re.findall(r'#include "(.*)"', header.read()):
                        self.assertTrue(os.path.exists(f"{self.prefix}/include/{included}"),
                                        f"{name} includes {included}")


if __name__ == "__main__":
    sys.exit(not unittest.main(exit=False, verbosity=2).result.wasSuccessful())
