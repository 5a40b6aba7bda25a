#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"
#include "platform/linux/authorization/IssuerSocket.h"
#include "tests/platform/linux/support/ChildProcess.h"
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
    ASSERT_FALSE(form);
    const Error& error = form.error();
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
    ASSERT_FALSE(form);
    EXPECT_TRUE(isPOSIXError(form.error(), POSIXErrorCode::ConnectionReset));
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
  ASSERT_TRUE(form);
  const auto& bytes = form->bytes;
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(bytes), sizeof bytes), sent);
}

class IssuerProgramTest : public AuthorizationIssuerTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "the issuer is root's";
  }

  /// The issuer of `listener`, with its files in this test's own folder.
  ChildProcess issuerOf(const FileDescriptor& listener, const ChildProcess::Streams& streams = {},
                        const std::vector<std::string>& arguments = {}) const {
    std::vector<std::string> command = {
        "env", "CORVANE_AUTHORIZATION_DIRECTORY=" + folder.path("files"), ISSUER_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess::Streams ofIssuer = streams;
    ofIssuer.input = listener.get();
    return ChildProcess::program(command, ofIssuer);
  }

  std::optional<ProcessIdentity> identityIn(const AuthorizationExternalForm& form) const {
    AuthorizationKeyFile file(folder.path("files"));
    return readExternalForm(form, *file.key());
  }

  void expectAForm() const {
    const auto form = requestAuthorizationExternalForm(path, 60s);
    ASSERT_TRUE(form) << form.error().localizedDescription();
    EXPECT_EQ(identityIn(*form), ProcessIdentity::ofThisProcess());
  }

  void writeKey(const std::string& text, mode_t permissions) const {
    std::filesystem::create_directories(folder.path("files"));
    writeFile(keyPath, text, permissions);
  }

  const std::string keyPath = folder.path("files/key");
};

TEST_F(IssuerProgramTest, OneProcessServesOneClientAfterTheOther) {
  const FileDescriptor listener = listenAt(path, 8);
  const ChildProcess issuer = issuerOf(listener);
  for (int round = 0; round < 3; ++round) expectAForm();
}

TEST_F(IssuerProgramTest, ServesWithoutServiceManager) {
  auto [messages, messagesEnd] = makePipe();
  ChildProcess service = ChildProcess::program(
      {"systemd-socket-activate", "--listen=" + path, "--inetd",
       "--setenv=CORVANE_AUTHORIZATION_DIRECTORY=" + folder.path("files"), ISSUER_PROGRAM},
      {.errors = messagesEnd.get()});
  messagesEnd.reset();
  std::array<char, 256> ready{};
  if (::read(messages.get(), ready.data(), ready.size()) <= 0) {
    GTEST_SKIP() << "systemd-socket-activate is not installed";
  }
  for (int round = 0; round < 3; ++round) expectAForm();
}

TEST_F(IssuerProgramTest, ConnectionsThatAreKeptHoldNobodyUp) {
  const FileDescriptor listener = listenAt(path, 4096);
  // They have come before it started, and take nothing of what they get.
  constexpr int many = 500;
  std::vector<FileDescriptor> kept;
  kept.reserve(many);
  for (int count = 0; count < many; ++count) kept.push_back(connectionTo(listener));
  const ChildProcess issuer = issuerOf(listener);
  for (int round = 0; round < 20; ++round) expectAForm();
  for (const FileDescriptor& connection : kept) {
    std::array<char, 64> bytes{};
    EXPECT_EQ(::recv(connection.get(), bytes.data(), bytes.size(), 0),
              sizeof(AuthorizationExternalForm));
    EXPECT_EQ(::recv(connection.get(), bytes.data(), bytes.size(), 0), 0);
  }
}

