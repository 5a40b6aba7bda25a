#include "fuzz/TransportChecks.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

#include "fuzz/Conversation.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/MessageGuard.h"
#include "platform/linux/transport/RequestHeader.h"
#include "platform/linux/transport/ServedConnection.h"
#include "tests/platform/linux/transport/Messages.h"

namespace corvane {

namespace {

constexpr uid_t peerUser = 1000;
// The next portion that a guard has passed on; empty if there is none.
Portion receive(int socket) {
  Portion portion;
  std::array<char, 16384> buffer;
  iovec bytes{buffer.data(), buffer.size()};
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int) * mostDescriptors)> control{};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t size = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (size <= 0) return portion;
  portion.bytes.assign(buffer.data(), static_cast<std::size_t>(size));
  if (const cmsghdr* header = CMSG_FIRSTHDR(&message)) {
    portion.descriptors = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < portion.descriptors; ++i) {
      int descriptor = -1;
      std::memcpy(&descriptor, CMSG_DATA(header) + i * sizeof(int), sizeof(int));
      const FileDescriptor owned(descriptor);
    }
  }
  return portion;
}

// Whether the descriptors belong to the message that the portion begins.
bool isAnnounced(const Portion& portion) {
  const auto bytes = std::as_bytes(std::span(portion.bytes));
  if (bytes.size() < fixedHeaderSize) return false;
  const auto sizes = messageSizes(bytes.first<fixedHeaderSize>());
  if (!sizes) return false;
  const std::size_t header = fixedHeaderSize + sizes->rest() - sizes->body;
  return header <= bytes.size() && announcedDescriptors(bytes.first(header)) == portion.descriptors;
}

// A number that is none is equal to nothing, itself included.
bool isSame(const Value& one, const Value& other) {
  const Number* number = one.number();
  const Number* otherNumber = other.number();
  if (number != nullptr && otherNumber != nullptr && number->isDouble()) {
    return otherNumber->isDouble() && std::bit_cast<std::uint64_t>(number->doubleValue()) ==
                                          std::bit_cast<std::uint64_t>(otherNumber->doubleValue());
  }
  const auto isSameEntry = [](const auto& entry, const auto& otherEntry) {
    return entry.first == otherEntry.first && isSame(entry.second, otherEntry.second);
  };
  if (const Array* array = one.array()) {
    return other.array() != nullptr && std::ranges::equal(*array, *other.array(), isSame);
  }
  if (const Dictionary* dictionary = one.dictionary()) {
    return other.dictionary() != nullptr &&
           std::equal(dictionary->begin(), dictionary->end(), other.dictionary()->begin(),
                      other.dictionary()->end(), isSameEntry);
  }
  if (const Error* error = one.error()) {
    return other.error() != nullptr && error->domain() == other.error()->domain() &&
           error->code() == other.error()->code() &&
           isSame(Value(error->userInfo()), Value(other.error()->userInfo()));
  }
  return one == other;
}

// What has been read comes back when it is written and read once more. Written, an array is in a
// variant and so are its elements: it may then be nested too deep.
void checkWriting(const Array& values) {
  sd_bus* rawBus = nullptr;
  require(sd_bus_new(&rawBus) >= 0);
  const std::unique_ptr<sd_bus, decltype(&sd_bus_unref)> bus(rawBus, &sd_bus_unref);
  auto [ours, theirs] = connectedSockets();
  require(sd_bus_set_fd(rawBus, ours.get(), ours.get()) >= 0);
  ours.release();
  require(sd_bus_start(rawBus) >= 0);
  sd_bus_message* raw = nullptr;
  require(sd_bus_message_new_method_call(rawBus, &raw, nullptr, "/a", "a.b", "C") >= 0);
  const BusMessage message(raw);
  require(sd_bus_message_open_container(raw, SD_BUS_TYPE_ARRAY, "v") >= 0);
  MessageWriter writer(raw);
  for (const Value& value : values) appendVariant(writer, value);
  if (writer.result() < 0) return;
  require(sd_bus_message_close_container(raw) >= 0);
  require(sd_bus_message_seal(raw, 1, 0) >= 0);
  MessageReader reader(raw);
  const Array again = readArray(reader);
  if (reader.result() < 0) {
    require(reader.result() == -EBADMSG);
    return;
  }
  require(std::ranges::equal(values, again, isSame));
}

