#include <csignal>

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/ConnectedProcesses.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class ConnectedProcessesTest : public testing::Test {
 protected:
  void SetUp() override {
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(::bind(listening.get(), generic, sizeof address), 0);
    ASSERT_EQ(::listen(listening.get(), 10), 0);
  }

  FileDescriptor connect() const {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(socket.get(), generic, sizeof address), 0);
    return socket;
  }

  TemporaryFolder folder;
  std::string path = folder.path("socket");
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const sockaddr* generic = reinterpret_cast<const sockaddr*>(&address);
  FileDescriptor listening{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

TEST_F(ConnectedProcessesTest, NobodyIsConnected) {
  EXPECT_TRUE(processesConnectedTo(path).value().empty());
}

TEST_F(ConnectedProcessesTest, TheCallingProcessIsNotNamed) {
  const FileDescriptor own = connect();
  const FileDescriptor served(::accept(listening.get(), nullptr, nullptr));
  EXPECT_TRUE(processesConnectedTo(path).value().empty());
}

TEST_F(ConnectedProcessesTest, AnotherProcessIsNamedOnceHoweverOftenItIsConnected) {
  const pid_t other = ::fork();
  if (other == 0) {
    listening.reset();
    ::prctl(PR_SET_NAME, "another client");
    const FileDescriptor first = connect();
    const FileDescriptor second = connect();
    ::pause();
    ::_exit(0);
  }
  const FileDescriptor first(::accept(listening.get(), nullptr, nullptr));
  const FileDescriptor second(::accept(listening.get(), nullptr, nullptr));
  const auto processes = processesConnectedTo(path).value();
  ASSERT_EQ(processes.size(), 1U);
  EXPECT_EQ(processes[0].pid, other);
  EXPECT_EQ(processes[0].name, "another client");
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
}

}  // namespace
}  // namespace corvane
