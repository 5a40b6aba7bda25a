"""What shells offer after the tool's name is what its help tells."""

import os
import pty
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

PROGRAMS = os.environ["CORVANE_PROGRAMS"]
COMPLETION = f"{os.environ['CORVANE_SOURCES']}/packaging/completion"
TOOL = "privilegerequestor-vnt"

# What `words` may be followed by in bash, line by line.
BASH = """
source /usr/share/bash-completion/bash_completion
source "$0"
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE}
function=$(complete -p "$1" | sed 's/.*-F \\([^ ]*\\).*/\\1/')
"$function" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""

# The same in zsh, which completes only what is typed: what it would add goes into a file.
ZSH = """
fpath=("$COMPLETION" $fpath)
autoload -Uz compinit && compinit -u -D
compadd() {
  local -a hits
  [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\\ * ]] || { builtin compadd -A hits "$@"; print -rl -- $hits >>$FOUND }
  builtin compadd "$@"
}
finish() { zle list-choices; print done >>$FOUND.done }
zle -N finish
bindkey '^T' finish
"""


def first_words(text):
    return {line.split()[0].rstrip(",") for line in text.splitlines() if line.strip()}


def in_bash(*words):
    listed = subprocess.run(["bash", "-c", BASH, f"{COMPLETION}/{words[0]}.bash", *words],
                            check=True, text=True, stdout=subprocess.PIPE).stdout
    return first_words(listed)


def in_fish(*words):
    command = f"source {COMPLETION}/{TOOL}.fish; complete -C '{' '.join(words)}'"
    return first_words(subprocess.run(["fish", "--no-config", "-c", command], check=True, text=True,
                                      stdout=subprocess.PIPE).stdout)


def in_zsh(*words):
    with tempfile.TemporaryDirectory(prefix="corvane-test.") as folder:
        found = f"{folder}/found"
        for path, content in ((f"{folder}/.zshrc", ZSH), (found, "")):
            with open(path, "w", encoding="ascii") as file:
                file.write(content)
        ours, theirs = pty.openpty()
        with os.fdopen(ours, "r+b", buffering=0) as terminal:
            with subprocess.Popen(
                    ["zsh", "-i"], stdin=theirs, stdout=theirs, stderr=theirs, start_new_session=True,
                    env={**os.environ, "ZDOTDIR": folder, "COMPLETION": COMPLETION, "FOUND": found,
                         "TERM": "dumb"}) as shell:
                os.close(theirs)
                terminal.write(" ".join(words).encode() + b"\x14")
                while not os.path.exists(f"{found}.done"):
                    terminal.read(4096)
                shell.kill()
        with open(found, encoding="utf-8") as file:
            return first_words(file.read())


SHELLS = {"bash": in_bash, "fish": in_fish, "zsh": in_zsh}


def help_of(*command):
    return subprocess.run([f"{PROGRAMS}/{TOOL}", *command, "--help"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout


def options_of(*command):
    """The long options, but for those that packages' scripts alone need."""
    listed = re.findall(r"^ +(?:-\w,)?(--[\w-]+)", help_of(*command), re.MULTILINE)
    return set(listed) - {"--for-package"}


def commands():
    return first_words(help_of().split("Subcommands:\n")[1])


class CompletionTest(unittest.TestCase):

    def assertOffered(self, words, expected):
        for shell, offered in SHELLS.items():
            with self.subTest(shell=shell, words=words):
                if not shutil.which(shell):
                    self.skipTest(f"there is no {shell}")
                self.assertEqual(offered(TOOL, *words), expected)

    def test_commands(self):
        self.assertOffered([""], commands())

    def test_options_before_the_command(self):
        self.assertOffered(["--"], options_of())

    def test_options_of_each_command(self):
        for command in sorted(commands() - {"preferences"}):
            self.assertOffered([command, "--"], options_of(command))

    def test_options_about_preferences(self):
        for verb in ("set", "remove", "get"):
            self.assertOffered(["preferences", verb, "--"], options_of("preferences", verb))

    def test_operations_that_may_be_asked_about(self):
        listed = subprocess.run([f"{PROGRAMS}/{TOOL}", "operations"], check=True, text=True,
                                stdout=subprocess.PIPE).stdout
        self.assertOffered(["may", ""], set(re.findall(r"^ *\d+ +([\w-]+)", listed, re.MULTILINE)))

    def test_states_and_utilities(self):
        self.assertOffered(["debug", ""], {"on", "off"})
        self.assertOffered(["execute", ""], {"launchctl", "lipo"})

    def test_labels_of_jobs(self):
        with tempfile.TemporaryDirectory(prefix="corvane-test.") as folder:
            with open(f"{folder}/launchctl", "w", encoding="ascii") as program:
                program.write("#!/bin/sh\nprintf 'PID\\tStatus\\tLabel\\n-\\t0\\torg.example.one\\n'\n")
            os.chmod(f"{folder}/launchctl", 0o755)
            with unittest.mock.patch.dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}"):
                self.assertEqual(in_bash("launchctl", "stop", ""), {"org.example.one"})
        self.assertIn("kickstart", in_bash("launchctl", "k"))


if __name__ == "__main__":
    sys.exit(not unittest.main(exit=False, verbosity=2).result.wasSuccessful())
