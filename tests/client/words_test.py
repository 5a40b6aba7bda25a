"""All that goes wrong, in the words of every language; and as one object, for programs."""

import concurrent.futures
import json
import os
import plistlib
import re
import socket
import subprocess
import sys
import threading

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path += [f"{SOURCES}/tests/daemon", f"{SOURCES}/tests/support"]
from bus import Client
from support import PATIENCE, PROGRAMS, DaemonTest, environment_for, main, make_application

LANGUAGES = ("de", "fr", "es", "ja")

# What no sentence in English does without, and none of the other languages has.
ENGLISH = re.compile(r"(?<![A-Za-z])(the|is|are|of|or|and|to|there|this|that|it|with|by|be|cannot|"
                     r"could|does|did|has been|not|only|which|nobody|somebody|file|directory|line|"
                     r"root's|missing|unknown|needs|takes|value|key|too|added|replaced|removed|LEFT)(?![A-Za-z])")
# What is the same in every language: paths, names in quotation marks, options, command lines.
DATA = (r"(journalctl|systemctl|apt|sudo|log) [ -~]*", r"[„«「'\u201c][^“»」'\u201d]*[“»」'\u201d]",
        r"(/[\w.+-]*)+", r"<\w+>", r"--[\w-]+", r"\b[\w-]+(\.[\w-]+)+\b", r"\b(standard|privilege)\w*",
        r"NSGlobalDomain", r"append-only")
# Words that Spanish or French have too.
ALSO = {"es": {"no"}, "fr": {"not"}}

BROKEN_LISTS = (
    b"<plist>", b"<plist><foo/></plist>", b"<plist><string>a</string><string>b</string></plist>",
    b"<plist><dict><string>a</string></dict></plist>", b"<plist><dict><key>a</key></dict></plist>",
    b"<plist><dict><key>a</key><true/><key>a</key><true/></dict></plist>",
    b"<plist><integer>x</integer></plist>", b"<plist>text</plist>", b"<plist></plist>",
    b"<plist><dict><key>a</key><key>b</key></dict></plist>", b"<plist><string><true/></string></plist>",
    b"<plist><array><plist/></array></plist>", b"<plist><string>&foo;</string></plist>",
    b"<!DOCTYPE a [<!ENTITY b 'c'>]><plist><string>&b;</string></plist>", b"<plist></array>",
    b"<plist><array>" + b"<array>" * 600, b"<?xml version='1.0' encoding='foo'?><plist/>",
    b"bplist00", b"bplist99" + b"0" * 40, b"bplist00" + b"\0" * 40, b"bplist00" + b"\xff" * 40,
    plistlib.dumps(["text", 1, 1.5], fmt=plistlib.FMT_BINARY)[:-8] + b"\xff" * 8,
    b"{a=b", b"{a b}", b"(a b", b'"a', b"<0x>", b"a b", b"/* a", b'"\\x"', b'"\\Uq"', b'"\\Ud800"',
    b"{a=b; a=c;}", b"\xff\xfe\xff", b"(" * 600, b"", b"(a,", b"{", b"\xc3")


def english_in(text, language):
    for data in DATA:
        text = re.sub(data, " ", text)
    return {word for word in ENGLISH.findall(text) if word not in ALSO.get(language, ())}


class ToolTest(DaemonTest):

    def prepare(self):
        self.application = make_application(self.folder, "#!/bin/sh\nexit 3\n")
        root = f"{self.folder}/preferences/root/.config/preferences"
        os.makedirs(root)
        with open(f"{root}/broken.plist", "wb") as file:
            file.write(b"<plist>")
        self.addCleanup(subprocess.run, ["chattr", "-R", "-f", "-a", self.folder], check=False)

    def setUp(self):
        super().setUp()
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)

    def path(self, name):
        return f"{self.folder}/{name}"

    def run_client(self, *arguments, language, given=b"", user=None):
        options = {} if user is None else {"user": user, "group": user, "extra_groups": []}
        return subprocess.run(
            [f"{PROGRAMS}/privilegerequestor-vnt", *arguments], input=given, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, timeout=PATIENCE, check=False, start_new_session=True,
            cwd="/", env={**os.environ, **environment_for(self.folder),
                          "LC_ALL": f"{language}_XX.UTF-8", "LANGUAGE": ""}, **options)

    def here(self, *arguments):
        return self.client_command(*arguments)[1:]


