#include "platform/AuthenticationAgent.h"

#include <array>
#include <chrono>
#include <csignal>
#include <optional>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/linux/authorization/polkit/AgentPresence.h"
#include "platform/linux/processes/ProcessIdentity.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {

namespace {

constexpr const char* program = "/usr/bin/pkttyagent";
constexpr std::chrono::seconds startTimeout{10};

bool canStartOnTerminal() {
  return ::isatty(STDIN_FILENO) != 0 && ::access(program, X_OK) == 0;
}

/// polkit's own text agent, as a child process.
class TextAgent : public AuthenticationAgent {
 public:
  explicit TextAgent(pid_t process) : _process(process) {
    if (::tcgetattr(STDIN_FILENO, &_terminal.emplace()) != 0) _terminal.reset();
  }
  TextAgent(const TextAgent&) = delete;
  TextAgent& operator=(const TextAgent&) = delete;
  ~TextAgent() override {
    ::kill(_process, SIGTERM);
    ::kill(_process, SIGCONT);
    ::waitpid(_process, nullptr, 0);
    // The agent switches the echo off while it reads a password, and may have ended just then.
    if (_terminal) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &*_terminal);
  }

 private:
  const pid_t _process;
  std::optional<termios> _terminal;
};

}  // namespace

std::unique_ptr<AuthenticationAgent> AuthenticationAgent::startOnTerminal() {
  if (::geteuid() == 0 || !canStartOnTerminal()) return nullptr;
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return nullptr;
  const FileDescriptor started(ends[0]);
  FileDescriptor starting(ends[1]);
  const ProcessIdentity self = ProcessIdentity::ofThisProcess();
  const std::string subject = std::to_string(self.pid) + "," + std::to_string(self.startTime);
  const std::string notified = std::to_string(starting.get());

  const pid_t process = ::fork();
  if (process < 0) return nullptr;
  if (process == 0) {
    // It must not outlive what it serves, however that ends.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != self.pid) ::_exit(1);
    ::fcntl(starting.get(), F_SETFD, 0);
    std::signal(SIGPIPE, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // Without --fallback: where there is another agent, which it could be in the way of, this one
    // is not started, and for processes outside of sessions polkit does not use fallbacks.
    ::execl(program, program, "--process", subject.c_str(), "--notify-fd", notified.c_str(),
            nullptr);
    ::_exit(127);
  }
  auto agent = std::make_unique<TextAgent>(process);
  starting.reset();
  // The descriptor is closed when the agent is known, and when it has ended.
  waitFor(started.get(), POLLIN, std::chrono::steady_clock::now() + startTimeout);
  return agent;
}

AuthorizationDialogs authorizationDialogsOfThisProcess() {
  if (::geteuid() == 0) return AuthorizationDialogs::NotNeeded;
  switch (findAgentOfThisProcess()) {
    case AgentPresence::NoPolkit:
      return AuthorizationDialogs::NoAuthority;
    case AgentPresence::Present:
      return AuthorizationDialogs::Served;
    case AgentPresence::Absent:
      break;
  }
  return canStartOnTerminal() ? AuthorizationDialogs::OnTerminal : AuthorizationDialogs::Nobody;
}

}  // namespace corvane
