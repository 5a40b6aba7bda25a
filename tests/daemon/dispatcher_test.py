"""Requests from entry to reply: what the dispatcher logs and answers."""

import itertools
import os
import threading

from gi.repository import GLib

from bus import (DELETE_FILEOBJECTS, DELETE_FILES, DISCARD_AUTH, EXECUTE_UTILITY, MARKER,
                 MODIFY_PREFERENCES, NOP, PERFORM_UNINSTALL, POSIX, PREPARE_UNINSTALL, Client,
                 dictionary, named)
from log_lines import about, completed, executed, metadata, rejected, unauthorized
from support import ERROR, TEST_PROGRAMS, DaemonTest, bench_only, main, wait_until

INVALID = (POSIX, 22, {})

class DispatcherTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())
        self.own_form = self.form()

    def assertAnswered(self, expected, messages, code, arguments=(), form=None):
        """The request is answered with `expected` and has logged exactly `messages`."""
        mark = self.log.mark()
        form = self.own_form if form is None else form
        self.assertEqual(self.client.perform(code, form, arguments), expected)
        self.assertLogged(mark, *messages)

    def test_nop_is_answered_without_an_error(self):
        self.assertAnswered(None, [about("nop", 0), completed("nop", 0)], NOP)

    def test_discard_auth_is_answered_without_an_error(self):
        self.assertAnswered(None, [about("discard-auth", 0), completed("discard-auth", 0)],
                            DISCARD_AUTH)

    def test_prepare_uninstall_is_not_implemented(self):
        self.assertAnswered((POSIX, 78, {}),
                            [about("prepare-uninstall", 0), completed("prepare-uninstall", 78)],
                            PREPARE_UNINSTALL)

    def test_a_code_outside_the_catalogue_is_answered_before_any_authorization(self):
        for code in (9999, 3, 9993, 0x7fffffffffffffff, 0xffffffffffffffff):
            with self.subTest(code=code):
                mark = self.log.mark()
                self.assertEqual(self.client.perform(code, b"no form"), INVALID)
                self.assertLoggedWithAddress(
                    mark,
                    (ERROR, f"Received invalid operation with code {code} argument list %p."))

    def test_an_absent_argument_list_is_no_empty_one(self):
        for code in (NOP, DELETE_FILEOBJECTS, 9999):
            with self.subTest(code=code):
                self.assertAnswered(
                    INVALID,
                    [(ERROR, f"Received invalid operation with code {code} argument list (nil).")],
                    code, None, form=b"no form")
        self.assertAnswered(None, [about("nop", 0), completed("nop", 0)], NOP, [])

    def test_the_number_of_arguments_is_checked_after_the_authorization(self):
        self.assertAnswered(
            INVALID,
            [about("modify-preferences", 4),
             rejected("modify-preferences", "an invalid number of arguments was specified "
                      "(5 expected, 4 sent).")],
            MODIFY_PREFERENCES, ["a", "b", "c", "d"])
        self.assertAnswered(
            INVALID,
            [about("nop", 1), rejected("nop", "an invalid number of arguments was specified "
                                       "(0 expected, 1 sent).")],
            NOP, ["one"])
        self.assertAnswered(
            INVALID,
            [about("modify-preferences", 4),
             unauthorized(22)],
            MODIFY_PREFERENCES, ["a", "b", "c", "d"], form=b"no form")

    def test_an_argument_of_the_wrong_kind_is_named_with_its_index_kind_and_letter(self):
        number, text = GLib.Variant("i", 7), "text"
        cases = [
            (PERFORM_UNINSTALL, "perform-uninstall", [text, text, text], 0, "string", "N"),
            (PERFORM_UNINSTALL, "perform-uninstall", [text, number, number], 0, "string", "N"),
            (PERFORM_UNINSTALL, "perform-uninstall", [b"\1", text, text], 0, "data", "N"),
            (PERFORM_UNINSTALL, "perform-uninstall", [number, b"\1", number], 1, "data", "S"),
            (PERFORM_UNINSTALL, "perform-uninstall", [number, text, number], 2, "number", "S"),
            (MODIFY_PREFERENCES, "modify-preferences",
             [text, text, text, text, GLib.Variant("as", [])], 4, "array", "S"),
            (MODIFY_PREFERENCES, "modify-preferences",
             [dictionary(), text, text, text, text], 0, "dictionary", "S"),
            (MODIFY_PREFERENCES, "modify-preferences",
             [text, GLib.Variant("(sxa{sv})", ("d", 1, {})), text, text, text], 1, "error", "S"),
        ]
        for code, identifier, arguments, index, kind, letter in cases:
            with self.subTest(identifier=identifier, index=index, kind=kind):
                self.assertAnswered(
                    INVALID,
                    [about(identifier, len(arguments)),
                     rejected(identifier,
                              f"argument {index} has class {kind} (expected type '{letter}').")],
                    code, arguments)

    def test_a_variable_list_takes_strings_only(self):
        others = [("number", GLib.Variant(letter, 1)) for letter in "ynqiuxtd"]
        others += [("number", GLib.Variant("b", True)), ("data", b""), ("data", b"\0\1"),
                   ("dictionary", dictionary(key="value")), ("array", GLib.Variant("as", ["a"])),
                   ("array", GLib.Variant("ai", [1])), ("array", GLib.Variant("av", []))]
        operations = [(DELETE_FILEOBJECTS, "delete-fileobjects"), (DELETE_FILES, "delete-files"),
                      (EXECUTE_UTILITY, "execute-utility")]
        for (kind, value), (code, identifier) in zip(others, itertools.cycle(operations)):
            with self.subTest(identifier=identifier, kind=kind, type=str(value)):
                arguments = ["0", "0", value, GLib.Variant("av", [])]
                self.assertAnswered(
                    INVALID,
                    [about(identifier, 4),
                     rejected(identifier, f"at least one argument has class {kind} "
                              "(string expected).")],
                    code, arguments)

    def test_an_empty_variable_list_reaches_the_operation(self):
        self.assertAnswered(
            INVALID,
            [about("delete-fileobjects", 0), executed("delete-fileobjects", "disabled"),
             completed("delete-fileobjects", 22)],
            DELETE_FILEOBJECTS, [])

    def test_metadata_is_taken_off_the_arguments(self):
        path = self.file("object")
        texts = dictionary(ZELAuthorizationPrompt="Please.")
        self.assertAnswered(
            None,
            [about("delete-fileobjects", 5), metadata(3, 1),
             executed("delete-fileobjects", "disabled"), completed("delete-fileobjects", 0)],
            DELETE_FILEOBJECTS, [MARKER, texts, "0", "0", path])
        self.assertFalse(os.path.lexists(path))

    def test_metadata_of_other_keys_and_kinds_is_ignored_and_counted(self):
        texts = dictionary(ZELAuthorizationPrompt=GLib.Variant("i", 7),
                           ZELAuthorizationIcon=GLib.Variant("ay", b"/icon"),
                           other="value", more=GLib.Variant("a{sv}", {}))
        self.assertAnswered(None, [about("nop", 2), metadata(0, 4), completed("nop", 0)],
                            NOP, [MARKER, texts])
        self.assertAnswered(None, [about("nop", 2), metadata(0, 0), completed("nop", 0)],
                            NOP, [MARKER, dictionary()])

    def test_only_one_pair_of_metadata_is_taken_off(self):
        self.assertAnswered(
            INVALID,
            [about("nop", 4), metadata(2, 0),
             rejected("nop", "an invalid number of arguments was specified (0 expected, 2 sent).")],
            NOP, [MARKER, dictionary(), MARKER, dictionary()])

    def test_a_marker_without_a_dictionary_is_an_argument(self):
        tails = [[], ["text"], [b"data"], [GLib.Variant("as", [])], [GLib.Variant("av", [])],
                 ["text", dictionary()]]
        for tail in tails:
            with self.subTest(tail=[str(value) for value in tail]):
                count = 1 + len(tail)
                self.assertAnswered(
                    INVALID,
                    [about("nop", count),
                     rejected("nop", "an invalid number of arguments was specified "
                              f"(0 expected, {count} sent).")],
                    NOP, [MARKER, *tail])

    def test_a_marker_elsewhere_or_of_another_kind_is_an_argument(self):
        for arguments in (["text", MARKER, dictionary()], [MARKER.encode(), dictionary()],
                          [MARKER.lower(), dictionary()], [dictionary(), MARKER]):
            with self.subTest(arguments=[str(value) for value in arguments]):
                self.assertAnswered(
                    INVALID,
                    [about("nop", len(arguments)),
                     rejected("nop", "an invalid number of arguments was specified "
                              f"(0 expected, {len(arguments)} sent).")],
                    NOP, arguments)

    def test_a_marker_followed_by_a_string_is_a_path_like_the_others(self):
        path = self.file("object")
        # The marker stands where "0" or "1" is expected, so nothing is deleted.
        self.assertAnswered(
            INVALID,
            [about("delete-fileobjects", 3), executed("delete-fileobjects", "disabled"),
             completed("delete-fileobjects", 22)],
            DELETE_FILEOBJECTS, [MARKER, "0", path])
        self.assertTrue(os.path.exists(path))

    def test_an_endpoint_is_ignored_by_an_operation_without_feedback(self):
        with open(os.devnull, "rb") as no_endpoint:
            mark = self.log.mark()
            self.assertIsNone(self.client.perform(NOP, self.own_form, (), no_endpoint))
        self.assertLogged(mark, about("nop", 0), completed("nop", 0))

    def test_a_rejected_request_leaves_the_daemon_ready(self):
        for _ in range(20):
            self.assertEqual(self.client.perform(9999, b""), INVALID)
            self.assertEqual(self.client.perform(NOP, self.own_form, ["x"]), INVALID)
        self.assertIsNone(self.client.perform(NOP, self.own_form))

    def test_the_own_failure_of_an_operation_travels_with_its_user_information(self):
        path = f"{self.folder}/folder"
        os.makedirs(f"{path}/inner")
        mark = self.log.mark()
        domain, code, info = self.client.perform(DELETE_FILEOBJECTS, self.own_form,
                                                 ["0", "0", path])
        self.assertEqual((domain, code), (POSIX, 66))
        self.assertTrue(os.path.isdir(f"{path}/inner"))
        self.assertIsInstance(info, dict)
        self.assertLogged(mark, about("delete-fileobjects", 3),
                          executed("delete-fileobjects", "disabled"),
                          completed("delete-fileobjects", 66))

    def test_operations_of_clients_that_never_registered_are_served(self):
        self.assertIsNone(self.client.perform(NOP, self.own_form))
        self.assertNotIn("Beginning work", "\n".join(self.log.after(0)))

    def file(self, name):
        path = f"{self.folder}/{name}"
        with open(path, "wb"):
            pass
        return path


