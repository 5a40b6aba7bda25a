#include "platform/HelperConnection.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <utility>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/HelperAddress.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"
#include "platform/linux/transport/PeerLimits.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = CommunicationFailure::Kind;

CommunicationFailure failure(const Error& error, Kind otherwise, const std::string& what) {
  const Kind kind = isPOSIXError(error, POSIXErrorCode::TimedOut) ? Kind::TimedOut : otherwise;
  return {kind, what + ": " + error.localizedDescription()};
}

// Whether an attempt to connect failed because nothing listens there, or because it is not allowed.
// Everything else says nothing about a helper.
bool isRefusal(const Error& error) {
  constexpr POSIXErrorCode refusals[] = {POSIXErrorCode::NoEntry, POSIXErrorCode::NotDirectory,
                                         POSIXErrorCode::NameTooLong,
                                         POSIXErrorCode::ConnectionRefused, POSIXErrorCode::Access};
  return std::any_of(std::begin(refusals), std::end(refusals),
                     [&error](POSIXErrorCode code) { return isPOSIXError(error, code); });
}

class LinuxHelperConnection : public HelperConnection {
 public:
  LinuxHelperConnection(Bus bus, ByteInput input)
      : _input(std::move(input)), _bus(std::move(bus)) {}

  Answer<std::string> getVersionString(Timeout timeout) override {
    auto reply = call(versionMember, timeout, [](MessageWriter&) {});
    if (!reply) return reply.error();
    MessageReader reader(reply->get());
    std::string version(reader.text());
    if (reader.result() < 0) return badReply(reader.result());
    return version;
  }

  Answer<void> registerClientWithPID(std::int32_t pid, Timeout timeout) override {
    return callWithoutResult(registerMember, timeout, pid);
  }

  Answer<void> unregisterClientWithPID(std::int32_t pid, Timeout timeout) override {
    return callWithoutResult(unregisterMember, timeout, pid);
  }

  Answer<void> enableDebugMode(bool flag, Timeout timeout) override {
    return callWithoutResult(debugMember, timeout, int{flag});
  }

  Answer<std::optional<Error>> performPrivilegedOperation(
      std::uint64_t code, const Data& authorizationData,
      std::optional<XPCListenerEndpoint> feedbackEndpoint, const OperationArguments& arguments,
      Timeout timeout) override {
    if (leastMessageSize(arguments) > maximumMessageSize) {
      return CommunicationFailure{Kind::TooLarge,
                                  "The request is larger than a message to the helper may be"};
    }
    auto transport = feedbackEndpoint ? feedbackEndpoint->takeTransport() : nullptr;
    FileDescriptor endpoint;
    if (transport != nullptr) endpoint = std::move(transport->socket);
    auto reply = call(performMember, timeout, [&](MessageWriter& writer) {
      appendPerformCall(writer, code, authorizationData, endpoint, arguments);
      // The message holds a copy: the helper alone shall hold the endpoint from now on.
      endpoint.reset();
    });
    if (!reply) return reply.error();
    MessageReader reader(reply->get());
    std::optional<Error> error = readOptionalError(reader);
    if (reader.result() < 0) return badReply(reader.result());
    return error;
  }

  Answer<bool> cancelOperation(const std::string& token, Timeout timeout) override {
    auto reply = call(
        cancelMember, timeout,
        [&](MessageWriter& writer) { writer.append(cancelMember.call, token.c_str()); },
        controlInterface);
    if (!reply) return reply.error();
    MessageReader reader(reply->get());
    const bool isInProgress = reader.boolean();
    if (reader.result() < 0) return badReply(reader.result());
    return isInProgress;
  }

  Answer<AuthorizationState> queryAuthorization(std::uint64_t code, const Data& authorizationData,
                                                Timeout timeout) override {
    auto reply = call(
        queryMember, timeout,
        [&](MessageWriter& writer) { appendQueryCall(writer, code, authorizationData); },
        controlInterface);
    if (!reply) return reply.error();
    MessageReader reader(reply->get());
    const AuthorizationState state = readAuthorizationState(reader);
    if (reader.result() < 0) return badReply(reader.result());
    return state;
  }

