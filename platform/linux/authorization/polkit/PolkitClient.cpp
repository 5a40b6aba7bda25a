#include "platform/linux/authorization/polkit/PolkitClient.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/polkit/PolkitBus.h"
#include "platform/linux/bus/MessageReader.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t allowUserInteraction = 1;

// For how long it is taken for granted that polkit is still not there. A failed attempt costs more
// than everything else that a request needs.
constexpr std::chrono::seconds absence{1};

// Errors by which the bus says that it knows of nobody who could answer, whether it looks itself or
// has systemd do it. One that knows polkit and cannot reach it is not among them.
constexpr std::string_view absentErrors[] = {
    "org.freedesktop.DBus.Error.NameHasNoOwner",
    "org.freedesktop.DBus.Error.ServiceUnknown",
    "org.freedesktop.DBus.Error.Spawn.ServiceNotFound",
    "org.freedesktop.systemd1.NoSuchUnit",
    "org.freedesktop.systemd1.UnitMasked",
};

bool isAbsence(const sd_bus_error& error) {
  const std::string_view name(error.name == nullptr ? "" : error.name);
  return std::find(std::begin(absentErrors), std::end(absentErrors), name) !=
         std::end(absentErrors);
}

// Whether nobody listens at the bus's address. After every other failure there is a bus, which just
// does not take this connection now.
bool isAbsence(const Error& error) {
  return isPOSIXError(error, POSIXErrorCode::NoEntry) ||
         isPOSIXError(error, POSIXErrorCode::ConnectionRefused);
}

struct BusSlotCloser {
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

/// A call that is under way, and its reply once it is there.
class PendingCall {
 public:
  PendingCall() = default;
  PendingCall(const PendingCall&) = delete;
  PendingCall& operator=(const PendingCall&) = delete;

  bool send(sd_bus* bus, const MessageWriter& call) {
    if (call.result() < 0) return false;
    sd_bus_slot* slot = nullptr;
    const int result =
        sd_bus_call_async(bus, &slot, call.message(), &PendingCall::received, this, UINT64_MAX);
    _slot.reset(slot);
    return result >= 0;
  }
  bool isUnderWay() const { return _slot != nullptr; }
  bool hasReply() const { return _reply != nullptr; }
  /// The reply, which can be had once; null while there is none.
  BusMessage takeReply() {
    if (hasReply()) _slot.reset();
    return std::move(_reply);
  }

 private:
  static int received(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    static_cast<PendingCall*>(userdata)->_reply.reset(sd_bus_message_ref(message));
    return 1;
  }

  std::unique_ptr<sd_bus_slot, BusSlotCloser> _slot;
  BusMessage _reply;
};

std::string newCancellationId() {
  static std::atomic<std::uint64_t> count{0};
  return "request-" + std::to_string(++count);
}

MessageWriter newCheck(sd_bus* bus, const PolkitQuestion& question,
                       const std::string& cancellationId) {
  MessageWriter call = newPolkitCall(bus, "CheckAuthorization");
  call.append("(sa{sv})s", "unix-process", 3, "pid", "u",
              static_cast<std::uint32_t>(question.subject.pid), "start-time", "t",
              question.subject.startTime, "uid", "i",
              static_cast<std::int32_t>(question.subject.uid), question.actionId.c_str());
  call.appendContainer(SD_BUS_TYPE_ARRAY, "{ss}", [&] {
    const auto appendDetail = [&call](const char* key, const std::string& value) {
      if (!value.empty()) call.append("{ss}", key, value.c_str());
    };
    appendDetail("polkit.message", question.message);
    appendDetail("polkit.icon_name", question.iconName);
  });
  call.append("us", question.isInteractionAllowed ? allowUserInteraction : 0U,
              cancellationId.c_str());
  return call;
}

/// Closes the dialog, if one is open. Neither the answer nor a bus that is slow is waited for.
void cancelCheck(sd_bus* bus, const std::string& cancellationId) {
  if (sd_bus_is_ready(bus) <= 0) return;
  MessageWriter call = newPolkitCall(bus, "CancelCheckAuthorization");
  call.append("s", cancellationId.c_str());
  call.send();
}

/// Asks for something that polkit answers whatever else it is doing. An error is an answer too.
bool askForSignOfLife(sd_bus* bus, PendingCall& sign) {
  return sign.send(bus, newPolkitSignOfLife(bus));
}

/// A connection to the bus. One that takes no more for now is asked again.
Result<Bus, PolkitFailure> connectTo(BusConnections& connections, const Asker& asker,
                                     std::chrono::milliseconds patience) {
  constexpr std::chrono::milliseconds pause{20};
  const Clock::time_point deadline = Clock::now() + patience;
  for (;;) {
    Result<Bus> bus = connections.take();
    if (bus) return *std::move(bus);
    if (isAbsence(bus.error())) return PolkitFailure::Absent;
    const bool isBusy = isPOSIXError(bus.error(), POSIXErrorCode::Again);
    if (!isBusy || Clock::now() >= deadline) return PolkitFailure::Failed;
    if (asker.hasGoneWhileWaiting(-1, 0, pause)) return PolkitFailure::Abandoned;
  }
}

/// Waits for something to happen on `bus`, at most until `deadline`; true if the asker has gone.
bool waitOn(sd_bus* bus, const Asker& asker, Clock::time_point deadline) {
  return asker.hasGoneWhileWaiting(
      sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)),
      std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
}

