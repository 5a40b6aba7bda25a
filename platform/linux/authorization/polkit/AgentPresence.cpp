#include "platform/linux/authorization/polkit/AgentPresence.h"

#include <cstdlib>
#include <memory>

#include <systemd/sd-login.h>

#include "platform/linux/authorization/polkit/BusConnections.h"
#include "platform/linux/authorization/polkit/PolkitBus.h"
#include "platform/linux/authorization/polkit/PolkitClient.h"
#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

namespace {

// The path that is registered with polkit to see whether it takes an agent. Nothing serves
// it: the registration is taken back at once, and nobody is asked through it in that moment.
constexpr const char* agentPath = "/com/corvane/AuthenticationAgent";
constexpr std::uint64_t timeoutInMicroseconds = 10'000'000;

struct Free {
  void operator()(char* text) const { std::free(text); }
};

int appendSubject(sd_bus_message* message) {
  char* session = nullptr;
  if (sd_pid_get_session(0, &session) >= 0) {
    const std::unique_ptr<char, Free> owned(session);
    return sd_bus_message_append(message, "(sa{sv})", "unix-session", 1, "session-id", "s",
                                 session);
  }
  const ProcessIdentity self = ProcessIdentity::ofThisProcess();
  return sd_bus_message_append(message, "(sa{sv})", "unix-process", 2, "pid", "u",
                               static_cast<std::uint32_t>(self.pid), "start-time", "t",
                               self.startTime);
}

BusMessage newCall(sd_bus* bus, const char* member) {
  BusMessage message = newPolkitCall(bus, member);
  return message != nullptr && appendSubject(message.get()) >= 0 ? std::move(message) : nullptr;
}

enum class Answer { Yes, No, None };

Answer call(sd_bus* bus, const BusMessage& message) {
  sd_bus_message* raw = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  const int result = sd_bus_call(bus, message.get(), timeoutInMicroseconds, &error, &raw);
  const BusMessage reply(raw);
  const bool isRefused = sd_bus_error_has_name(&error, polkitFailure) != 0;
  sd_bus_error_free(&error);
  if (result >= 0) return Answer::Yes;
  return isRefused ? Answer::No : Answer::None;
}

bool isPolkitThere(sd_bus* bus) {
  const BusMessage question = newPolkitSignOfLife(bus);
  return question != nullptr && call(bus, question) == Answer::Yes;
}

}  // namespace

AgentPresence findAgentOfThisProcess() {
  const std::variant<Bus, int> connected = BusConnections(systemBusAddress()).take();
  const Bus* found = std::get_if<Bus>(&connected);
  if (found == nullptr || !isPolkitThere(found->get())) return AgentPresence::NoPolkit;
  const Bus& bus = *found;
  const BusMessage registration = newCall(bus.get(), "RegisterAuthenticationAgent");
  const BusMessage end = newCall(bus.get(), "UnregisterAuthenticationAgent");
  if (registration == nullptr || end == nullptr ||
      sd_bus_message_append(registration.get(), "ss", "C", agentPath) < 0 ||
      sd_bus_message_append(end.get(), "s", agentPath) < 0) {
    return AgentPresence::NoPolkit;
  }
  switch (call(bus.get(), registration)) {
    case Answer::Yes:
      call(bus.get(), end);
      return AgentPresence::Absent;
    case Answer::No:
      return AgentPresence::Present;
    case Answer::None:
      break;
  }
  return AgentPresence::NoPolkit;
}

}  // namespace corvane
