"""Requests from entry to reply, over a connection made by GDBus."""

from bus import NOP, Client
from support import DEBUG, DaemonTest, main


class DispatcherTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def test_nop_is_answered_without_an_error(self):
        mark = self.log.mark()
        self.assertIsNone(self.client.perform(NOP, self.form()))
        self.assertLogged(mark,
                          (DEBUG, "About to perform privileged operation 'nop' with 0 arguments."),
                          (DEBUG, "Operation nop was completed with return code 0."))


if __name__ == "__main__":
    main()
