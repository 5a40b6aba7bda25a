#include <array>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/HelperConnection.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"
#include "tests/platform/linux/transport/SocketPair.h"
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
      ByteInput input(socket);
      const auto bus = makePeerBus(std::move(accepted), BusRole::Server, input.takeReadingEnd());
      const auto deadline = std::chrono::steady_clock::now() + handshakeTimeout;
      if (bus && completeHandshake(bus->get(), input, deadline)) {
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

/// A helper that sends descriptors nobody asked for: with the handshake, or instead of an answer.
class HelperWithDescriptors {
 public:
  explicit HelperWithDescriptors(bool beginsWithThem) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(_listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(::listen(_listening.get(), 1), 0);
    _thread = std::thread([this, beginsWithThem] {
      SocketPair accepted;
      accepted.theirs.reset(::accept4(_listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
      accepted.send("DATA\r\nOK " + std::string(32, '0') + "\r\nAGREE_UNIX_FD\r\n",
                    beginsWithThem ? 2 : 0);
      // The request comes after the handshake.
      std::string all;
      std::array<char, 4096> buffer{};
      ssize_t size = 0;
      bool hasAnswered = beginsWithThem;
      while ((size = ::read(accepted.theirs.get(), buffer.data(), buffer.size())) > 0) {
        all.append(buffer.data(), static_cast<std::size_t>(size));
        if (hasAnswered || all.find(versionMember.name) == std::string::npos) continue;
        accepted.send("l", 2);
        hasAnswered = true;
      }
    });
  }
  HelperWithDescriptors(const HelperWithDescriptors&) = delete;
  HelperWithDescriptors& operator=(const HelperWithDescriptors&) = delete;
  ~HelperWithDescriptors() { _thread.join(); }

  std::string path() const { return _folder.path("socket"); }

 private:
  TemporaryFolder _folder;
  FileDescriptor _listening{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::thread _thread;
};

template <typename T>
CommunicationFailure::Kind kindOf(const Answer<T>& answer) {
  EXPECT_FALSE(answer);
  return answer ? CommunicationFailure::Kind::Refused : answer.error().kind;
}

TEST(HelperConnectionTest, AHelperThatDoesNotAnswerInTimeIsTimedOut) {
  const SilentHelper helper;
  auto answer = HelperConnection::connect(helper.path(), std::chrono::seconds(10));
  ASSERT_TRUE(answer);
  const auto connection = *std::move(answer);
  for (const int patience : {20, 0}) {
    EXPECT_EQ(kindOf(connection->getVersionString(std::chrono::milliseconds(patience))),
              CommunicationFailure::Kind::TimedOut);
  }
}

TEST(HelperConnectionTest, DescriptorsInTheHandshakeAreNotTakenAndEndIt) {
  const int before = openDescriptors();
  {
    const HelperWithDescriptors helper(true);
    EXPECT_EQ(kindOf(HelperConnection::connect(helper.path(), std::chrono::seconds(10))),
              CommunicationFailure::Kind::Lost);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(HelperConnectionTest, DescriptorsInAnAnswerAreNotTakenAndEndTheConnection) {
  const int before = openDescriptors();
  {
    const HelperWithDescriptors helper(false);
    auto answer = HelperConnection::connect(helper.path(), std::chrono::seconds(10));
    ASSERT_TRUE(answer);
    const auto connection = *std::move(answer);
    EXPECT_EQ(kindOf(connection->getVersionString(std::chrono::seconds(10))),
              CommunicationFailure::Kind::Lost);
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace corvane