TEST_F(IssuerProgramTest, WhoHasEndedOrHungUpHoldsNobodyUp) {
  const FileDescriptor listener = listenAt(path, 4096);
  for (int count = 0; count < 100; ++count) connectionTo(listener);
  const pid_t child = ::fork();
  if (child == 0) {
    for (int count = 0; count < 100; ++count) connectionTo(listener);
    ::_exit(0);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  auto [messages, messagesEnd] = makePipe();
  ChildProcess issuer = issuerOf(listener, {.errors = messagesEnd.get()}, {"0"});
  messagesEnd.reset();
  expectAForm();
  EXPECT_EQ(issuer.reap(), 0);
  EXPECT_EQ(readToEnd(messages),
            "com.corvane.authorization: The process at the other end of the socket has ended.\n")
      << "told once";
}

TEST_F(IssuerProgramTest, NobodyIsLostWhileItEnds) {
  const FileDescriptor listener = listenAt(path, 4096);
  std::atomic<int> left = 8;
  std::vector<std::thread> clients;
  for (int client = left; client > 0; --client) {
    clients.emplace_back([&] {
      for (int round = 0; round < 25; ++round) expectAForm();
      --left;
    });
  }
  // As a service manager does: whenever somebody is in the queue and none runs, one is started.
  while (left > 0) {
    pollfd waiting = {listener.get(), POLLIN, 0};
    if (::poll(&waiting, 1, 10) <= 0) continue;
    EXPECT_EQ(issuerOf(listener, {}, {"0"}).reap(), 0);
  }
  for (std::thread& client : clients) client.join();
}

TEST_F(IssuerProgramTest, EndsBetweenClientsWhenItIsToldTo) {
  const FileDescriptor listener = listenAt(path, 4096);
  for (int round = 0; round < 20; ++round) {
    ChildProcess issuer = issuerOf(listener);
    std::atomic<bool> isEnding = false;
    std::thread client([&] {
      while (!isEnding) expectAForm();
    });
    expectAForm();
    ::kill(issuer.pid(), SIGTERM);
    EXPECT_EQ(issuer.reap(), -1) << "by the signal";
    isEnding = true;
    // Who has come meanwhile is the next one's.
    const ChildProcess next = issuerOf(listener);
    client.join();
  }
}

TEST_F(IssuerProgramTest, SaysWhatIsWrongWithItsStart) {
  struct Case {
    std::vector<std::string> arguments;
    int status;
    const char* message;
  };
  const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const char* usage = "com.corvane.authorization: usage: com.corvane.authorization [SECONDS]\n";
  const Case cases[] = {
      {{}, 1, "com.corvane.authorization: Standard input is no socket that clients connect to.\n"},
      {{"x"}, 2, usage},
      {{"-1"}, 2, usage},
      {{"1", "2"}, 2, usage},
  };
  for (const auto& [arguments, status, message] : cases) {
    auto [messages, messagesEnd] = makePipe();
    ChildProcess issuer = issuerOf(nothing, {.errors = messagesEnd.get()}, arguments);
    messagesEnd.reset();
    EXPECT_EQ(readToEnd(messages), message);
    EXPECT_EQ(issuer.reap(), status);
  }
}

TEST_F(IssuerProgramTest, AKeyThatIsDamagedOrUnsafeIsReplaced) {
  struct Case {
    std::string text;
    mode_t permissions;
    const char* reason;
  };
  const Case cases[] = {{std::string(32, 'k'), 0644, "Operation not permitted"},
                        {std::string(31, 'k'), 0600, "Bad message"},
                        {"", 0600, "Bad message"}};
  for (const auto& [text, permissions, reason] : cases) {
    writeKey(text, permissions);
    const FileDescriptor listener = listenAt(path, 8);
    auto [messages, messagesEnd] = makePipe();
    const ChildProcess issuer = issuerOf(listener, {.errors = messagesEnd.get()});
    expectAForm();
    EXPECT_NE(contentOf(keyPath), text);
    EXPECT_EQ(readLine(messages), "com.corvane.authorization: " + keyPath + ": " + reason);
    EXPECT_EQ(readLine(messages), "com.corvane.authorization: A new key was made.");
    std::filesystem::remove(path);
  }
}

TEST_F(IssuerProgramTest, WithoutAKeyItIssuesNothingUntilThereIsOne) {
  std::filesystem::create_directories(keyPath);
  const FileDescriptor listener = listenAt(path, 8);
  auto [messages, messagesEnd] = makePipe();
  const ChildProcess issuer = issuerOf(listener, {.errors = messagesEnd.get()});
  for (int round = 0; round < 3; ++round) {
    const auto form = requestAuthorizationExternalForm(path, 60s);
    ASSERT_FALSE(form);
    EXPECT_TRUE(isPOSIXError(form.error(), POSIXErrorCode::ConnectionReset));
  }
  EXPECT_EQ(readLine(messages),
            "com.corvane.authorization: " + keyPath + ": Operation not permitted");
  std::filesystem::remove(keyPath);
  expectAForm();
}

}  // namespace
}  // namespace corvane
