#include "platform/linux/transport/ServedConnection.h"

#include <cerrno>
#include <exception>

#include <poll.h>
#include <sys/socket.h>

#include "foundation/POSIXError.h"
#include "platform/Authorization.h"
#include "platform/StandardLog.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/AnswerableError.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/MessageGuard.h"
#include "platform/linux/transport/PeerBus.h"

namespace corvane {

namespace {

// A method without a result is acknowledged with an empty reply if its caller wants one: when it
// has been handled, or before the process ends in the middle of it.
class OneWayMessage {
 public:
  explicit OneWayMessage(sd_bus_message* message) : _message(message) { current = this; }
  OneWayMessage(const OneWayMessage&) = delete;
  OneWayMessage& operator=(const OneWayMessage&) = delete;
  ~OneWayMessage() { current = nullptr; }

  void acknowledge() {
    if (sd_bus_message* message = std::exchange(_message, nullptr)) {
      sd_bus_reply_method_return(message, nullptr);
    }
  }

  static thread_local OneWayMessage* current;

 private:
  sd_bus_message* _message;
};

thread_local OneWayMessage* OneWayMessage::current = nullptr;

// Who connected the socket, by the kernel's word.
Peer peerOfSocket(int socket) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    credentials = {-1, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  }
  return {credentials.pid, credentials.uid, credentials.gid};
}

std::optional<WatchedProcess> connectedProcess(int socket) {
  Result<WatchedProcess> process = WatchedProcess::ofPeer(socket);
  if (!process) return std::nullopt;
  return *std::move(process);
}

int refuse(sd_bus_message* message, const char* name, const char* reason) {
  return sd_bus_reply_method_errorf(message, name, "%s", reason);
}

int refuseForSize(sd_bus_message* message) {
  return refuse(message, SD_BUS_ERROR_LIMITS_EXCEEDED,
                "The request holds too much, by itself or with others of this user");
}

// Why an authorization cannot be told of. An authority that fails is nobody's mistake.
const char* errorNameFor(const Error& error) {
  if (isPOSIXError(error, POSIXErrorCode::Invalid)) return SD_BUS_ERROR_INVALID_ARGS;
  return error.is(NSOSStatusErrorDomain, errAuthorizationInvalidRef) ? SD_BUS_ERROR_ACCESS_DENIED
                                                                     : SD_BUS_ERROR_FAILED;
}

// False once nothing more comes, or nothing more may.
bool hasPassedOn(MessageGuard& guard) {
  const MessageGuard::Result result = guard.pump();
  return result != MessageGuard::Result::Closed && result != MessageGuard::Result::Refused;
}

}  // namespace

void acknowledgeCurrentOneWayMessage() {
  if (OneWayMessage::current != nullptr) OneWayMessage::current->acknowledge();
}

// How each member of the interface reaches the exported object.
struct ServedConnection::Handlers {
  using Handler = int (*)(ServedConnection& connection, sd_bus_message* message);

  // No exception may pass through the library; the request that raised one is never answered.
  template <Handler handler>
  static int guarded(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    auto& connection = *static_cast<ServedConnection*>(userdata);
    try {
      const int result = handler(connection, message);
      connection._arrival.reset();
      return result;
    } catch (const std::exception& exception) {
      NSLog("Uncaught exception while handling %s: %s\n", sd_bus_message_get_member(message),
            exception.what());
      connection._hasFailed = true;
      return 1;
    }
  }

  template <Handler handler>
  static sd_bus_vtable served(const Member& member) {
    sd_bus_vtable entry = SD_BUS_METHOD(member.name, member.call, member.answer, &guarded<handler>,
                                        SD_BUS_VTABLE_UNPRIVILEGED);
    entry.x.method.names = member.names;
    return entry;
  }

  static int connectWithEndpoint(ServedConnection& connection, sd_bus_message* message) {
    int result = 0;
    connection._object->connectWithEndpointUsingReply([&](XPCListenerEndpoint endpoint) {
      const auto transport = endpoint.takeTransport();
      result = sd_bus_reply_method_return(message, "h", transport->socket.get());
    });
    return result;
  }

  static int getVersionString(ServedConnection& connection, sd_bus_message* message) {
    int result = 0;
    connection._object->getVersionStringUsingReply([&](const std::string& version) {
      result = sd_bus_reply_method_return(message, "s", version.c_str());
    });
    return result;
  }