/// Stands where the helper stands, and looks at what comes.
class Examiner : public ZELPrivilegedHelperProtocol {
 public:
  int requests = 0;

  void connectWithEndpointUsingReply(const EndpointReply& reply) override {
    reply(endpointFromSocket(std::move(connectedSockets().first)));
  }
  void getVersionStringUsingReply(const VersionReply& reply) override { reply("1"); }
  void registerClientWithPID(std::int32_t /*pid*/) override {}
  void unregisterClientWithPID(std::int32_t /*pid*/) override {}
  void performPrivilegedOperation(std::uint64_t /*code*/, const Data& /*authorizationData*/,
                                  std::optional<XPCListenerEndpoint> /*feedbackEndpoint*/,
                                  std::optional<Array> arguments,
                                  const OperationReply& reply) override {
    ++requests;
    if (arguments) {
      for (const Value& argument : *arguments) checkValue(argument, maximumNesting);
      checkWriting(*arguments);
    }
    reply(std::nullopt);
  }
  void enableDebugMode(bool /*flag*/) override {}

 private:
  static constexpr int maximumNesting = 32;
};

int serve(const std::vector<Portion>& portions) {
  const int before = openDescriptors();
  const auto limits = std::make_shared<PeerLimits>();
  Examiner examiner;
  {
    auto [ours, theirs] = connectedSockets();
    // What does not fit is not sent, nor what follows.
    std::ranges::all_of(portions, [socket = theirs.get()](const Portion& portion) {
      return send(socket, portion);
    });
    ::shutdown(theirs.get(), SHUT_WR);
    ServedConnection connection(std::move(ours), Peer{1, peerUser, peerUser}, limits,
                                std::make_shared<Arrivals>(), std::make_shared<Registrations>());
    connection.setExportedInterface({"ZELPrivilegedHelperProtocol"});
    connection.setExportedObject(examiner);
    std::thread serving([&] { connection.serve(); });
    // To the end of the answers: a peer that does not take them would be waited for.
    std::array<char, 65536> answers;
    pollfd readable{theirs.get(), POLLIN, 0};
    ssize_t size = 0;
    do {
      ::poll(&readable, 1, -1);
      size = ::recv(theirs.get(), answers.data(), answers.size(), MSG_DONTWAIT);
    } while (size > 0);
    serving.join();
  }
  require(openDescriptors() == before);
  PeerLimits::Share share(limits, peerUser);
  require(share.takeMessage(maximumMessageBytesPerUser));
  require(!limits->hasConnections());
  return examiner.requests;
}

const std::string handshake =
    std::string(1, '\0') + "AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n";

}  // namespace

void checkGuard(std::span<const std::byte> conversation) {
  const auto portions = portionsOf(conversation);
  const int before = openDescriptors();
  {
    const auto [ours, theirs] = connectedSockets();
    auto [forward, library] = connectedSockets();
    PeerLimits::Share share(std::make_shared<PeerLimits>(), peerUser);
    MessageGuard guard(ours.get(), std::move(forward), share);
    std::string sent;
    std::string passed;
    auto result = MessageGuard::Result::Waiting;
    for (const Portion& portion : portions) {
      if (result != MessageGuard::Result::Waiting || !send(theirs.get(), portion)) break;
      sent += portion.bytes;
      do {
        result = guard.pump();
        const Portion next = receive(library.get());
        require(next.descriptors == 0 || isAnnounced(next));
        require(next.bytes.empty() || result == MessageGuard::Result::Passed);
        passed += next.bytes;
      } while (result == MessageGuard::Result::Passed);
      require(sent.starts_with(passed));
      // Between messages nothing is kept back.
      require(guard.deadline() || result != MessageGuard::Result::Waiting || passed == sent);
    }
  }
  require(openDescriptors() == before);
}

int checkConversation(std::span<const std::byte> conversation) {
  return serve(portionsOf(conversation));
}

int checkRequest(std::span<const std::byte> body) {
  const std::string_view bytes(reinterpret_cast<const char*>(body.data()), body.size());
  const std::string start = header({.bodySize = static_cast<std::uint32_t>(body.size()),
                                    .fields = {path(), interface(), member(), signature()}});
  return serve({{0, handshake}, {0, start + std::string(bytes)}});
}

}  // namespace corvane
