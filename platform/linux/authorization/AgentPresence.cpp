#include "platform/linux/authorization/AgentPresence.h"

#include <cstdlib>
#include <memory>

#include <systemd/sd-login.h>

#include "platform/linux/authorization/BusConnections.h"
#include "platform/linux/authorization/PolkitClient.h"
#include "platform/linux/authorization/ProcessIdentity.h"

namespace corvane {

namespace {

constexpr const char* service = "org.freedesktop.PolicyKit1";
constexpr const char* authorityPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* authorityInterface = "org.freedesktop.PolicyKit1.Authority";
// Nobody serves an object there, and nobody is asked to in the moment that it is registered.
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
  sd_bus_message* raw = nullptr;
  if (sd_bus_message_new_method_call(bus, &raw, service, authorityPath, authorityInterface,
                                     member) < 0) {
    return nullptr;
  }
  BusMessage message(raw);
  return appendSubject(raw) >= 0 ? std::move(message) : nullptr;
}

enum class Answer { Yes, No, None };

Answer call(sd_bus* bus, const BusMessage& message) {
  sd_bus_message* raw = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  const int result = sd_bus_call(bus, message.get(), timeoutInMicroseconds, &error, &raw);
  const BusMessage reply(raw);
  // The one error by which polkit refuses what it has understood.
  const bool isRefused =
      sd_bus_error_has_name(&error, "org.freedesktop.PolicyKit1.Error.Failed") != 0;
  sd_bus_error_free(&error);
  if (result >= 0) return Answer::Yes;
  return isRefused ? Answer::No : Answer::None;
}

bool isPolkitThere(sd_bus* bus) {
  sd_bus_message* raw = nullptr;
  sd_bus_message_new_method_call(bus, &raw, service, authorityPath,
                                 "org.freedesktop.DBus.Properties", "Get");
  const BusMessage message(raw);
  return message != nullptr &&
         sd_bus_message_append(raw, "ss", authorityInterface, "BackendVersion") >= 0 &&
         call(bus, message) == Answer::Yes;
}

}  // namespace

AgentPresence findAgentOfThisProcess() {
  const Bus bus = BusConnections(systemBusAddress()).take();
  if (bus == nullptr || !isPolkitThere(bus.get())) return AgentPresence::NoPolkit;
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
