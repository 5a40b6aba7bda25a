#include "bench/support/Issuer.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"

namespace corvane::bench {

// As its unit has it.
constexpr int backlog = 128;

Issuer::Issuer(const std::string& folder) : _socketPath(folder + "/authorization.socket") {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  _socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const FileDescriptor listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::bind(listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      ::chmod(_socketPath.c_str(), 0666) != 0 || ::listen(listening.get(), backlog) != 0) {
    throw std::system_error(errno, std::generic_category(), _socketPath);
  }
  const std::string program =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "com.corvane.authorization";
  _process = ::fork();
  if (_process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (_process == 0) {
    ::dup2(listening.get(), STDIN_FILENO);
    ::execl(program.c_str(), program.c_str(), nullptr);
    ::_exit(127);
  }
}

Issuer::~Issuer() {
  ::kill(_process, SIGKILL);
  ::waitpid(_process, nullptr, 0);
}

}  // namespace corvane::bench