/// Nothing once `call` has its reply, else why it has none. A bus that accepts the connection but
/// never gets to its handshake is a failure like any other, and no absence.
std::optional<PolkitFailure> waitForReply(sd_bus* bus, const PendingCall& call, const Asker& asker,
                                          std::chrono::milliseconds patience) {
  PendingCall sign;
  bool isConnected = false;
  Clock::time_point deadline = Clock::now() + patience;
  for (;;) {
    const int progress = sd_bus_process(bus, nullptr);
    isConnected = isConnected || sd_bus_is_ready(bus) > 0;
    if (call.hasReply()) {
      // If the connection breaks in its handshake, the library makes up an error as the reply: that
      // is nothing that the bus or polkit has said.
      if (!isConnected) return PolkitFailure::Failed;
      // An asker that has gone away meanwhile must not have anything done in its name.
      return asker.hasGone() ? std::optional(PolkitFailure::Abandoned) : std::nullopt;
    }
    if (progress < 0) return PolkitFailure::Failed;
    if (progress > 0) continue;

    if (sign.takeReply() != nullptr) deadline = Clock::now() + patience;
    if (Clock::now() >= deadline) {
      if (!isConnected || sign.isUnderWay() || !askForSignOfLife(bus, sign)) {
        return PolkitFailure::Failed;
      }
      deadline = Clock::now() + patience;
    }
    if (waitOn(bus, asker, deadline)) return PolkitFailure::Abandoned;
  }
}

Result<PolkitAnswer, PolkitFailure> readAnswer(sd_bus_message* reply) {
  if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
    return isAbsence(*error) ? PolkitFailure::Absent : PolkitFailure::Failed;
  }
  if (sd_bus_message_has_signature(reply, "(bba{ss})") <= 0) return PolkitFailure::Failed;
  PolkitAnswer answer;
  MessageReader reader(reply);
  reader.container(SD_BUS_TYPE_STRUCT, "bba{ss}", [&] {
    answer.isAuthorized = reader.boolean();
    answer.isChallenge = reader.boolean();
    reader.array("{ss}", [&] {
      reader.container(SD_BUS_TYPE_DICT_ENTRY, "ss", [&] {
        const std::string_view key = reader.text();
        const std::string_view value = reader.text();
        if (key == "polkit.dismissed") answer.isDismissed = true;
        if (key == "polkit.temporary_authorization_id") answer.temporaryAuthorization = value;
      });
    });
  });
  if (reader.result() < 0) return PolkitFailure::Failed;
  return answer;
}

}  // namespace

PolkitClient::PolkitClient(std::string busAddress, std::chrono::milliseconds patience)
    : _connections(std::move(busAddress)), _patience(patience) {}

Result<PolkitAnswer, PolkitFailure> PolkitClient::checkAuthorization(const PolkitQuestion& question,
                                                                     int asker,
                                                                     const std::stop_token& stop) {
  if (Clock::now() < _absentUntil.load()) return PolkitFailure::Absent;
  Result<PolkitAnswer, PolkitFailure> answer = ask(question, Asker(asker, stop));
  if (!answer && answer.error() == PolkitFailure::Absent) _absentUntil = Clock::now() + absence;
  return answer;
}

Result<PolkitAnswer, PolkitFailure> PolkitClient::ask(const PolkitQuestion& question,
                                                      const Asker& asker) {
  Result<Bus, PolkitFailure> connected = connectTo(_connections, asker, _patience);
  if (!connected) return connected.error();
  Bus& bus = *connected;
  const std::string cancellationId = newCancellationId();
  const MessageWriter check = newCheck(bus.get(), question, cancellationId);
  Result<PolkitAnswer, PolkitFailure> answer = PolkitFailure::Failed;
  {
    PendingCall call;
    if (!call.send(bus.get(), check)) return PolkitFailure::Failed;
    if (const auto failure = waitForReply(bus.get(), call, asker, _patience)) {
      // The connection is closed, not given back: what polkit still has to say is for nobody.
      cancelCheck(bus.get(), cancellationId);
      return *failure;
    }
    answer = readAnswer(call.takeReply().get());
  }
  _connections.giveBack(std::move(bus));
  return answer;
}

std::string systemBusAddress() {
  const char* address = ::secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address != nullptr && *address != '\0' ? address : "unix:path=/run/dbus/system_bus_socket";
}

}  // namespace corvane
