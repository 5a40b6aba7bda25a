// The round trip of a request that does nothing, authorization by the embedded authority included,
// against a bare echo over the same library between two processes. Needs root.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "bench/support/Helper.h"
#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"

namespace corvane {
namespace {

constexpr int calls = 5000;
constexpr int rounds = 9;

int echo(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  const char* text = nullptr;
  sd_bus_message_read(message, "s", &text);
  return sd_bus_reply_method_return(message, "s", text);
}

// A connection of the library alone, which reads from the socket by itself.
Bus bareBus(FileDescriptor socket, BusRole role) {
  FileDescriptor input(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 0));
  return *makePeerBus(std::move(socket), role, std::move(input));
}

// A process of its own that answers each message with its text.
class EchoServer {
 public:
  EchoServer() {
    auto [ours, theirs] = connectedSockets();
    if (::fork() == 0) {
      ours.reset();
      static const sd_bus_vtable members[] = {
          SD_BUS_VTABLE_START(0),
          SD_BUS_METHOD("Echo", "s", "s", &echo, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
      const Bus bus = bareBus(std::move(theirs), BusRole::Server);
      sd_bus_add_object_vtable(bus.get(), nullptr, "/echo", "bench.Echo", members, nullptr);
      int result = 0;
      while (result >= 0) {
        result = sd_bus_process(bus.get(), nullptr);
        if (result == 0) result = sd_bus_wait(bus.get(), UINT64_MAX);
      }
      ::_exit(0);
    }
    theirs.reset();
    _bus = bareBus(std::move(ours), BusRole::Client);
  }

  void call() {
    sd_bus_message* raw = nullptr;
    if (sd_bus_call_method(_bus.get(), nullptr, "/echo", "bench.Echo", "Echo", nullptr, &raw, "s",
                           "nothing") < 0) {
      throw std::runtime_error("the echo does not answer");
    }
    sd_bus_message_unref(raw);
  }

 private:
  Bus _bus;
};

// The processors that this process may use.
std::vector<int> processors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  std::vector<int> result;
  if (::sched_getaffinity(0, sizeof(set), &set) != 0) return result;
  for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(processor, &set)) result.push_back(processor);
  }
  return result;
}

// Has a process, and what it starts from now on, run on one processor.
void runOn(int processor, pid_t process) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  if (::sched_setaffinity(process, sizeof(set), &set) != 0) {
    throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
  }
}

void measureOn(const char* place, int clientProcessor, int serverProcessor,
               const bench::SocketActivation& daemon) {
  runOn(serverProcessor, daemon.process());
  runOn(serverProcessor, ::getpid());
  EchoServer echoServer;
  runOn(clientProcessor, ::getpid());
  const auto connection = bench::connectToHelper(daemon.socketPath());
  const Data form = bench::formOf(ProcessIdentity::ofThisProcess());
  std::printf("%s\n", place);
  bench::compare(bench::perCall("nop through the daemon", calls,
                                [&] { bench::performNop(*connection, form); }),
                 bench::perCall("bare echo", calls, [&] { echoServer.call(); }), rounds,
                 "us a call", 2);
}

// Left alone, the scheduler has each pair of ends share a processor or not as it likes, and that
// makes more of a difference than what they do.
void measure() {
  const std::vector<int> usable = processors();
  bench::SocketActivation daemon(bench::helperProgram);
  daemon.start();
  measureOn("Both ends on one processor:", usable.at(0), usable.at(0), daemon);
  if (usable.size() > 1) {
    measureOn("Each end on a processor of its own:", usable[0], usable[1], daemon);
  }
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
