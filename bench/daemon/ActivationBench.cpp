// From a client's connection to the first reply while the daemon is not running, against a bare
// program that accepts and answers, both started on demand by the same code. Needs root.

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "platform/HelperConnection.h"

namespace corvane {
namespace {

constexpr int rounds = 51;

void askDaemon(const std::string& path) {
  auto connection = HelperConnection::connect(path, std::chrono::seconds(10));
  if (const auto* failure = std::get_if<CommunicationFailure>(&connection)) {
    throw std::runtime_error(failure->description);
  }
  const auto version =
      std::get<std::unique_ptr<HelperConnection>>(connection)->getVersionString(std::nullopt);
  if (std::get_if<std::string>(&version) == nullptr) throw std::runtime_error("no version");
}

void askBareProgram(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  char byte = 'x';
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      ::write(socket.get(), &byte, 1) != 1 || ::read(socket.get(), &byte, 1) != 1) {
    throw std::system_error(errno, std::generic_category(), "the bare program");
  }
}

bench::Contender contender(const char* name, bench::SocketActivation& activation,
                           void (*ask)(const std::string&)) {
  return {name, [&activation, ask] {
            activation.startOnDemand();
            const double seconds = bench::secondsFor([&] { ask(activation.socketPath()); });
            activation.stop();
            return seconds * 1e3;
          }};
}

}  // namespace
}  // namespace corvane

int main() {
  try {
    corvane::bench::SocketActivation daemon("com.corvane.system.privilegedhelper-vnt");
    corvane::bench::SocketActivation bare("bare-activated-program");
    corvane::bench::compare(
        corvane::contender("daemon, connect to first reply", daemon, &corvane::askDaemon),
        corvane::contender("bare program, connect to first reply", bare, &corvane::askBareProgram),
        corvane::rounds, "ms", 5);
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