  static int registerClientWithPID(ServedConnection& connection, sd_bus_message* message) {
    MessageReader reader(message);
    const auto pid = reader.basic<std::int32_t>(SD_BUS_TYPE_INT32);
    if (reader.result() < 0) return reader.result();
    OneWayMessage oneWay(message);
    const auto registering = connection._arrivals->registering();
    if (connection._registrations->add(connection._peer.uid, connection._share.account(), pid)) {
      connection._object->registerClientWithPID(pid);
    }
    oneWay.acknowledge();
    return 1;
  }

  static int unregisterClientWithPID(ServedConnection& connection, sd_bus_message* message) {
    MessageReader reader(message);
    const auto pid = reader.basic<std::int32_t>(SD_BUS_TYPE_INT32);
    if (reader.result() < 0) return reader.result();
    OneWayMessage oneWay(message);
    // If this is the connection's first message, it counts as arriving no longer: else it would
    // wait for itself, and with others like it for each other.
    connection._arrival.reset();
    if (!unregisterAmongOthers(connection, pid, oneWay)) {
      const Arrivals::Leaving leaving(*connection._arrivals);
      unregister(connection, pid, oneWay);
    }
    return 1;
  }

  // False, with nothing done, if that leaves nobody and so ends the helper.
  static bool unregisterAmongOthers(ServedConnection& connection, std::int32_t pid,
                                    OneWayMessage& oneWay) {
    const auto registering = connection._arrivals->registering();
    if (connection._registrations->wouldBeEmptyWithout(connection._peer.uid, pid)) return false;
    unregister(connection, pid, oneWay);
    return true;
  }

  // Acknowledged under the lock that is held: whoever comes next to it may end the helper.
  static void unregister(ServedConnection& connection, std::int32_t pid, OneWayMessage& oneWay) {
    if (connection._registrations->remove(connection._peer.uid, pid)) {
      connection._object->unregisterClientWithPID(pid);
    }
    oneWay.acknowledge();
  }

  static int enableDebugMode(ServedConnection& connection, sd_bus_message* message) {
    MessageReader reader(message);
    const bool flag = reader.boolean();
    if (reader.result() < 0) return reader.result();
    OneWayMessage oneWay(message);
    connection._object->enableDebugMode(flag);
    oneWay.acknowledge();
    return 1;
  }

  static int performPrivilegedOperation(ServedConnection& connection, sd_bus_message* message) {
    MessageReader reader(message);
    const TakeMemory takeMemory = [&](std::size_t size) {
      return connection._share.takeMore(size);
    };
    const char* fault = nullptr;
    PerformCall call = readPerformCall(reader, takeMemory, fault);
    if (reader.result() == -E2BIG) return refuseForSize(message);
    if (reader.result() < 0 && fault != nullptr) {
      return refuse(message, SD_BUS_ERROR_INVALID_ARGS, fault);
    }
    if (reader.result() < 0) return reader.result();
    int result = 0;
    connection._object->performPrivilegedOperation(
        call.code, call.authorization, std::move(call.feedbackEndpoint), std::move(call.arguments),
        [&](const std::optional<Error>& error) { result = reply(message, error); });
    return result < 0 ? result : 1;
  }

  static int cancelOperation(ServedConnection& connection, sd_bus_message* message) {
    MessageReader reader(message);
    const std::string token(reader.text());
    if (reader.result() < 0) return reader.result();
    const bool isCancelled = connection._control->cancelOperation(token);
    return sd_bus_reply_method_return(message, "b", static_cast<int>(isCancelled));
  }

  static int queryAuthorization(ServedConnection& connection, sd_bus_message* message) {
    MessageReader reader(message);
    const QueryCall call =
        readQueryCall(reader, [&](std::size_t size) { return connection._share.takeMore(size); });
    if (reader.result() == -E2BIG) return refuseForSize(message);
    if (reader.result() < 0) return reader.result();
    const auto answer = connection._control->queryAuthorization(call.code, call.authorization);
    if (!answer) {
      return refuse(message, errorNameFor(answer.error()),
                    answer.error().localizedDescription().c_str());
    }
    auto writer = MessageWriter::ofReplyTo(message);
    appendAuthorizationState(writer, *answer);
    writer.send();
    return writer.result();
  }

