"""The helper of another product, made outside of this tree of what is installed."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = os.path.dirname(os.environ["CORVANE_PROGRAMS"])
SOURCES = os.environ["CORVANE_SOURCES"]
EXAMPLE = f"{SOURCES}/examples/wanderer"
LABEL = "com.corvane.system.privilegedhelper-wanderer"


def contents(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def files_below(folder):
    return {os.path.relpath(f"{at}/{name}", folder)
            for at, _, names in os.walk(folder) for name in names}


class GuideTest(unittest.TestCase):
    def test_every_sample_of_the_guide_is_the_examples(self):
        files = [contents(f"{EXAMPLE}/{name}") for name in files_below(EXAMPLE)]
        samples = re.findall(r"^```\w*\n(.*?)^```$", contents(f"{SOURCES}/docs/HELPER.md"),
                             re.MULTILINE | re.DOTALL)
        self.assertGreater(len(samples), 10)
        for sample in samples:
            self.assertTrue(any(sample in text for text in files), sample)


class WandererTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        os.chmod(self.folder, 0o755)
        self.prefix = f"{self.folder}/prefix"
        self.run_tool("cmake", "--install", BUILD, "--prefix", self.prefix)
        self.source = shutil.copytree(EXAMPLE, f"{self.folder}/wanderer")

    def run_tool(self, *command, status=0, shell=False, **environment):
        result = subprocess.run(command[0] if shell else command, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, check=False, shell=shell,
                                cwd=getattr(self, "source", self.folder),
                                env={**os.environ, "CMAKE_PREFIX_PATH": self.prefix, **environment})
        (self.assertEqual if status == 0 else self.assertNotEqual)(result.returncode, 0,
                                                                   result.stdout)
        return " ".join(result.stdout.split())

    def configure(self, *options, status=0):
        return self.run_tool("cmake", "-S", ".", "-B", "build", *options, status=status)

    def build(self, status=0):
        return self.run_tool("cmake", "--build", "build", status=status)

    def change(self, name, before, after):
        text = contents(f"{self.source}/{name}")
        self.assertIn(before, text)
        with open(f"{self.source}/{name}", "w", encoding="utf-8") as file:
            file.write(text.replace(before, after))

    def assertRefused(self, before, after, reason):
        self.change("CMakeLists.txt", before, after)
        self.assertIn(reason, self.configure(status=1))

    def test_the_lines_of_its_readme_build_and_test_it(self):
        if os.geteuid() != 0:
            self.skipTest("a helper runs as root")
        lines = re.findall("^    (.*)$", contents(f"{EXAMPLE}/README.md"), re.MULTILINE)
        self.assertEqual(len(lines), 2)
        for line in lines:
            told = self.run_tool(line.replace("sudo ", ""), shell=True)
        self.assertIn("100% tests passed", told)

    def test_what_is_installed_collides_with_nothing_of_the_first_product(self):
        first = f"{self.folder}/first"
        self.run_tool("cmake", "--install", BUILD, DESTDIR=first)
        self.configure()
        self.build()
        second = f"{self.folder}/second"
        self.run_tool("cmake", "--install", "build", DESTDIR=second)
        self.assertEqual(files_below(first) & files_below(second), set())
        rights = [f"usr/share/polkit-1/actions/com.corvane.wanderer.{operation}.policy"
                  for operation in ("add-hosts", "delete-files", "discard-auth", "look-up-hosts",
                                    "nop", "perform-uninstall", "set-time-zone")]
        self.assertEqual(files_below(second), {
            "usr/bin/privilegerequestor-wanderer", "usr/bin/wanderer",
            "usr/libexec/com.corvane.rights-wanderer",
            f"usr/libexec/{LABEL}", f"usr/lib/systemd/system/{LABEL}.service",
            f"usr/lib/systemd/system/{LABEL}.socket", f"usr/share/man/man8/{LABEL}.8", *rights})
        unit = contents(f"{second}/usr/lib/systemd/system/{LABEL}.socket")
        self.assertIn(f"ListenStream=/run/{LABEL}/socket\n", unit)
        unit = contents(f"{second}/usr/lib/systemd/system/{LABEL}.service")
        self.assertIn(f"ExecStart=/usr/libexec/{LABEL}\n", unit)
        for right in rights:
            text = contents(f"{second}/{right}")
            self.assertIn(f'<action id="{os.path.basename(right)[:-len(".policy")]}">', text)
            self.assertIn("<vendor>Wanderer</vendor>\n"
                          "  <vendor_url>https://wanderer.example/</vendor_url>\n", text)
        self.assertIn('<message xml:lang="de">Wanderer möchte die Zeitzone einstellen.</message>',
                      contents(f"{second}/{rights[-1]}"))

    def test_it_is_packaged(self):
        self.configure()
        self.build()
        self.run_tool("cpack", "--config", "build/CPackConfig.cmake")
        package = f"{self.source}/wanderer-1.0-Linux.deb"
        self.assertIn("Depends: corvane-privilegedhelper, libc6",
                      self.run_tool("dpkg-deb", "--info", package))
        self.run_tool("dpkg-deb", "--control", package, f"{self.folder}/control")
        self.assertEqual(files_below(f"{self.folder}/control"),
                         {"control", "md5sums", "postinst", "postrm", "prerm"})
        for script in ("postinst", "prerm", "postrm"):
            path = f"{self.folder}/control/{script}"
            self.run_tool("sh", "-n", path)
            self.assertTrue(os.access(path, os.X_OK))
            self.assertNotIn("@", contents(path).replace("$@", ""))

    def test_a_table_that_contradicts_itself_ends_the_build_with_the_reason(self):
        self.change("Operations.cpp", '{1, "add-hosts"', '{0, "add-hosts"')
        self.configure()
        self.assertIn("com.corvane.rights-wanderer: the operation 'add-hosts': its code 0 is that of "
                      "'set-time-zone'.", self.build(status=1))

    def test_a_code_that_is_none_is_refused(self):
        self.assertRefused("NAME wanderer", "NAME Wan-derer",
                           "The code of a helper is made of lower-case letters and digits, and "
                           "begins with a letter; 'Wan-derer' is not.")

    def test_a_code_that_is_too_long_is_refused(self):
        self.assertRefused("NAME wanderer", f"NAME {'a' * 25}", "has at most 24 characters")

    def test_a_code_that_another_vendor_has_is_refused(self):
        units = f"{self.folder}/units"
        os.mkdir(units)
        self.configure(f"-DCORVANE_UNIT_FOLDER={units}")
        for vendor, status in (("Wanderer", 0), ("Somebody", 1)):
            with open(f"{units}/{LABEL}.service", "w", encoding="utf-8") as unit:
                unit.write(f"[Unit]\nX-Vendor={vendor}\n")
            told = self.configure(status=status)
        self.assertIn("The code 'wanderer' is that of another vendor's helper", told)

    def test_two_helpers_of_one_code_are_refused(self):
        with open(f"{self.source}/CMakeLists.txt", "a", encoding="utf-8") as project:
            project.write("corvane_add_helper(NAME wanderer VERSION 1.0 VENDOR Wanderer "
                          "OPERATIONS Operations.cpp)\n")
        self.assertIn("There are two helpers with the code 'wanderer'.", self.configure(status=1))

    def test_a_version_that_is_none_is_refused(self):
        self.assertRefused("VERSION ${PROJECT_VERSION}", "VERSION one",
                           "The version of a helper is two numbers, as in 1.0; 'one' is not.")

    def test_a_vendor_that_needs_escapes_is_refused(self):
        self.assertRefused("VENDOR Wanderer", "VENDOR \"Wan<derer\"",
                           "The vendor of a helper is a name, of characters that need no escape")

    def test_an_address_that_is_none_is_refused(self):
        self.assertRefused("https://wanderer.example/", "wanderer.example",
                           "The address of a vendor begins with https://")

    def test_the_code_of_the_first_product_is_refused(self):
        self.assertRefused("NAME wanderer", "NAME vnt",
                           "The code 'vnt' is that of the first product's helper.")

    def test_what_is_no_parameter_is_named(self):
        self.assertRefused("VENDOR Wanderer", "VENDOR Wanderer COLOR blue",
                           "What is COLOR;blue of a helper?")

    def test_a_helper_without_operations_is_refused(self):
        self.assertRefused("OPERATIONS Operations.cpp", "",
                           "The helper 'wanderer' has no OPERATIONS.")


if __name__ == "__main__":
    result = unittest.main(exit=False, verbosity=2).result
    sys.exit(1 if not result.wasSuccessful() else 77 if result.skipped else 0)
