#include "bench/support/SocketActivation.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvane::bench {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// In the child: the listening socket is descriptor 3, and the environment says so.
[[noreturn]] void becomeProgram(const std::string& program, int listening) {
  if (::dup2(listening, 3) != 3) ::_exit(127);
  if (listening == 3) ::fcntl(3, F_SETFD, 0);
  const int null = ::open("/dev/null", O_WRONLY);
  ::dup2(null, STDERR_FILENO);
  ::setenv("LISTEN_FDS", "1", 1);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  ::execl(program.c_str(), program.c_str(), nullptr);
  ::_exit(127);
}

// The path of a program that was built beside this one.
std::string programBeside(const std::string& name) {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

}  // namespace

long memoryOf(pid_t process, const std::string& figure) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(figure + ":")) return std::stol(line.substr(figure.size() + 1));
  }
  throw std::runtime_error("no " + figure + " of process " + std::to_string(process));
}

SocketActivation::SocketActivation(const std::string& program, int backlog)
    : _program(program.find('/') == std::string::npos ? programBeside(program) : program),
      _socketPath(_folder.path() + "/socket") {
  // Where the program keeps keys and rights.
  const std::string authorizationFolder = _folder.path() + "/root";
  std::filesystem::create_directory(authorizationFolder);
  std::filesystem::permissions(authorizationFolder, std::filesystem::perms::owner_all);
  // Only the embedded authority: the figures must not depend on what runs on this machine.
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  ::setenv("CORVANE_AUTHORIZATION_DIRECTORY", authorizationFolder.c_str(), 1);
  ::setenv("CORVANE_POLKIT_ACTIONS_DIRECTORY", (_folder.path() + "/actions").c_str(), 1);

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  _socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
  _listening.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::bind(_listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(_listening.get(), backlog) != 0) {
    fail(_socketPath);
  }
}

SocketActivation::~SocketActivation() {
  stop();
}

void SocketActivation::serveEverybody() const {
  if (std::system((programBeside("com.corvane.rights-vnt") + " register").c_str()) != 0) {
    throw std::runtime_error("the rights cannot be registered");
  }
  std::filesystem::permissions(_folder.path(), std::filesystem::perms(0711));
  std::filesystem::permissions(_socketPath, std::filesystem::perms(0666));
}

void SocketActivation::start() {
  _process = ::fork();
  if (_process < 0) fail("fork");
  if (_process == 0) becomeProgram(_program, _listening.get());
}

void SocketActivation::startOnDemand() {
  _process = ::fork();
  if (_process < 0) fail("fork");
  if (_process == 0) {
    pollfd connection{_listening.get(), POLLIN, 0};
    ::poll(&connection, 1, -1);
    becomeProgram(_program, _listening.get());
  }
}

void SocketActivation::stop() {
  if (_process <= 0) return;
  ::kill(_process, SIGKILL);
  ::waitpid(_process, nullptr, 0);
  _process = -1;
}

long SocketActivation::memory(const std::string& figure) const {
  return memoryOf(_process, figure);
}

}  // namespace corvane::bench
