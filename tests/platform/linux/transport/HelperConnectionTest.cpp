#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/HelperConnection.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

/// A helper that takes one connection, and then answers nothing until the connection ends.
class SilentHelper {
 public:
  SilentHelper() : _listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(_listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(::listen(_listening.get(), 1), 0);
    _thread = std::thread([this] {
      FileDescriptor accepted(
          ::accept4(_listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      const int socket = accepted.get();
      const Bus bus = makePeerBus(std::move(accepted), BusRole::Server);
      const auto deadline = std::chrono::steady_clock::now() + handshakeTimeout;
      if (completeHandshake(bus.get(), deadline) == 0) {
        waitFor(socket, POLLRDHUP, std::chrono::steady_clock::time_point::max());
      }
    });
  }
  SilentHelper(const SilentHelper&) = delete;
  SilentHelper& operator=(const SilentHelper&) = delete;
  ~SilentHelper() { _thread.join(); }

  std::string path() const { return _folder.path("socket"); }

 private:
  TemporaryFolder _folder;
  FileDescriptor _listening;
  std::thread _thread;
};

CommunicationFailure::Kind kindOf(const HelperConnection::Answer<std::string>& answer) {
  const auto* failure = std::get_if<CommunicationFailure>(&answer);
  EXPECT_NE(failure, nullptr);
  return failure != nullptr ? failure->kind : CommunicationFailure::Kind::Refused;
}

TEST(HelperConnectionTest, AHelperThatDoesNotAnswerInTimeIsTimedOut) {
  const SilentHelper helper;
  auto answer = HelperConnection::connect(helper.path(), std::chrono::seconds(10));
  ASSERT_TRUE(std::holds_alternative<std::unique_ptr<HelperConnection>>(answer));
  const auto connection = std::get<std::unique_ptr<HelperConnection>>(std::move(answer));
  for (const int patience : {20, 0}) {
    EXPECT_EQ(kindOf(connection->getVersionString(std::chrono::milliseconds(patience))),
              CommunicationFailure::Kind::TimedOut);
  }
}

}  // namespace
}  // namespace corvane