 private:
  static CommunicationFailure badReply(int result) {
    return failure(posixErrorFromHost(-result), Kind::BadMessage,
                   "The helper's answer could not be read");
  }

  // Sends a call that `append` fills with arguments, and waits for its answer.
  template <typename Append>
  Answer<BusMessage> call(const Member& member, Timeout timeout, Append append,
                          const char* interface = helperInterface) {
    auto writer =
        MessageWriter::ofCall(_bus.get(), nullptr, helperObjectPath, interface, member.name);
    append(writer);
    if (writer.result() < 0) {
      return failure(posixErrorFromHost(-writer.result()), Kind::BadMessage,
                     "The request could not be put into a message");
    }
    std::uint64_t cookie = 0;
    writer.send(_bus.get(), &cookie);
    const auto deadline = timeout ? Clock::now() + *timeout : Clock::time_point::max();
    Result<BusMessage> reply =
        writer.result() < 0 ? posixErrorFromHost(-writer.result()) : receiveReply(cookie, deadline);
    if (!reply) return failure(reply.error(), Kind::Lost, "The helper did not answer");
    const sd_bus_error* error = sd_bus_message_get_error(reply->get());
    if (error == nullptr) return *std::move(reply);
    const Kind refusal = sd_bus_error_has_name(error, SD_BUS_ERROR_LIMITS_EXCEEDED) != 0
                             ? Kind::TooLarge
                             : Kind::BadMessage;
    return CommunicationFailure{refusal,
                                std::string("The helper refused the request: ") +
                                    (error->message != nullptr ? error->message : error->name)};
  }

  // Waits for the answer to the message called `cookie`. The helper sends nothing else.
  Result<BusMessage> receiveReply(std::uint64_t cookie, Clock::time_point deadline) {
    for (;;) {
      sd_bus_message* raw = nullptr;
      const int progress = sd_bus_process(_bus.get(), &raw);
      BusMessage message(raw);
      if (progress < 0) return posixErrorFromHost(-progress);
      std::uint64_t answered = 0;
      if (message != nullptr && sd_bus_message_get_reply_cookie(raw, &answered) >= 0 &&
          answered == cookie) {
        return message;
      }
      if (progress > 0) continue;
      const Result<void> waited = waitAndPump(_bus.get(), _input, deadline);
      if (!waited) return waited.error();
    }
  }

  // With one argument of a basic type.
  template <typename T>
  Answer<void> callWithoutResult(const Member& member, Timeout timeout, T argument) {
    auto reply =
        call(member, timeout, [&](MessageWriter& writer) { writer.append(member.call, argument); });
    if (!reply) return reply.error();
    return {};
  }

  ByteInput _input;
  Bus _bus;
};

}  // namespace

std::string defaultHelperAddress() {
  return helperAddressOf("com.corvane.system.privilegedhelper-vnt");
}

Answer<std::unique_ptr<HelperConnection>> HelperConnection::connect(
    const std::string& path, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  Result<FileDescriptor> socket = connectedTo(path, deadline);
  if (!socket) {
    const Kind kind = isRefusal(socket.error()) ? Kind::Refused : Kind::Lost;
    return failure(socket.error(), kind, "No helper could be reached at " + path);
  }
  ByteInput input(socket->get());
  Result<Bus> bus = makePeerBus(*std::move(socket), BusRole::Client, input.takeReadingEnd());
  const Result<void> taken = bus ? completeHandshake(bus->get(), input, deadline) : bus.error();
  if (!taken) {
    return failure(taken.error(), Kind::Lost,
                   "The helper at " + path + " did not take the connection");
  }
  return std::make_unique<LinuxHelperConnection>(*std::move(bus), std::move(input));
}

}  // namespace corvane