  static int reply(sd_bus_message* message, const std::optional<Error>& error) {
    if (sd_bus_message_get_expect_reply(message) == 0) return 0;
    auto writer = MessageWriter::ofReplyTo(message);
    appendOptionalError(writer, error ? std::optional(answerableError(*error)) : std::nullopt);
    writer.send();
    return writer.result();
  }
};

ServedConnection::ServedConnection(FileDescriptor socket, const std::optional<Peer>& peer,
                                   std::shared_ptr<PeerLimits> limits,
                                   std::shared_ptr<Arrivals> arrivals,
                                   std::shared_ptr<Registrations> registrations)
    : _socket(std::move(socket)),
      _connectedItself(!peer),
      _peer(peer ? *peer : peerOfSocket(_socket.get())),
      _share(std::move(limits), _peer.uid),
      _isWithinLimits(_share.takeConnection()),
      _arrivals(std::move(arrivals)),
      _registrations(std::move(registrations)) {
  _peer.connection = _socket.get();
}

void ServedConnection::setExportedInterface(XPCInterface interface) {
  _interface = "com.corvane." + interface.protocolName;
}

bool ServedConnection::processAll(sd_bus* bus) const {
  int progress = 0;
  do {
    progress = sd_bus_process(bus, nullptr);
  } while (progress > 0 && !_hasFailed);
  return progress == 0 && !_hasFailed;
}

void ServedConnection::serve() {
  static const sd_bus_vtable members[] = {
      SD_BUS_VTABLE_START(0),
      Handlers::served<&Handlers::connectWithEndpoint>(connectMember),
      Handlers::served<&Handlers::getVersionString>(versionMember),
      Handlers::served<&Handlers::registerClientWithPID>(registerMember),
      Handlers::served<&Handlers::unregisterClientWithPID>(unregisterMember),
      Handlers::served<&Handlers::performPrivilegedOperation>(performMember),
      Handlers::served<&Handlers::enableDebugMode>(debugMember),
      SD_BUS_VTABLE_END};
  static const sd_bus_vtable controlMembers[] = {
      SD_BUS_VTABLE_START(0), Handlers::served<&Handlers::cancelOperation>(cancelMember),
      Handlers::served<&Handlers::queryAuthorization>(queryMember), SD_BUS_VTABLE_END};

  const int socket = _socket.get();
  if (_connectedItself) _process = connectedProcess(socket);
  _peer.process = _process ? &*_process : nullptr;
  auto [guarded, forward] = connectedSockets();
  MessageGuard guard(socket, std::move(forward), _share);
  const Result<Bus> made = makePeerBus(std::move(_socket), BusRole::Server, std::move(guarded));
  if (!made) return;
  const Bus& bus = *made;
  if (sd_bus_add_object_vtable(bus.get(), nullptr, helperObjectPath, _interface.c_str(), members,
                               this) < 0) {
    return;
  }
  if (_control != nullptr && sd_bus_add_object_vtable(bus.get(), nullptr, helperObjectPath,
                                                      controlInterface, controlMembers, this) < 0) {
    return;
  }

  const CurrentPeerScope scope(_peer);
  for (bool hasInput = false;;) {
    {
      const Turns::Turn turn = _share.takeTurn();
      if (hasInput && !hasPassedOn(guard)) return;
      if (!processAll(bus.get())) return;
    }
    // No message is on its way, and the last has been handled: its memory is given back.
    if (!guard.deadline()) _share.takeMessage(0);

    // Answers go out before anything more is read: a peer that does not take them waits alone.
    const int events = sd_bus_get_events(bus.get());
    if (events < 0) return;
    const bool hasOutput = (events & POLLOUT) != 0;
    // After the last line of the handshake the library must be ready. If it is not, it has
    // understood the lines otherwise than the guard, which can then vouch for nothing that follows.
    if (!guard.isInHandshake() && !hasOutput && sd_bus_is_ready(bus.get()) <= 0) return;

    const auto deadline = guard.deadline().value_or(MessageGuard::Clock::time_point::max());
    if (!waitFor(socket, hasOutput ? POLLOUT : POLLIN, deadline)) return;
    hasInput = !hasOutput;
  }
}

}  // namespace corvane