class WordsTest(ToolTest):

    def one_that_hangs_up(self):
        """The path of a socket at which each connection ends at once."""
        path = self.path("hangs-up")
        listening = socket.socket(socket.AF_UNIX)
        self.addCleanup(listening.close)
        listening.bind(path)
        os.chmod(path, 0o666)
        listening.listen(64)

        def hang_up():
            try:
                while True:
                    listening.accept()[0].close()
            except OSError:
                pass
        threading.Thread(target=hang_up, daemon=True).start()
        return path

    def failures(self):
        """Command lines that fail, with what is on their standard input and whose process it is."""
        for wrong in ((), ("frob",), ("--bogus", "nop"), ("delete",), ("delete", "-0", "x"), ("--quiet=1", "nop"),
                      ("preferences",), ("preferences", "set"), ("preferences", "set", "K"), ("nop", "x"),
                      ("preferences", "set", "K", "a", "--int", "1"), ("nop", "--socket"), ("help", "frob"),
                      ("debug", "maybe"), ("may", "frob"), ("delete", "."), ("delete", b"\xff"),
                      ("preferences", "set", "K", "--int", "x"), ("uninstall", "--force", "--for-package")):
            yield wrong, b"", None
        for address in ("/nonexistent/socket", self.folder):
            yield ("--socket", address, "nop"), b"", None
            yield ("--socket", address, "doctor"), b"", None
            yield self.here("nop")[:2] + ["--authorization-socket", address, "nop"], b"", None
        for command in ("install", "uninstall"):
            yield (command,), b"", 65534
        yield self.here("doctor"), b"", 65534
        yield self.here("delete", self.path("x")), b"", 65534
        yield self.here("execute", "--application", self.application, "lipo", *["x"] * 100_000), b"", None
        yield from ((self.here(*line), b"", None) for line in self.refused_deletions())
        for line in (("execute", "frob"), ("execute", "lipo"), ("execute", "--application", self.application, "lipo")):
            yield self.here(*line), b"", None
        for line in (("set", "--app", "broken", "--any-host", "K", "V"), ("set", "--user", "nobody-here", "K", "V"),
                     ("set", "--host", "elsewhere", "K", "V"), ("set", "--app", "a/b", "K", "V"), ("get", "K"),
                     ("set", "--app", "a" * 300, "K", "V"), ("remove", "--app", ".a", "K"), ("set", "", "V")):
            yield self.here("preferences", line[0], *line[1:]), b"", None
        yield self.here("preferences", "set", "K", "--plist", "/nonexistent"), b"", None
        for broken in BROKEN_LISTS:
            yield self.here("preferences", "set", "--app", "words", "K", "--plist", "-"), broken, None

    def refused_deletions(self):
        for name in ("full", "kept", "loop", "file"):
            if not os.path.lexists(self.path(name)):
                {"loop": lambda: os.symlink("loop", self.path("loop")),
                 "file": lambda: open(self.path("file"), "wb").close()}.get(
                     name, lambda: os.makedirs(self.path(f"{name}/inner")))()
        subprocess.run(["chattr", "+a", self.path("kept")], check=False, stderr=subprocess.DEVNULL)
        for name in ("missing", "full", "kept/inner", "loop/x", "file/x", "x" * 256):
            yield "delete", self.path(name)
        yield "delete", "-r", self.path("missing"), "/proc/self"
        yield "delete", "-r", "/proc/sys"
        yield "delete", "--files-from", self.path("missing")
        yield "delete-files", self.path("full"), self.path("missing")

    def all_at_once(self, lines, language):
        """What comes of these command lines, as many at a time as there are processors."""
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            return list(pool.map(lambda line: self.run_client(
                *line[0], language=language, given=line[1], user=line[2]), lines))

    def told(self, language):
        """Of each failure the exit status and the lines of what is told."""
        return [(result.returncode,
                 (result.stdout + result.stderr).decode(errors="replace").splitlines())
                for result in self.all_at_once(self.failures(), language)]

    def assertToldIn(self, language):
        for (arguments, given, _), (status, english), (_, lines) in zip(
                self.failures(), self.told("en"), self.told(language), strict=True):
            with self.subTest(arguments=arguments[:8], given=given[:60]):
                # The lists hold one that is none for a part of the readers only.
                if status != 0:
                    self.assertTrue("".join(english).strip())
                for line in lines:
                    # "version" and the like may be the same.
                    if len(line.split()) > 3:
                        self.assertNotIn(line, english)
                    self.assertEqual(english_in(line, language), set(), line)

    def test_every_failure_is_told_in_german(self):
        self.assertToldIn("de")

    def test_every_failure_is_told_in_french(self):
        self.assertToldIn("fr")

    def test_every_failure_is_told_in_spanish(self):
        self.assertToldIn("es")

    def test_every_failure_is_told_in_japanese(self):
        self.assertToldIn("ja")

    def test_who_hangs_up_is_told_in_the_language_of_the_user(self):
        address = self.one_that_hangs_up()
        # All at once, as each tries for ten seconds.
        with concurrent.futures.ThreadPoolExecutor(2 * len(LANGUAGES)) as pool:
            told = {(language, line): pool.submit(self.run_client, *line, language=language)
                    for language in LANGUAGES
                    for line in (("--socket", address, "nop"),
                                 ("--socket", self.daemon.socket_path,
                                  "--authorization-socket", address, "nop"))}
        for (language, _), result in told.items():
            told_line = result.result().stderr.decode()
            self.assertTrue(told_line)
            self.assertEqual(english_in(told_line, language), set(), told_line)

    def test_what_is_listed_is_in_the_language_of_the_user(self):
        for arguments in (self.here("doctor"), ("operations",), self.here("may", "nop")):
            english = self.run_client(*arguments, language="en").stdout.decode().splitlines()
            for language in LANGUAGES:
                told = self.run_client(*arguments, language=language).stdout.decode().splitlines()
                self.assertEqual(len(told), len(english))
                self.assertNotEqual(told[0], english[0])
                for line in told:
                    self.assertEqual(english_in(line, language), set(), line)

    def test_the_help_is_in_the_language_of_the_user(self):
        help_of = subprocess.check_output([f"{PROGRAMS}/privilegerequestor-vnt", "help", "--json"],
                                          env={**os.environ, "LC_ALL": "C"})
        commands = re.findall(r"(?m)^  ([a-z-]+)", json.loads(help_of)["result"]["help"].partition(
            "Subcommands:\n")[2])
        self.assertIn("delete", commands)
        for topic in ([], *([command] for command in commands),
                      *(["preferences", each] for each in ("set", "remove", "get"))):
            english = self.run_client("help", *topic, language="en").stdout.decode()
            for language in LANGUAGES:
                told = self.run_client("help", *topic, language=language).stdout.decode()
                self.assertEqual(told, self.run_client(*topic, "--help", language=language).stdout.decode())
                with self.subTest(topic=topic, language=language):
                    # The same options and commands, with nothing of the same said of them.
                    def names(text):
                        return re.findall(r"(?m)^  ([\w,-]+)", text)
                    self.assertEqual(names(told), names(english))
                    same = set(told.splitlines()) & set(english.splitlines())
                    self.assertEqual({line for line in same if line.strip()}, set())

    def test_every_failure_is_one_object_for_programs(self):
        # Behind the command as well as before it, but for what is a utility's, and where a value
        # is missing.
        lines = [(line, given, user) for arguments, given, user in self.failures()
                 for line in (["--json", *arguments], [*arguments, "--json"])
                 if line[-1] != "--json" or not ("execute" in line or line[-2:-1] == ["--socket"])]
        for (line, given, _), result in zip(lines, self.all_at_once(lines, "en"), strict=True):
            if result.returncode == 0:
                continue
            with self.subTest(arguments=line[:9], given=given[:60]):
                told = json.loads(result.stdout)
                self.assertTrue(told["domain"])
                self.assertNotEqual(told["code"], 0)
                self.assertTrue(told["description"])
                self.assertLessEqual({"recoverySuggestion", "userInfo"}, set(told))

    def test_a_problem_that_the_doctor_finds_is_an_error_beside_what_else_it_found(self):
        result = self.run_client("--socket", "/nonexistent", "doctor", "--json", language="en")
        told = json.loads(result.stdout)
        self.assertEqual((result.returncode, told["domain"], told["code"], told["description"]),
                         (5, "com.corvane.error.client", 8, "Something stands in the way."))
        self.assertIn("journalctl", told["recoverySuggestion"])
        self.assertEqual([row["state"] for row in told["result"]][:2], ["PROBLEM", "unknown"])


