#include "bench/support/Polkit.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane::bench {

Polkit::Polkit(const std::map<std::string, std::string>& actionFiles) {
  // polkitd leaves root behind and must find the bus.
  std::filesystem::permissions(_folder.path(), std::filesystem::perms(0755));
  std::filesystem::create_directory(actionsFolder());
  for (const auto& [name, contents] : actionFiles) {
    std::ofstream(actionsFolder() + "/" + name) << contents;
  }

  int commands[2] = {};
  int answers[2] = {};
  if (::pipe2(commands, O_CLOEXEC) != 0 || ::pipe2(answers, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  _server = ::fork();
  if (_server == 0) {
    ::dup2(commands[0], STDIN_FILENO);
    ::dup2(answers[1], STDOUT_FILENO);
    ::execl(POLKIT_SCRIPTS "/serve-polkit", "serve-polkit", _folder.path().c_str(), nullptr);
    ::_exit(127);
  }
  const FileDescriptor read(commands[0]);
  FileDescriptor write(answers[1]);
  write.reset();
  _commands.reset(commands[1]);
  const FileDescriptor answer(answers[0]);
  char ready = 0;
  if (::read(answer.get(), &ready, 1) != 1) throw std::runtime_error("no polkit here");
}

Polkit::~Polkit() {
  _commands.reset();
  ::waitpid(_server, nullptr, 0);
}

pid_t Polkit::process() const {
  pid_t process = -1;
  if (!(std::ifstream(_folder.path() + "/polkit.pid") >> process)) {
    throw std::runtime_error("no polkit here");
  }
  return process;
}

SilentAgent::SilentAgent(const Polkit& polkit, pid_t process) {
  int answers[2] = {};
  if (::pipe2(answers, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  _events.reset(answers[0]);
  FileDescriptor write(answers[1]);
  const std::string number = std::to_string(process);
  const std::string startTime = std::to_string(processStartTime(process).value_or(0));
  _agent = ::fork();
  if (_agent == 0) {
    ::dup2(write.get(), STDOUT_FILENO);
    ::execl("/usr/bin/python3", "python3", POLKIT_SCRIPTS "/agent.py", polkit.busAddress().c_str(),
            number.c_str(), startTime.c_str(), "wait", nullptr);
    ::_exit(127);
  }
  write.reset();
  // It says so when it is registered.
  char ready = 0;
  if (::read(_events.get(), &ready, 1) != 1) throw std::runtime_error("no agent here");
}

SilentAgent::~SilentAgent() {
  ::kill(_agent, SIGKILL);
  ::waitpid(_agent, nullptr, 0);
}

}  // namespace corvane::bench
