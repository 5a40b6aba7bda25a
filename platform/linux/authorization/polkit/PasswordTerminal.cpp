#include "platform/linux/authorization/polkit/PasswordTerminal.h"

#include <atomic>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace corvane {

namespace {

// What the handler of a signal needs: the terminal and its reader, while there are, and how it was.
std::atomic<int> heldTerminal = -1;
std::atomic<pid_t> heldReader = 0;
std::atomic<bool> isHolding = false;
termios modesBefore{};

std::atomic<bool> isPromptLeft = true;

// Until it is stopped it may take the first character of what is meant for the shell.
void stop(pid_t reader) {
  siginfo_t unused;
  if (::kill(reader, SIGSTOP) != 0) return;
  while (::waitid(P_PID, static_cast<id_t>(reader), &unused, WSTOPPED) != 0 && errno == EINTR) {
  }
}

void stopAndHideAgain(int signal) {
  const int error = errno;
  const int terminal = heldTerminal.load();
  const pid_t reader = heldReader.load();
  if (reader > 0) stop(reader);
  termios hidden{};
  const bool isKnown = terminal >= 0 && ::tcgetattr(terminal, &hidden) == 0;
  if (isKnown) ::tcsetattr(terminal, TCSANOW, &modesBefore);

  // What happens by default: this process stops here, unless nobody could have it go on.
  struct sigaction own {};
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  ::sigaction(signal, &byDefault, &own);
  ::raise(signal);
  ::sigaction(signal, &own, nullptr);

  // Still in the background, it stops here again.
  if (isKnown) ::tcsetattr(terminal, TCSAFLUSH, &hidden);
  if (isKnown && heldTerminal.load() != terminal) ::tcsetattr(terminal, TCSANOW, &modesBefore);
  if (reader > 0) ::kill(reader, SIGCONT);
  errno = error;
}

bool isLeftToTheSystem(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

}  // namespace

FileDescriptor controllingTerminal() {
  return FileDescriptor(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
}

PasswordTerminal::PasswordTerminal() : _terminal(controllingTerminal()) {
  isPromptLeft = false;
  if (!_terminal || ::tcgetattr(_terminal.get(), &_modes.emplace()) != 0) {
    _modes.reset();
    return;
  }
  if (!isLeftToTheSystem(SIGTSTP) || isHolding.exchange(true)) return;
  _isHeld = true;
  modesBefore = *_modes;
  heldTerminal = _terminal.get();
  struct sigaction action {};
  action.sa_handler = &stopAndHideAgain;
  // The signal is raised once more in its handler.
  action.sa_flags = SA_RESTART | SA_NODEFER;
  ::sigaction(SIGTSTP, &action, nullptr);
}

void PasswordTerminal::setReader(pid_t reader) {
  if (_isHeld) heldReader = reader;
}

bool PasswordTerminal::leavePrompt() {
  const FileDescriptor terminal = controllingTerminal();
  termios modes{};
  // The echo is what a reader switches off while it waits.
  const bool isAtPrompt =
      terminal && ::tcgetattr(terminal.get(), &modes) == 0 && (modes.c_lflag & ECHO) == 0;
  return isAtPrompt && !isPromptLeft.exchange(true) && ::write(terminal.get(), "\n", 1) == 1;
}

PasswordTerminal::~PasswordTerminal() {
  leavePrompt();
  if (_isHeld) {
    std::signal(SIGTSTP, SIG_DFL);
    heldReader = 0;
    heldTerminal = -1;
  }
  if (_modes) ::tcsetattr(_terminal.get(), TCSADRAIN, &*_modes);
  if (_isHeld) isHolding = false;
}

}  // namespace corvane
