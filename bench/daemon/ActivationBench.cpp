// From a client's connection to the first reply while the daemon is not running, against a bare
// program that accepts and answers, both started on demand by the same code. Needs root.

#include <cerrno>
#include <system_error>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "bench/support/Helper.h"
#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"

namespace corvane {
namespace {

constexpr int rounds = 51;

void askDaemon(const std::string& path) {
  bench::askForVersion(*bench::connectToHelper(path));
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

void measure() {
  bench::SocketActivation daemon(bench::helperProgram);
  bench::SocketActivation bare("bare-activated-program");
  bench::compare(contender("daemon, connect to first reply", daemon, &askDaemon),
                 contender("bare program, connect to first reply", bare, &askBareProgram), rounds,
                 "ms", 5);
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