class CommandLineTest(ToolTest):

    def told(self, *arguments):
        result = self.run_client(*arguments, language="en")
        return result.returncode, result.stdout.decode(), result.stderr.decode().splitlines()

    def test_what_is_wrong_is_named(self):
        more = "'privilegerequestor-vnt help' tells what there is."
        for arguments, fault in (
                ((), "No command was named."), (("frob", "-x"), "'frob' is not a command."),
                (("preferences", "frob"), "'frob' is not a command."),
                (("delete", "--frob", "x"), "'--frob' is not an option here."),
                (("nop", "x"), "'x' is one argument too many."),
                (("preferences", "set", "K"), "VALUE is missing on the command line."),
                (("preferences", "set", "--app", "x", "--global", "K", "V"),
                 "'--app' and '--global' exclude each other."),
                (("nop", "--json=1"), "'--json' takes no value."),
                (("preferences", "set", "--user"), "'--user' needs a value behind it.")):
            self.assertEqual(self.told(*arguments), (2, "", [fault, more]))

    def test_options_stand_before_or_behind_the_command(self):
        for line in (("--json", "--socket", "/nonexistent", "nop"), ("nop", "--socket", "/nonexistent", "--json")):
            status, output, _ = self.told(*line)
            self.assertEqual((status, json.loads(output)["code"]), (5, 1))

    def test_version_and_help(self):
        self.assertEqual(self.told("--version"), (0, "privilegerequestor-vnt 1.3\n", []))
        status, output, _ = self.told("help")
        self.assertEqual((status, output), self.told("--help")[:2])
        self.assertIn("Subcommands:", output)
        self.assertEqual(self.told("help", "preferences", "set"), self.told("preferences", "set", "--help"))
        self.assertIn("KEY [VALUE]", self.told("help", "preferences", "set")[1])
        status, output, _ = self.told("help", "--json")
        self.assertIn("Subcommands:", json.loads(output)["result"]["help"])


if __name__ == "__main__":
    main()
