"""The client's command that deletes, as a person at a terminal sees it."""

import contextlib
import fcntl
import json
import os
import re
import shutil
import signal
import subprocess
import sys

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path += [f"{SOURCES}/tests/daemon", f"{SOURCES}/tests/support"]
from bus import Client
from support import PATIENCE, PROGRAMS, DaemonTest, environment_for, main
from big_tree import BigTree
from terminal import Terminal

PROTECTED = "An object there has a protection that the helper does not lift"


def change_flags(flags, *paths):
    """As chattr takes them."""
    subprocess.run(["chattr", flags, *paths], check=True)


class Deletions:
    """What there is to delete, and what became of it; for a test of a daemon."""

    def prepare_flags(self):
        # Before the folder is removed, which comes last.
        self.addCleanup(subprocess.run, ["chattr", "-R", "-f", "-ia", self.folder], check=False,
                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        probe = f"{self.folder}/probe"
        self.make(probe)
        if subprocess.run(["chattr", "+i", probe], check=False).returncode != 0:
            self.skipTest("needs a file system with flags")

    def make(self, path, flags=None):
        """A file with the folders above it; its path."""
        path = os.path.join(self.folder, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii"):
            pass
        if flags is not None:
            change_flags(flags, path)
        return path

    def path(self, name):
        return f"{self.folder}/{name}"

    def assertLeft(self, *names):
        for name in names:
            self.assertTrue(os.path.lexists(self.path(name)), name)

    def assertGone(self, *names):
        for name in names:
            self.assertFalse(os.path.lexists(self.path(name)), name)

    def requests(self):
        """How many objects each deletion was about, in their order."""
        counts = [re.search(r"operation 'delete-file(?:objects|s)' with (\d+) arguments", line)
                  for line in self.log.after(0)]
        # Beside them there are two options, and the request's metadata with their marker.
        return [int(count[1]) - 4 for count in counts if count]

    def requests_with_feedback(self):
        return len([line for line in self.log.after(0) if "feedback option enabled" in line])

    def lines_of(self, terminal):
        """Those that are there in the end."""
        return [re.sub(r".*(\r|\033\[K)", "", line)
                for line in terminal.seen.replace("\r\n", "\n").split("\n")]


class DeleteCommandTest(Deletions, DaemonTest):

    def prepare(self):
        self.prepare_flags()

    def setUp(self):
        super().setUp()
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)

    def command(self, *arguments):
        return [f"{PROGRAMS}/privilegerequestor-vnt", "--socket", f"{self.folder}/helper.socket",
                "--authorization-socket", f"{self.folder}/authorization.socket", *arguments]

    def start_terminal(self, *arguments, terminal="xterm", width=80):
        command = ["/bin/sh", "-c", f'stty cols {width}; exec "$@"', "sh"]
        return Terminal(command + self.command(*arguments), {
            **os.environ, **environment_for(self.folder), "LC_ALL": "C.UTF-8", "TERM": terminal})

    def delete(self, *arguments, options=(), **how):
        """On a terminal: the exit status, and the lines that are there in the end."""
        terminal = self.start_terminal(*options, "delete", *arguments, **how)
        status = terminal.wait()
        self.screen = terminal.seen
        return status, self.lines_of(terminal)

    def delete_silently(self, *arguments, options=(), given=""):
        """Without a terminal: the exit status and both outputs."""
        result = subprocess.run(self.command(*options, "delete", *arguments), text=True,
                                input=given, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, timeout=PATIENCE, check=False,
                                start_new_session=True,
                                env={**os.environ, **environment_for(self.folder),
                                     "LC_ALL": "C.UTF-8"})
        return result.returncode, result.stdout, result.stderr

    def percents(self):
        return [int(number) for number in re.findall(r"(\d+)%", self.screen)]


class StopOnFirstErrorTest(DeleteCommandTest):

    def test_what_is_behind_the_object_that_it_stops_at_stays(self):
        self.make("kept/tree/file")
        change_flags("+a", self.path("kept"))
        self.make("later/log", "+a")
        self.make("log", "+a")
        status, lines = self.delete("-r", "--stop-on-first-error", self.path("kept/tree"),
                                    self.path("later"), self.path("log"))
        self.assertEqual((status, lines[0]), (1, f"Cannot delete '{self.path('kept/tree')}': "
                                              "Operation not permitted"))
        self.assertLeft("kept/tree", "later/log", "log")

    def test_append_only_objects_of_one_path_after_the_other_are_deleted(self):
        for number in range(3):
            self.make(f"tree-{number}/folder/log", "+a")
            change_flags("+a", self.path(f"tree-{number}/folder"))
        self.make("kept/tree/file")
        change_flags("+a", self.path("kept"))
        self.make("later/log", "+a")
        status, _ = self.delete("-r", "--stop-on-first-error",
                                *(self.path(name) for name in ("tree-0", "tree-1", "tree-2",
                                                               "kept/tree", "later")))
        self.assertEqual(status, 1)
        self.assertGone("tree-0", "tree-1", "tree-2")
        self.assertLeft("kept/tree", "later/log")


class AppendOnlyTest(DeleteCommandTest):

    def test_a_tree_is_sent_twice_and_feedback_is_asked_for_once(self):
        for name in ("a", "b", "c"):
            self.make(f"tree/{name}/log", "+a")
        self.assertEqual(self.delete("-r", self.path("tree")), (0, [""]))
        self.assertGone("tree")
        self.assertEqual(self.requests(), [1, 1])
        self.assertEqual(self.requests_with_feedback(), 1)

    def test_of_several_trees_only_what_is_left_is_sent_again(self):
        for number in range(10):
            self.make(f"tree-{number}/file", "+a" if number in (3, 7) else None)
        paths = [self.path(f"tree-{number}") for number in range(10)]
        self.assertEqual(self.delete("-r", *paths), (0, [""]))
        self.assertGone(*(f"tree-{number}" for number in range(10)))
        self.assertEqual(self.requests(), [10, 1, 1])

    def test_trees_of_other_users_and_writable_ones_for_root(self):
        self.make("foreign/folder/log", "+a")
        self.make("writable/folder/log", "+a")
        subprocess.run(["chown", "-R", "65534:65534", self.path("foreign")], check=False,
                       stderr=subprocess.DEVNULL)
        os.chown(self.path("foreign/folder"), 65534, 65534)
        os.chmod(self.path("writable/folder"), 0o775)
        self.assertEqual(self.delete("-r", self.path("foreign"), self.path("writable")), (0, [""]))
        self.assertGone("foreign", "writable")

    def test_names_that_are_not_text(self):
        os.makedirs(self.path("tree"))
        name = os.fsencode(self.path("tree/")) + b"\xff"
        with open(name, "w", encoding="ascii"):
            pass
        change_flags("+a", name)
        self.assertEqual(self.delete("-r", self.path("tree")), (0, [""]))
        self.assertGone("tree")

    def test_whatever_the_last_error_is(self):
        self.make("tree/log", "+a")
        os.makedirs(self.path("mounted/inside"))
        mounted = subprocess.run(["mount", "-t", "tmpfs", "none", self.path("mounted/inside")],
                                 check=False)
        if mounted.returncode != 0:
            self.skipTest("nothing can be mounted here")
        self.addCleanup(subprocess.run, ["umount", self.path("mounted/inside")], check=True)
        status, lines = self.delete("-r", self.path("tree"), self.path("mounted"))
        self.assertEqual((status, lines[0]),
                         (1, f"Cannot delete '{self.path('mounted')}': Device or resource busy"))
        self.assertTrue(lines[1].startswith(
            f"A file system is mounted at '{os.path.realpath(self.path('mounted/inside'))}'. "),
            lines[1])
        self.assertGone("tree")
        self.assertLeft("mounted")


class ProgressTest(DeleteCommandTest):

    def test_never_goes_back_and_is_complete_only_in_the_end(self):
        for number in range(20):
            self.make(f"tree-{number:02}/file", "+a" if number % 7 == 0 else None)
        paths = [self.path(f"tree-{number:02}") for number in range(20)]
        self.assertEqual(self.delete("-r", *paths), (0, [""]))
        percents = self.percents()
        self.assertEqual(percents, sorted(percents))
        self.assertEqual((percents[0], percents[-1]), (0, 100))
        # Once, as the last that is drawn, though each request ends with all of its own done.
        self.assertEqual(percents.count(100), 1)
        self.assertGreater(len(self.requests()), 1)

    def test_a_single_tree_shows_the_time_and_what_it_is_at(self):
        self.make("tree/file")
        self.assertEqual(self.delete("-r", self.path("tree")), (0, [""]))
        self.assertRegex(self.screen, rf"\r[|/\\-] 0:0\d {re.escape(self.path('tree'))}")
        self.assertEqual(self.percents(), [])

    def test_moves_while_nothing_is_reported(self):
        """The helper is stopped while it deletes, be it that it needs more to do for that."""
        self.addCleanup(os.kill, self.daemon.process.pid, signal.SIGCONT)
        for count in (1, 1000, 10000, 30000):
            terminal = self.start_terminal("delete", "-r", *(self.make(str(number))
                                                             for number in range(count)))
            terminal.expect(r"\r[|/\\-] 0:00")
            os.kill(self.daemon.process.pid, signal.SIGSTOP)
            with contextlib.suppress(AssertionError):
                terminal.expect(r"(?s)0:00.*0:01.*0:02")
                break
            os.kill(self.daemon.process.pid, signal.SIGCONT)
        os.kill(self.daemon.process.pid, signal.SIGCONT)
        self.assertRegex(terminal.seen, r"(?s)0:00.*0:01.*0:02")
        self.assertEqual(terminal.wait(), 0)

    def test_a_terminal_that_cannot_take_a_line_back_shows_nothing(self):
        for name in ("dumb", ""):
            self.make("tree/file")
            self.assertEqual(self.delete("-r", self.path("tree"), terminal=name), (0, [""]))
            self.assertEqual(self.screen, "")

    def test_a_narrow_terminal_does_not_wrap(self):
        for width in (1, 2, 5, 10, 20, 40, 79):
            names = [f"folder-{'long' * 30}/\u4f60\u597d{number}" for number in range(5)]
            for name in names:
                self.make(name)
            status, _ = self.delete(*map(self.path, names), width=width)
            self.assertEqual(status, 0)
            drawn = [part.replace("\033[K", "") for part in self.screen.split("\r")]
            self.assertGreater(len(drawn), 2)
            self.assertNotIn("\n", self.screen)
            for part in drawn:
                columns = sum(1 if ord(character) < 0x1100 else 2 for character in part)
                self.assertLess(columns, width, (width, part))
                if part.strip() and width >= 20:
                    self.assertRegex(part, r"^\S 0:\d\d( \[[#.]+\])? +\d+%( |$)", width)

    def test_without_a_terminal_no_feedback_is_asked_for(self):
        self.assertEqual(self.delete_silently(self.make("file")), (0, "", ""))
        self.assertEqual(self.delete("--", self.make("file"), options=["--json"])[0], 0)
        self.assertEqual(self.delete("--", self.make("file"), options=["--quiet"])[0], 0)
        self.assertEqual(self.requests_with_feedback(), 0)
        self.assertEqual(self.requests(), [1, 1, 1])


class PathsTest(DeleteCommandTest):

    def test_a_link_is_removed_whether_or_not_its_target_is_there(self):
        self.make("target/file")
        os.symlink("target", self.path("link"))
        os.symlink("nowhere", self.path("dangling"))
        self.make("tree/file")
        self.assertEqual(self.delete("-r", self.path("link"), self.path("dangling"),
                                     self.path("tree")), (0, [""]))
        self.assertGone("link", "dangling", "tree")
        self.assertLeft("target/file")

    def test_a_path_where_nothing_is_is_told_unless_that_is_forced(self):
        self.make("tree/file")
        missing = self.path("missing")
        self.assertEqual(self.delete("-r", missing, self.path("tree")),
                         (0, [f"There was nothing at '{missing}'.", ""]))
        self.assertEqual(self.delete("-r", "-f", missing), (0, [""]))
        self.assertEqual(self.delete("--force", missing), (0, [""]))
        self.assertEqual(self.delete(missing), (1, [
            f"Cannot delete '{missing}': No such file or directory", "Check the path.", ""]))

    def test_each_object_has_its_own_error(self):
        self.make("full/file")
        self.make("kept/file")
        change_flags("+a", self.path("kept"))
        self.make("gone")
        names = ("full", "missing", "gone", "kept/file")
        expected = [f"Cannot delete '{self.path('full')}': Directory not empty",
                    "The folder is not empty. Use -r to delete it with its contents.",
                    f"Cannot delete '{self.path('missing')}': No such file or directory",
                    "Check the path.",
                    f"Cannot delete '{self.path('kept/file')}': Operation not permitted"]
        status, lines = self.delete(*map(self.path, names))
        self.assertEqual((status, lines[:5]), (1, expected))
        status, output, error = self.delete_silently(*map(self.path, names), options=["--json"])
        self.assertEqual((status, error), (1, ""))
        left = json.loads(output)["result"]["left"]
        self.assertEqual([(each["path"], each["error"]["code"]) for each in left],
                         [(self.path("full"), 66), (self.path("kept/file"), 1)])

    def test_the_one_object_that_is_left_has_its_own_error_and_not_that_of_a_missing_one(self):
        self.make("full/file")
        for names in (("full", "missing"), ("missing", "full")):
            answer = self.delete_silently(*map(self.path, names), options=["--json"])
            left = json.loads(answer[1])["result"]["left"]
            self.assertEqual([(each["path"], each["error"]["code"]) for each in left],
                             [(self.path("full"), 66)])
            _, lines = self.delete(*map(self.path, names))
            self.assertIn(f"Cannot delete '{self.path('full')}': Directory not empty", lines)
            self.assertIn(f"Cannot delete '{self.path('missing')}': No such file or directory", lines)


class ListTest(DeleteCommandTest):

    def list_of(self, *paths, end="\n"):
        with open(self.path("list"), "w", encoding="utf-8") as file:
            file.write(end.join(paths))
        return self.path("list")

    def test_what_a_file_lists_is_deleted_with_what_is_named(self):
        names = ("named", "first", "with space", "[brackets]", "last")
        for name in names:
            self.make(name)
        paths = [self.path(name) for name in names]
        self.assertEqual(self.delete_silently("--files-from",
                                              self.list_of(*paths[1:3], "", *paths[3:]), paths[0]),
                         (0, "", ""))
        self.assertGone(*names)
        self.assertEqual(self.requests(), [len(names)])

    def test_zero_bytes_allow_for_every_name(self):
        names = ("with\nline", "plain")
        for name in names:
            self.make(name)
        given = "".join(self.path(name) + "\0" for name in names)
        self.assertEqual(self.delete_silently("--files-from", "-", "-0", given=given), (0, "", ""))
        self.assertGone(*names)

    def test_what_is_too_much_for_one_message_is_sent_in_portions(self):
        """For the helper there is nothing to do, whatever the paths are."""
        short = [f"/{number:06}" for number in range(10_500)]
        status, _, _ = self.delete_silently("-r", "--files-from", self.list_of(*short))
        self.assertEqual((status, self.requests()), (0, [10_000, 500]))

        folders = "/".join(["x" * 250] * 12)
        long = [self.path(f"{folders}/{number:06}") for number in range(2000)]
        status, _, _ = self.delete_silently("-r", "--files-from", self.list_of(*long))
        first, second = self.requests()[2:]
        self.assertEqual((status, first + second), (0, len(long)))
        self.assertLess(first * len(long[0]), 4 << 20)
        self.assertGreater(first, second)

    def test_an_empty_list_is_nothing_to_do(self):
        for arguments in (("-",), ("-", "-0")):
            self.assertEqual(self.delete_silently("--files-from", *arguments), (0, "", ""))
        self.assertEqual(self.requests(), [])

    def test_a_list_that_cannot_be_read_deletes_nothing(self):
        path = self.make("file")
        for name, why in (("none", "No such file or directory"), ("", "Is a directory")):
            status, _, error = self.delete_silently("--files-from", self.path(name), path)
            self.assertEqual((status, error.splitlines()[0]),
                             (1, f"Cannot read the list '{self.path(name)}': {why}"))
        self.assertLeft("file")

    def test_something_must_be_named_and_zeros_need_a_list(self):
        for arguments in ((), ("-0", self.path("x")), ("-r",)):
            self.assertEqual(self.delete_silently(*arguments)[0], 2)

    def test_whoever_has_a_terminal_sees_progress_of_a_list_from_elsewhere(self):
        self.make("a")
        self.make("b")
        terminal = self.start_terminal(
            "delete", "--files-from", self.list_of(self.path("a"), self.path("b")))
        self.assertEqual(terminal.wait(), 0)
        self.assertIn("%", terminal.seen)


class StoppedTest(DeleteCommandTest):
    """Ctrl-C in the middle of a deletion, however fast the machine is."""

    def setUp(self):
        super().setUp()
        self.tree = BigTree(self)
        self.make("target")
        os.symlink("target", self.path("link"))
        self.addCleanup(os.kill, self.daemon.process.pid, signal.SIGCONT)

    def stop(self, *options):
        """The exit status and the lines in the end of a deletion that is stopped in the tree; the
        link has its turn behind that."""
        terminal = self.start_terminal(*options, "delete", "-r", self.path("link"),
                                       self.make("first"), self.tree.path)
        self.tree.hold_in_its_middle(self.daemon.process.pid)
        terminal.type("\x03")
        terminal.expect(r"Stopping\. Press Ctrl-C again to leave at once\.")
        os.kill(self.daemon.process.pid, signal.SIGCONT)
        self.terminal = terminal
        return terminal.wait(), self.lines_of(terminal)

    def test_nothing_of_the_line_that_moves_stays_above(self):
        _, lines = self.stop()
        self.assertEqual(lines[0], "Stopping. Press Ctrl-C again to leave at once.")
        self.assertRegex(self.terminal.seen, r"\d%.*\^C\r\033\[KStopping")

    def test_what_is_left_is_not_begun_and_told(self):
        status, lines = self.stop()
        self.assertEqual((status, lines[-4:]), (4, [
            f"Cannot delete '{self.path('link')}' and others: Operation canceled",
            "It was stopped. What had been done by then stays done.",
            "Deleted by then: 1 of 3.", ""]))
        self.assertGone("first")
        self.assertLeft("link")
        self.assertGreater(self.tree.left(), 0)
        self.assertEqual(self.requests(), [2])

    def test_json_has_the_objects_that_are_left(self):
        status, lines = self.stop("--json")
        shown = "\n".join(lines)
        result = json.loads(shown[shown.index("{"):])
        self.assertEqual((status, result["code"]), (4, 89))
        self.assertEqual([each["path"] for each in result["result"]["left"]],
                         [self.path("link"), self.tree.path])


class AuthorizedTest(DeleteCommandTest):
    """What the file system does not permit is no refusal, however it was asked."""

    def setUp(self):
        super().setUp()
        self.kept = self.make("kept/file")
        change_flags("+a", self.path("kept"))

    def assertNotRefused(self, answer):
        status, lines = answer
        self.assertEqual((status, lines[0]),
                         (1, f"Cannot delete '{self.kept}': Operation not permitted"))
        self.assertTrue(lines[1].startswith(PROTECTED), lines[1])

    def test_with_feedback(self):
        self.assertNotRefused(self.delete(self.kept))

    def test_without_feedback(self):
        self.assertNotRefused(self.delete(self.kept, options=["--no-feedback"]))
        status, _, error = self.delete_silently("-r", self.kept)
        self.assertNotRefused((status, error.splitlines()))
        self.assertEqual(self.requests(), [1, 1])

    def test_of_the_helpers_own_files(self):
        result = subprocess.run(self.command("delete-files", self.kept), stderr=subprocess.PIPE,
                                text=True, timeout=PATIENCE, check=False,
                                env={**os.environ, **environment_for(self.folder),
                                     "LC_ALL": "C.UTF-8"})
        self.assertNotRefused((result.returncode, result.stderr.splitlines()))


class AdviceTest(DeleteCommandTest):

    def test_what_another_program_holds(self):
        path = self.make("tree/held")
        held = os.open(path, os.O_RDWR)
        self.addCleanup(os.close, held)
        change_flags("+i", path)
        # Who is asked to give a lease back is sent this, and ended by it.
        self.addCleanup(signal.signal, signal.SIGIO, signal.signal(signal.SIGIO, signal.SIG_IGN))
        fcntl.fcntl(held, fcntl.F_SETLEASE, fcntl.F_WRLCK)
        self.addCleanup(fcntl.fcntl, held, fcntl.F_SETLEASE, fcntl.F_UNLCK)
        tree = self.path("tree")
        self.assertEqual(self.delete("-r", tree), (1, [
            f"Cannot delete '{tree}': Resource temporarily unavailable",
            "Another program holds a lease on it. Close that program, or wait, and try again.",
            ""]))

    def test_a_folder_that_is_moved_away_meanwhile(self):
        tree = BigTree(self)
        self.addCleanup(os.kill, self.daemon.process.pid, signal.SIGCONT)
        terminal = self.start_terminal("delete", "-r", tree.path)
        tree.hold_in_its_middle(self.daemon.process.pid)
        elsewhere = f"{tree.path}-elsewhere"
        os.mkdir(elsewhere)
        self.addCleanup(shutil.rmtree, elsewhere)
        for name in os.listdir(tree.path):
            os.rename(f"{tree.path}/{name}", f"{elsewhere}/{name}")
        os.kill(self.daemon.process.pid, signal.SIGCONT)
        self.assertEqual((terminal.wait(), self.lines_of(terminal)), (1, [
            f"Cannot delete '{tree.path}': A folder was moved away while it was being deleted.",
            "Somebody moves folders out of it. Put an end to that, and try again.", ""]))

    def test_a_folder_that_somebody_keeps_writing_into(self):
        mounted = self.path("mounted")
        os.mkdir(mounted)
        server = subprocess.Popen(["/usr/bin/python3", f"{SOURCES}/tests/client/refilled_folders.py",
                                   mounted], stdout=subprocess.PIPE, text=True)
        self.addCleanup(subprocess.run, ["umount", "-l", mounted], check=False,
                        stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        self.addCleanup(server.stdout.close)
        if (answer := server.stdout.readline().strip()) != "ready":
            self.skipTest(f"no file system can be made here: {answer}")
        tree = f"{mounted}/tree"
        failure = f"Cannot delete '{tree}': Directory not empty"
        self.assertEqual(self.delete("-r", tree), (1, [
            failure, "Somebody keeps writing into it. Put an end to that, and try again.", ""]))
        self.assertEqual(self.delete(tree), (1, [
            failure, "The folder is not empty. Use -r to delete it with its contents.", ""]))

    def test_names_that_are_too_long_and_links_without_end(self):
        os.symlink("loop", self.path("loop"))
        self.make("file")
        for name, what, advice in (
                ("x" * 256, "File name too long", "The path, or a name in it, is too long. "
                 "Delete a folder further up instead."),
                ("loop/file", "Too many levels of symbolic links",
                 "The path leads through too many links. Name the object without them."),
                ("file/file", "Not a directory",
                 "Something in the path is no folder. Check the path.")):
            self.assertEqual(self.delete(self.path(name)),
                             (1, [f"Cannot delete '{self.path(name)}': {what}", advice, ""]))


if __name__ == "__main__":
    main()
