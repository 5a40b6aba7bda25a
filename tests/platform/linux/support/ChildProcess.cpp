#include "tests/platform/linux/support/ChildProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <linux/sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace corvane {

namespace {

/// Nothing is left of a test that is ended from outside.
[[noreturn]] void waitForTheEnd() {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) ::syscall(SYS_pause);
}

}  // namespace

ChildProcess::ChildProcess(pid_t pid, FileDescriptor socket)
    : _pid(pid), _socket(std::move(socket)) {}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : _pid(std::exchange(other._pid, -1)), _socket(std::move(other._socket)) {}

ChildProcess::~ChildProcess() {
  if (_pid < 0) return;
  kill();
  reap();
}

ChildProcess ChildProcess::connectedOfUser(uid_t user) {
  const FileDescriptor listener = listeningSocket();
  const pid_t pid = ::fork();
  if (pid == 0) {
    // The system call itself: it concerns this process's one thread.
    if (::syscall(SYS_setresuid, user, user, user) != 0) ::_exit(1);
    // The connection stays open until the process ends.
    connectionTo(listener).release();
    waitForTheEnd();
  }
  return {pid, FileDescriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC))};
}

std::optional<ChildProcess> ChildProcess::successorOf(const ProcessIdentity& ended) {
  pid_t number = ended.pid;
  clone_args arguments = {};
  arguments.exit_signal = SIGCHLD;
  arguments.set_tid = reinterpret_cast<std::uint64_t>(&number);
  arguments.set_tid_size = 1;
  for (;;) {
    const auto pid = static_cast<pid_t>(::syscall(SYS_clone3, &arguments, sizeof arguments));
    if (pid == 0) waitForTheEnd();
    if (pid < 0) return std::nullopt;
    ChildProcess child(pid, FileDescriptor());
    // The kernel counts in steps of ten milliseconds: in the same step the two are as one.
    if (processStartTime(pid) != ended.startTime) return child;
  }
}

ChildProcess ChildProcess::program(const std::vector<std::string>& arguments,
                                   const Streams& streams) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    pointers.push_back(const_cast<char*>(argument.c_str()));
  }
  pointers.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (streams.input >= 0) ::dup2(streams.input, STDIN_FILENO);
    if (streams.output >= 0) ::dup2(streams.output, STDOUT_FILENO);
    if (streams.errors >= 0) ::dup2(streams.errors, STDERR_FILENO);
    ::execvp(pointers[0], pointers.data());
    ::_exit(127);
  }
  return {pid, FileDescriptor()};
}

void ChildProcess::kill() const {
  ::kill(_pid, SIGKILL);
  siginfo_t ended = {};
  while (::waitid(P_PID, static_cast<id_t>(_pid), &ended, WEXITED | WNOWAIT) < 0 &&
         errno == EINTR) {
  }
}

int ChildProcess::reap() {
  int status = 0;
  while (::waitpid(_pid, &status, 0) < 0 && errno == EINTR) {
  }
  _pid = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

FileDescriptor listeningSocket() {
  FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // An address of the family alone has the kernel choose an unused name outside the file system.
  const sockaddr_un unnamed = {AF_UNIX, {}};
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&unnamed), sizeof(sa_family_t)) !=
          0 ||
      ::listen(listener.get(), 8) != 0) {
    std::abort();
  }
  return listener;
}

FileDescriptor connectionTo(const FileDescriptor& listener) {
  sockaddr_un address = {};
  socklen_t length = sizeof address;
  FileDescriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    std::abort();
  }
  return connection;
}

PipeEnds makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::string readLine(const FileDescriptor& descriptor) {
  std::string line;
  char character = 0;
  while (::read(descriptor.get(), &character, 1) == 1 && character != '\n') line += character;
  return line;
}

std::string readToEnd(const FileDescriptor& descriptor) {
  std::string text;
  std::array<char, 1024> buffer{};
  ssize_t count = 0;
  while ((count = ::read(descriptor.get(), buffer.data(), buffer.size())) > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace corvane
