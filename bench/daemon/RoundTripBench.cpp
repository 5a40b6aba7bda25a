// The round trip of a request that does nothing, authorization by the embedded authority included,
// against a bare echo over the same library between two processes. Needs root.

#include <cstdio>
#include <exception>

#include <systemd/sd-bus.h>
#include <unistd.h>

#include "bench/daemon/OwnForm.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "platform/HelperConnection.h"
#include "platform/linux/Bus.h"
#include "platform/linux/EndpointTransport.h"

namespace corvane {
namespace {

constexpr int calls = 5000;
constexpr int rounds = 9;

int echo(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  const char* text = nullptr;
  sd_bus_message_read(message, "s", &text);
  return sd_bus_reply_method_return(message, "s", text);
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
      const Bus bus = makePeerBus(std::move(theirs), BusRole::Server);
      sd_bus_add_object_vtable(bus.get(), nullptr, "/echo", "bench.Echo", members, nullptr);
      int result = 0;
      while (result >= 0) {
        result = sd_bus_process(bus.get(), nullptr);
        if (result == 0) result = sd_bus_wait(bus.get(), UINT64_MAX);
      }
      ::_exit(0);
    }
    theirs.reset();
    _bus = makePeerBus(std::move(ours), BusRole::Client);
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

// The daemon, connected to, with a form to show.
class Helper {
 public:
  Helper() {
    _activation.start();
    auto connection = HelperConnection::connect(_activation.socketPath(), std::chrono::seconds(10));
    if (const auto* failure = std::get_if<CommunicationFailure>(&connection)) {
      throw std::runtime_error(failure->description);
    }
    _connection = std::get<std::unique_ptr<HelperConnection>>(std::move(connection));
    _form = bench::ownForm();
  }

  void call() {
    const auto answer =
        _connection->performPrivilegedOperation(9998, _form, std::nullopt, Array(), std::nullopt);
    const auto* error = std::get_if<std::optional<Error>>(&answer);
    if (error == nullptr || error->has_value()) throw std::runtime_error("nop failed");
  }

 private:
  bench::SocketActivation _activation{"com.corvane.system.privilegedhelper-vnt"};
  std::unique_ptr<HelperConnection> _connection;
  Data _form;
};

template <typename Server>
bench::Contender contender(const char* name, Server& server) {
  return {name, [&server] {
            return 1e6 / calls * bench::secondsFor([&server] {
                     for (int i = 0; i < calls; ++i) server.call();
                   });
          }};
}

}  // namespace
}  // namespace corvane

int main() {
  try {
    corvane::Helper helper;
    corvane::EchoServer echoServer;
    corvane::bench::compare(corvane::contender("nop through the daemon", helper),
                            corvane::contender("bare echo", echoServer), corvane::rounds,
                            "us a call", 2);
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
