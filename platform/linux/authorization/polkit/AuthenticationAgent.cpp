#include "platform/AuthenticationAgent.h"

#include <array>
#include <chrono>
#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/PreferredLanguages.h"
#include "platform/linux/authorization/polkit/AgentPresence.h"
#include "platform/linux/authorization/polkit/PasswordTerminal.h"
#include "platform/linux/processes/ProcessIdentity.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {

namespace {

constexpr const char* program = "/usr/bin/pkttyagent";
constexpr std::chrono::seconds startTimeout{10};

// Whatever standard input is: the agent reads from the controlling terminal.
bool canStartOnTerminal() {
  return controllingTerminal() && ::access(program, X_OK) == 0;
}

// The agent tells polkit the language of its dialogs by this variable alone, of those by which a
// user may tell it.
std::vector<std::string> environmentOfAgent() {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (!std::string_view(*entry).starts_with("LANG=")) environment.emplace_back(*entry);
  }
  const std::vector<std::string> languages = preferredLanguages();
  environment.push_back("LANG=" + (languages.empty() ? "C" : languages.front()));
  return environment;
}

/// polkit's own text agent, as a child process.
class TextAgent : public AuthenticationAgent {
 public:
  TextAgent() = default;
  TextAgent(const TextAgent&) = delete;
  TextAgent& operator=(const TextAgent&) = delete;
  ~TextAgent() override {
    if (_process <= 0) return;
    _terminal.setReader(0);
    ::kill(_process, SIGTERM);
    ::kill(_process, SIGCONT);
    ::waitpid(_process, nullptr, 0);
  }

  void setProcess(pid_t process) {
    _process = process;
    _terminal.setReader(process);
  }
  bool isStoppedByThisProcess() const { return _terminal.stopsReader(); }

 private:
  PasswordTerminal _terminal;
  pid_t _process = 0;
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
  std::vector<std::string> variables = environmentOfAgent();
  std::vector<char*> environment;
  environment.reserve(variables.size() + 1);
  for (std::string& variable : variables) environment.push_back(variable.data());
  environment.push_back(nullptr);

  auto agent = std::make_unique<TextAgent>();
  const pid_t process = ::fork();
  if (process < 0) return nullptr;
  if (process == 0) {
    // It must not outlive what it serves, however that ends.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != self.pid) ::_exit(1);
    ::fcntl(starting.get(), F_SETFD, 0);
    std::signal(SIGPIPE, SIG_DFL);
    sigset_t blocked;
    sigemptyset(&blocked);
    if (agent->isStoppedByThisProcess()) sigaddset(&blocked, SIGTSTP);
    ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
    // Without --fallback: where there is another agent, which it could be in the way of, this one
    // is not started, and for processes outside of sessions polkit does not use fallbacks.
    ::execle(program, program, "--process", subject.c_str(), "--notify-fd", notified.c_str(),
             nullptr, environment.data());
    ::_exit(127);
  }
  agent->setProcess(process);
  starting.reset();
  // The descriptor is closed when the agent is known, and when it has ended.
  waitFor(started.get(), POLLIN, std::chrono::steady_clock::now() + startTimeout);
  return agent;
}

bool AuthenticationAgent::leavePrompt() {
  return PasswordTerminal::leavePrompt();
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
