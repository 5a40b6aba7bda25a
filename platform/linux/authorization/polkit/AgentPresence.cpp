#include "platform/linux/authorization/polkit/AgentPresence.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <variant>

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

// What an agent is registered for.
using Subject = std::variant<ProcessIdentity, std::string>;

// The session of a process; nothing outside of sessions.
std::optional<std::string> sessionOf(pid_t process) {
  char* session = nullptr;
  if (sd_pid_get_session(process, &session) < 0) return std::nullopt;
  const std::unique_ptr<char, Free> owned(session);
  return session;
}

void appendSubject(MessageWriter& call, const Subject& subject) {
  if (const auto* session = std::get_if<std::string>(&subject)) {
    return call.append("(sa{sv})", "unix-session", 1, "session-id", "s", session->c_str());
  }
  const auto& process = std::get<ProcessIdentity>(subject);
  call.append("(sa{sv})", "unix-process", 2, "pid", "u", static_cast<std::uint32_t>(process.pid),
              "start-time", "t", process.startTime);
}

MessageWriter newCall(sd_bus* bus, const char* member, const Subject& subject) {
  MessageWriter call = newPolkitCall(bus, member);
  appendSubject(call, subject);
  return call;
}

enum class Answer { Yes, No, None };

Answer call(sd_bus* bus, const MessageWriter& message) {
  if (message.result() < 0) return Answer::None;
  sd_bus_message* raw = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  const int result = sd_bus_call(bus, message.message(), timeoutInMicroseconds, &error, &raw);
  const BusMessage reply(raw);
  const bool isRefused = sd_bus_error_has_name(&error, polkitFailure) != 0;
  sd_bus_error_free(&error);
  if (result >= 0) return Answer::Yes;
  return isRefused ? Answer::No : Answer::None;
}

bool isPolkitThere(sd_bus* bus) {
  return call(bus, newPolkitSignOfLife(bus)) == Answer::Yes;
}

// A connection to the bus on which polkit is, or null.
Bus connectToPolkit() {
  Result<Bus> bus = BusConnections(systemBusAddress()).take();
  return bus && isPolkitThere(bus->get()) ? *std::move(bus) : nullptr;
}

AgentPresence findAgent(const Bus& bus, const Subject& subject) {
  MessageWriter registration = newCall(bus.get(), "RegisterAuthenticationAgent", subject);
  registration.append("ss", "C", agentPath);
  MessageWriter end = newCall(bus.get(), "UnregisterAuthenticationAgent", subject);
  end.append("s", agentPath);
  // Nothing is registered that could not be taken back.
  if (end.result() < 0) return AgentPresence::NoPolkit;
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

}  // namespace

AgentPresence findAgentOfThisProcess() {
  const Bus bus = connectToPolkit();
  if (bus == nullptr) return AgentPresence::NoPolkit;
  if (const auto session = sessionOf(0)) return findAgent(bus, *session);
  return findAgent(bus, ProcessIdentity::ofThisProcess());
}

AgentPresence findAgentOf(const ProcessIdentity& process) {
  const Bus bus = connectToPolkit();
  if (bus == nullptr) return AgentPresence::NoPolkit;
  const AgentPresence own = findAgent(bus, process);
  const auto session = own == AgentPresence::Absent ? sessionOf(process.pid) : std::nullopt;
  if (!session) return own;
  uid_t user = 0;
  const bool isOwn = sd_session_get_uid(session->c_str(), &user) >= 0 && user == process.uid;
  return isOwn ? findAgent(bus, *session) : AgentPresence::Present;
}

}  // namespace corvane
