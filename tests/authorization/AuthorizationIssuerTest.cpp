#include <array>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/AuthorizationIssuer.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"
#include "tests/authorization/AuthorizationFolder.h"
#include "tests/authorization/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;

FileDescriptor listenAt(const std::string& path, int backlog) {
  FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), backlog) != 0) {
    std::abort();
  }
  return listener;
}

FileDescriptor accept(const FileDescriptor& listener) {
  return FileDescriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

class AuthorizationIssuerTest : public ::testing::Test {
 protected:
  void expectFailure(const std::string& socketPath, POSIXErrorCode code) const {
    const auto form = requestAuthorizationExternalForm(socketPath, 50ms);
    ASSERT_TRUE(std::holds_alternative<Error>(form));
    const Error& error = std::get<Error>(form);
    EXPECT_TRUE(isPOSIXError(error, code)) << error.localizedDescription();
    EXPECT_EQ(*error.userInfo().find(NSFilePathErrorKey), Value(socketPath));
  }

  const TemporaryFolder folder;
  const std::string path = folder.path("socket");
};

TEST_F(AuthorizationIssuerTest, AMissingSocketIsTold) {
  expectFailure(path, POSIXErrorCode::NoEntry);
  expectFailure("", POSIXErrorCode::NoEntry);
}

TEST_F(AuthorizationIssuerTest, ASocketWithoutListenerIsTold) {
  listenAt(path, 1).reset();
  expectFailure(path, POSIXErrorCode::ConnectionRefused);
}

TEST_F(AuthorizationIssuerTest, ASilentIssuerIsTimedOut) {
  const FileDescriptor listener = listenAt(path, 1);
  expectFailure(path, POSIXErrorCode::TimedOut);
}

TEST_F(AuthorizationIssuerTest, AFullQueueIsTimedOut) {
  const FileDescriptor listener = listenAt(path, 0);
  const FileDescriptor first = connectionTo(listener);
  expectFailure(path, POSIXErrorCode::TimedOut);
}

TEST_F(AuthorizationIssuerTest, ARefusalIsTold) {
  const FileDescriptor listener = listenAt(path, 1);
  for (const std::size_t sent : {0U, 31U}) {
    std::thread issuer([&] {
      const FileDescriptor connection = accept(listener);
      ::send(connection.get(), std::string(sent, 'x').data(), sent, MSG_NOSIGNAL);
    });
    const auto form = requestAuthorizationExternalForm(path, 60s);
    issuer.join();
    ASSERT_TRUE(std::holds_alternative<Error>(form));
    EXPECT_TRUE(isPOSIXError(std::get<Error>(form), POSIXErrorCode::ConnectionReset));
  }
}

TEST_F(AuthorizationIssuerTest, AFormMayComeInPieces) {
  const FileDescriptor listener = listenAt(path, 1);
  const std::string sent = "0123456789abcdef0123456789ABCDEF";
  std::thread issuer([&] {
    const FileDescriptor connection = accept(listener);
    for (const char c : sent) ::send(connection.get(), &c, 1, MSG_NOSIGNAL);
  });
  const auto form = requestAuthorizationExternalForm(path, 60s);
  issuer.join();
  ASSERT_TRUE(std::holds_alternative<AuthorizationExternalForm>(form));
  const auto& bytes = std::get<AuthorizationExternalForm>(form).bytes;
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(bytes), sizeof bytes), sent);
}

class IssuerProgramTest : public AuthorizationIssuerTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "the issuer is root's";
  }

  static std::optional<ProcessIdentity> identityIn(const AuthorizationExternalForm& form) {
    AuthorizationKeyFile file(authorizationFolder().path());
    return readExternalForm(form, std::get<AuthorizationKey>(file.key()));
  }
};

TEST_F(IssuerProgramTest, TheFormIsThatOfTheConnectingProcess) {
  const FileDescriptor listener = listenAt(path, 1);
  std::thread service([&] {
    const FileDescriptor connection = accept(listener);
    ChildProcess issuer = ChildProcess::program({ISSUER_PROGRAM}, {.input = connection.get()});
    EXPECT_EQ(issuer.reap(), 0);
  });
  const auto form = requestAuthorizationExternalForm(path, 60s);
  service.join();
  ASSERT_TRUE(std::holds_alternative<AuthorizationExternalForm>(form));
  EXPECT_EQ(identityIn(std::get<AuthorizationExternalForm>(form)),
            ProcessIdentity::ofThisProcess());
}

TEST_F(IssuerProgramTest, ServesWithoutServiceManager) {
  auto [messages, messagesEnd] = makePipe();
  ChildProcess service = ChildProcess::program(
      {"systemd-socket-activate", "--listen=" + path, "--accept", "--inetd",
       "--setenv=CORVANE_AUTHORIZATION_DIRECTORY=" + authorizationFolder().path(), ISSUER_PROGRAM},
      {.errors = messagesEnd.get()});
  messagesEnd.reset();
  std::array<char, 256> ready{};
  if (::read(messages.get(), ready.data(), ready.size()) <= 0) {
    GTEST_SKIP() << "systemd-socket-activate is not installed";
  }
  for (int round = 0; round < 3; ++round) {
    const auto form = requestAuthorizationExternalForm(path, 60s);
    ASSERT_TRUE(std::holds_alternative<AuthorizationExternalForm>(form))
        << std::get<Error>(form).localizedDescription();
    EXPECT_EQ(identityIn(std::get<AuthorizationExternalForm>(form)),
              ProcessIdentity::ofThisProcess());
  }
}

TEST_F(IssuerProgramTest, SaysWhatIsWrong) {
  struct Case {
    FileDescriptor input;
    const char* message;
  };
  ChildProcess ended = ChildProcess::connectedOfUser(someUser);
  ended.kill();
  const Case cases[] = {
      {FileDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC)),
       "com.corvane.authorization: There is no connected socket.\n"},
      {FileDescriptor(::dup(ended.socket())),
       "com.corvane.authorization: The process at the other end of the socket has ended.\n"},
  };
  for (const auto& [input, message] : cases) {
    auto [messages, messagesEnd] = makePipe();
    ChildProcess issuer = ChildProcess::program(
        {ISSUER_PROGRAM}, {.input = input.get(), .errors = messagesEnd.get()});
    messagesEnd.reset();
    EXPECT_EQ(readToEnd(messages), message);
    EXPECT_EQ(issuer.reap(), 1);
  }
}

TEST_F(IssuerProgramTest, AnUnsafeKeyIssuesNothing) {
  writeFile(folder.path("key"), std::string(32, 'k'), 0644);
  const ChildProcess child = ChildProcess::connectedOfUser(someUser);
  auto [messages, messagesEnd] = makePipe();
  ChildProcess issuer = ChildProcess::program(
      {"env", "CORVANE_AUTHORIZATION_DIRECTORY=" + folder.path(), ISSUER_PROGRAM},
      {.input = child.socket(), .errors = messagesEnd.get()});
  messagesEnd.reset();
  EXPECT_EQ(readToEnd(messages),
            "com.corvane.authorization: " + folder.path("key") + ": Operation not permitted\n");
  EXPECT_EQ(issuer.reap(), 1);
}

}  // namespace
}  // namespace corvane
