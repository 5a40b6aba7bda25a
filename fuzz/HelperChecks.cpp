#include "fuzz/HelperChecks.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "fuzz/Conversation.h"
#include "platform/FeedbackListener.h"
#include "platform/HelperConnection.h"
#include "platform/linux/transport/Endpoint.h"

namespace corvane {

namespace {

// More than what is sent ever needs: a call that waits so long would wait for ever.
constexpr std::chrono::seconds patience{60};
constexpr int maximumNesting = 32;

/// Where the client connects.
class ListeningSocket {
 public:
  ListeningSocket() {
    require(::mkdtemp(_folder.data()) != nullptr);
    _path = _folder + "/socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    _path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    require(::bind(_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0);
    require(::listen(_socket.get(), 1) == 0);
  }
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;
  ~ListeningSocket() {
    ::unlink(_path.c_str());
    ::rmdir(_folder.c_str());
  }

  const std::string& path() const { return _path; }
  FileDescriptor accept() const {
    return FileDescriptor(::accept4(_socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
  }

 private:
  std::string _folder = "/tmp/corvane-fuzz.XXXXXX";
  std::string _path;
  FileDescriptor _socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

// Says all of it, and takes what comes until the other side has closed.
void converse(int socket, const std::vector<Portion>& portions) {
  std::ranges::all_of(portions, [socket](const Portion& portion) { return send(socket, portion); });
  ::shutdown(socket, SHUT_WR);
  std::array<char, 65536> taken;
  pollfd readable{socket, POLLIN, 0};
  ssize_t size = 0;
  do {
    ::poll(&readable, 1, -1);
    size = ::recv(socket, taken.data(), taken.size(), MSG_DONTWAIT);
  } while (size > 0);
}

int askForEverything(HelperConnection& helper) {
  int answered = 0;
  const auto count = [&answered](const auto& answer) { answered += answer ? 1 : 0; };
  const auto version = helper.getVersionString(patience);
  if (version) checkValue(Value(*version), 0);
  count(version);
  count(helper.registerClientWithPID(1, patience));
  count(helper.enableDebugMode(true, patience));
  const auto outcome = helper.performPrivilegedOperation(0, {}, std::nullopt, {}, patience);
  if (outcome && *outcome) checkValue(Value(**outcome), maximumNesting);
  count(outcome);
  count(helper.cancelOperation("token", patience));
  count(helper.queryAuthorization(0, {}, patience));
  return answered;
}

/// Looks at what it is told.
class Examiner : public ZELPrivilegedOperationFeedbackProtocol {
 public:
  int messages = 0;

  void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
    ++messages;
    checkValue(Value(feedback), maximumNesting);
  }
};

}  // namespace

int checkAnswers(std::span<const std::byte> conversation) {
  static const ListeningSocket listening;
  const int before = openDescriptors();
  int answered = 0;
  {
    std::thread helper(
        [portions = portionsOf(conversation)] { converse(listening.accept().get(), portions); });
    if (const auto connection = HelperConnection::connect(listening.path(), patience)) {
      answered = askForEverything(**connection);
    }
    helper.join();
  }
  require(openDescriptors() == before);
  return answered;
}

int checkFeedback(std::span<const std::byte> conversation) {
  const int before = openDescriptors();
  Examiner examiner;
  {
    const auto listener = FeedbackListener::serve(examiner);
    const auto transport = listener->takeEndpoint().takeTransport();
    converse(transport->socket.get(), portionsOf(conversation));
    listener->waitUntilClosed();
  }
  require(openDescriptors() == before);
  return examiner.messages;
}

}  // namespace corvane