@bench_only("it serves another set of operations")
class OtherOperationSetTest(DaemonTest):
    """What no operation of the product's catalogue can bring about."""

    PROGRAM = f"{TEST_PROGRAMS}/daemon-of-test-operationset"

    UNKNOWN_LETTER, NO_METHOD, RAISE, RAISE_OTHER, GIVE_BACK = 1, 2, 3, 4, 5
    RAISE_NUMBER, BLOCK, UNSENDABLE = 8, 9, 10

    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def test_an_unknown_type_letter_is_found_after_the_arguments_before_it(self):
        mark = self.log.mark()
        form = self.form()
        self.assertEqual(self.client.perform(self.UNKNOWN_LETTER, form, ["a", "b"]), INVALID)
        self.assertLogged(mark, about("unknown-letter", 2),
                          rejected("unknown-letter", "a contradiction in its definition has been "
                                   "detected (invalid type code 'X')."))
        mark = self.log.mark()
        self.assertEqual(self.client.perform(self.UNKNOWN_LETTER, form, [b"a", "b"]), INVALID)
        self.assertLogged(mark, about("unknown-letter", 2),
                          rejected("unknown-letter",
                                   "argument 0 has class data (expected type 'S')."))

    def test_an_operation_without_a_method_is_not_implemented(self):
        mark = self.log.mark()
        self.assertEqual(self.client.perform(self.NO_METHOD, self.form()), (POSIX, 78, {}))
        self.assertLogged(
            mark, about("no-method", 0),
            (ERROR, "Privileged operation no-method could not be performed because no "
             "implementation found."),
            completed("no-method", 78))

    def test_an_exception_of_an_operation_is_answered_with_interrupted(self):
        cases = [("Name", "Reason."), ("", "Reason."), ("Name", ""), ("", "")]
        for name, reason in cases:
            with self.subTest(name=name, reason=reason):
                mark = self.log.mark()
                self.assertEqual(self.client.perform(self.RAISE, self.form(), [name, reason]),
                                 (POSIX, 4, {}))
                self.assertLogged(
                    mark, about("raise", 2), executed("raise", "disabled"),
                    (ERROR, f"The exception '{name or '<nil>'}' occurred while trying to execute "
                     f"the privileged operation: {reason or '<nil>'}"),
                    completed("raise", 4))

    def test_an_exception_of_the_language_is_caught_too(self):
        mark = self.log.mark()
        self.assertEqual(self.client.perform(self.RAISE_OTHER, self.form()), (POSIX, 4, {}))
        self.assertLogged(
            mark, about("raise-other", 0), executed("raise-other", "disabled"),
            (ERROR, "The exception 'std::exception' occurred while trying to execute the "
             "privileged operation: too long"),
            completed("raise-other", 4))

    def test_what_is_raised_without_being_an_exception_is_caught_too(self):
        mark = self.log.mark()
        self.assertEqual(self.client.perform(self.RAISE_NUMBER, self.form()), (POSIX, 4, {}))
        self.assertLogged(
            mark, about("raise-number", 0), executed("raise-number", "disabled"),
            (ERROR, "The exception '<nil>' occurred while trying to execute the privileged "
             "operation: <nil>"),
            completed("raise-number", 4))

    def test_arguments_and_errors_keep_their_types_on_the_way(self):
        numbers = {"y": 255, "n": -32768, "q": 65535, "i": -2**31, "u": 2**32 - 1, "x": -2**63,
                   "t": 2**64 - 1, "d": 0.5, "b": True}
        for letter, number in numbers.items():
            with self.subTest(type=letter):
                content = bytes(range(256))
                domain, code, info = self.client.perform(
                    self.GIVE_BACK, self.form(), ["ä€😀", GLib.Variant(letter, number), content])
                self.assertEqual((domain, code), ("outer", 7))
                text, returned, returned_data = info["arguments"]
                self.assertEqual((text, bytes(returned_data)), ("ä€😀", content))
                self.assertEqual((type(returned), returned), (type(number), number))
                self.assertEqual(info["underlying"], ("inner", -1, {"key": "value"}))

    def test_an_error_that_no_message_can_hold_arrives_as_far_as_one_can(self):
        cases = [("domain", (POSIX, 92, {})), ("not UTF-8", ("outer", 7, {})),
                 ("zero byte", ("outer", 7, {})), ("no domain", ("", 7, {})),
                 ("nested", ("outer", 7, {})), ("large", ("outer", 7, {}))]
        for which, (what, expected) in enumerate(cases):
            with self.subTest(what):
                answer = self.client.perform(self.UNSENDABLE, self.form(),
                                             [GLib.Variant("x", which)])
                self.assertEqual(answer, expected)

    def test_an_error_arrives_with_as_much_nesting_as_there_is_in_a_message(self):
        _, _, info = self.client.perform(self.UNSENDABLE, self.form(), [GLib.Variant("x", -10)])
        for _ in range(9):
            _, _, info = info["underlying"]
        self.assertEqual(info["underlying"], ("outer", 7, {}))

    def block(self, token="token"):
        """A request whose operation goes on until the descriptor that comes with it is closed."""
        path = f"{self.folder}/block-{token}"
        os.mkfifo(path)
        client, form = Client(self.daemon.connect()), self.form()
        answers = []

        def perform():
            try:
                answers.append(client.perform(self.BLOCK, form, named(token, [path])))
            except GLib.Error as error:
                answers.append(error)

        request = threading.Thread(target=perform, daemon=True)
        request.answers = answers
        request.start()
        held = []

        def is_blocked():
            try:
                held.append(os.open(path, os.O_WRONLY | os.O_NONBLOCK))
            except OSError:
                pass
            return held

        wait_until(is_blocked, "the operation waits")
        return request, held[0]

    def assertOthersAreServed(self):
        self.assertEqual(self.client.perform(self.RAISE_NUMBER, self.form()), (POSIX, 4, {}))

    def test_an_operation_that_blocks_for_ever_keeps_nobody_else_waiting(self):
        blocked = [self.block(f"token-{number}") for number in range(20)]
        self.assertOthersAreServed()
        for request, held in blocked:
            os.close(held)
            request.join()
            self.assertEqual(request.answers, [None])

    def test_an_operation_that_takes_no_notice_is_in_progress_until_it_ends(self):
        request, held = self.block("token")
        for _ in range(2):
            self.assertTrue(self.client.cancel("token"))
        self.assertOthersAreServed()
        self.assertEqual(request.answers, [])
        os.close(held)
        request.join()
        # What it says counts, as it may have been past the last point where it could stop.
        self.assertEqual(request.answers, [None])
        self.assertFalse(self.client.cancel("token"))

    def test_the_helper_ends_with_its_last_client_whatever_still_blocks(self):
        self.client.register(os.getpid())
        request, held = self.block()
        self.client.unregister(os.getpid())
        self.assertEndsWith(0)
        request.join()
        self.assertIsInstance(request.answers[0], GLib.Error)
        os.close(held)


if __name__ == "__main__":
    main()
