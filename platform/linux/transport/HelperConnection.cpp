#include "platform/HelperConnection.h"

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/PeerBus.h"
#include "platform/linux/transport/PeerLimits.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = CommunicationFailure::Kind;

CommunicationFailure failure(int hostErrno, Kind otherwise, const std::string& what) {
  const Kind kind = hostErrno == ETIMEDOUT ? Kind::TimedOut : otherwise;
  return {kind, what + ": " + posixDescription(posixCodeFromHost(hostErrno))};
}

// Whether an attempt to connect failed because nothing listens there, or because it is not allowed.
// Everything else says nothing about a helper.
bool isRefusal(int hostErrno) {
  return hostErrno == ENOENT || hostErrno == ENOTDIR || hostErrno == ENAMETOOLONG ||
         hostErrno == ECONNREFUSED || hostErrno == EACCES;
}

// How a call fails whose answer the helper did not live to give. The library makes it look like an
// error that was answered.
bool isLoss(int result) {
  return result == -ECONNRESET || result == -ENOTCONN || result == -EPIPE || result == -ESHUTDOWN;
}

// A socket connected to `path`; a listener whose queue is full is asked again until `deadline`.
FileDescriptor connectedSocket(const std::string& path, Clock::time_point deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return {};
  }
  path.copy(address.sun_path, path.size());
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  while (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
         0) {
    if (errno != EAGAIN) return {};
    if (Clock::now() >= deadline) {
      errno = ETIMEDOUT;
      return {};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return socket;
}

class LinuxHelperConnection : public HelperConnection {
 public:
  explicit LinuxHelperConnection(Bus bus) : _bus(std::move(bus)) {}

  Answer<std::string> getVersionString(Timeout timeout) override {
    auto reply = call(versionMember, timeout, [](sd_bus_message*) { return 0; });
    if (auto* failed = std::get_if<CommunicationFailure>(&reply)) return std::move(*failed);
    const char* version = nullptr;
    const int result = sd_bus_message_read(std::get<BusMessage>(reply).get(), "s", &version);
    if (result <= 0) return badReply(result);
    return std::string(version);
  }

  Answer<std::monostate> registerClientWithPID(std::int32_t pid, Timeout timeout) override {
    return callWithoutResult(registerMember, timeout, "i", pid);
  }

  Answer<std::monostate> unregisterClientWithPID(std::int32_t pid, Timeout timeout) override {
    return callWithoutResult(unregisterMember, timeout, "i", pid);
  }

  Answer<std::monostate> enableDebugMode(bool flag, Timeout timeout) override {
    return callWithoutResult(debugMember, timeout, "b", int{flag});
  }

  Answer<std::optional<Error>> performPrivilegedOperation(
      std::uint64_t code, const Data& authorizationData,
      std::optional<XPCListenerEndpoint> feedbackEndpoint, const std::optional<Array>& arguments,
      Timeout timeout) override {
    if (arguments && leastMessageSize(*arguments) > maximumMessageSize) {
      return CommunicationFailure{Kind::TooLarge,
                                  "The request is larger than a message to the helper may be"};
    }
    auto transport = feedbackEndpoint ? feedbackEndpoint->takeTransport() : nullptr;
    auto reply = call(performMember, timeout, [&](sd_bus_message* message) {
      int result = sd_bus_message_append(message, "t", code);
      if (result >= 0) {
        result = sd_bus_message_append_array(message, 'y', authorizationData.data(),
                                             authorizationData.size());
      }
      if (result >= 0) result = sd_bus_message_open_container(message, 'a', "h");
      if (result >= 0 && transport != nullptr) {
        result = sd_bus_message_append(message, "h", transport->socket.get());
      }
      if (result >= 0) result = sd_bus_message_close_container(message);
      if (result >= 0) result = appendArguments(message, arguments);
      // The message holds a copy: the helper alone shall hold the endpoint from now on.
      transport.reset();
      return result;
    });
    if (auto* failed = std::get_if<CommunicationFailure>(&reply)) return std::move(*failed);
    std::optional<Error> error;
    const int result = readOptionalError(std::get<BusMessage>(reply).get(), error);
    if (result < 0) return badReply(result);
    return error;
  }

 private:
  static int appendArguments(sd_bus_message* message, const std::optional<Array>& arguments) {
    int result = sd_bus_message_open_container(message, 'a', "av");
    if (result >= 0 && arguments) {
      result = sd_bus_message_open_container(message, 'a', "v");
      for (auto value = arguments->begin(); result >= 0 && value != arguments->end(); ++value) {
        result = appendVariant(message, *value);
      }
      if (result >= 0) result = sd_bus_message_close_container(message);
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
  }

  static CommunicationFailure badReply(int result) {
    return failure(-result, Kind::BadMessage, "The helper's answer could not be read");
  }

  // Sends a call that `append` fills with arguments, and waits for its answer.
  template <typename Append>
  Answer<BusMessage> call(const char* member, Timeout timeout, Append append) {
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(_bus.get(), &raw, nullptr, helperObjectPath,
                                                helperInterface, member);
    BusMessage message(raw);
    if (result >= 0) result = append(raw);
    if (result < 0) {
      return failure(-result, Kind::BadMessage, "The request could not be put into a message");
    }
    // To the library none at all is a time of its own choice.
    const std::uint64_t microseconds =
        timeout ? static_cast<std::uint64_t>(
                      std::max(std::chrono::microseconds(*timeout), std::chrono::microseconds(1))
                          .count())
                : UINT64_MAX;
    sd_bus_message* answer = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    result = sd_bus_call(_bus.get(), raw, microseconds, &error, &answer);
    BusMessage reply(answer);
    if (result >= 0) return reply;
    const bool isAnswered =
        sd_bus_error_is_set(&error) != 0 && !isLoss(result) && result != -ETIMEDOUT;
    const Kind refusal = sd_bus_error_has_name(&error, SD_BUS_ERROR_LIMITS_EXCEEDED) != 0
                             ? Kind::TooLarge
                             : Kind::BadMessage;
    CommunicationFailure failed =
        isAnswered ? CommunicationFailure{refusal, std::string("The helper refused the request: ") +
                                                       (error.message != nullptr ? error.message
                                                                                 : error.name)}
                   : failure(-result, Kind::Lost, "The helper did not answer");
    sd_bus_error_free(&error);
    return failed;
  }

  template <typename T>
  Answer<std::monostate> callWithoutResult(const char* member, Timeout timeout, const char* type,
                                           T argument) {
    auto reply = call(member, timeout, [&](sd_bus_message* message) {
      return sd_bus_message_append(message, type, argument);
    });
    if (auto* failed = std::get_if<CommunicationFailure>(&reply)) return std::move(*failed);
    return std::monostate();
  }

  Bus _bus;
};

}  // namespace

HelperConnection::Answer<std::unique_ptr<HelperConnection>> HelperConnection::connect(
    const std::string& path, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  FileDescriptor socket = connectedSocket(path, deadline);
  if (!socket) {
    const Kind kind = isRefusal(errno) ? Kind::Refused : Kind::Lost;
    return failure(errno, kind, "No helper could be reached at " + path);
  }
  Bus bus = makePeerBus(std::move(socket), BusRole::Client);
  const int result = bus == nullptr ? -errno : completeHandshake(bus.get(), deadline);
  if (result < 0) {
    return failure(-result, Kind::Lost, "The helper at " + path + " did not take the connection");
  }
  return std::make_unique<LinuxHelperConnection>(std::move(bus));
}

}  // namespace corvane
