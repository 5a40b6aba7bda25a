#include "bench/support/UserProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/transport/LocalSocket.h"

namespace corvane::bench {

UserProcess::UserProcess(uid_t user, const std::function<Action()>& prepare) {
  auto [prepared, preparing] = connectedSockets();
  _number = ::fork();
  if (_number < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (_number > 0) {
    preparing.reset();
    char byte = 0;
    (void)::recv(prepared.get(), &byte, sizeof(byte), 0);
    return;
  }
  if (user != 0 && (::setresgid(user, user, user) != 0 || ::setresuid(user, user, user) != 0)) {
    ::_exit(1);
  }
  // After the change of user, which undoes it.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    const Action action = prepare();
    ::shutdown(preparing.get(), SHUT_RDWR);
    action();
    ::_exit(0);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    ::_exit(1);
  }
}

UserProcess::UserProcess(UserProcess&& other) noexcept
    : _number(std::exchange(other._number, -1)) {}

UserProcess::~UserProcess() {
  if (_number < 0) return;
  ::kill(_number, SIGKILL);
  ::waitpid(_number, nullptr, 0);
}

}  // namespace corvane::bench
