#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "platform/AuthenticationAgent.h"
#include "tests/platform/linux/authorization/PolkitService.h"

namespace corvane {
namespace {

/// A process of a user without terminal that finds out who could be asked, once it is told to.
class Asker {
 public:
  Asker(const PolkitService& service, uid_t user) : _go(makePipe()) {
    _process = ::fork();
    if (_process == 0) {
      _go.input.reset();
      ::setenv("DBUS_SYSTEM_BUS_ADDRESS", service.busAddress().c_str(), 1);
      ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
      if (::setresuid(user, user, user) != 0) ::_exit(255);
      readToEnd(_go.output);
      ::_exit(static_cast<int>(authorizationDialogsOfThisProcess()));
    }
  }

  ProcessIdentity identity() const { return {_process, 0, processStartTime(_process).value()}; }

  AuthorizationDialogs find() {
    _go.input.reset();
    int status = 0;
    ::waitpid(_process, &status, 0);
    return static_cast<AuthorizationDialogs>(WEXITSTATUS(status));
  }

 private:
  PipeEnds _go;
  pid_t _process = -1;
};

class AuthorizationDialogsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can serve a polkit of its own";
  }
  void start(const std::string& polkit) {
    if (!service.start(polkit)) GTEST_SKIP() << "no polkit can be started here";
  }

  PolkitService service;
};

TEST_F(AuthorizationDialogsTest, RootIsAskedNothing) {
  EXPECT_EQ(Asker(service, 0).find(), AuthorizationDialogs::NotNeeded);
}

TEST_F(AuthorizationDialogsTest, WithoutBusNobodyAsks) {
  EXPECT_EQ(Asker(service, someUser).find(), AuthorizationDialogs::NoAuthority);
}

TEST_F(AuthorizationDialogsTest, WithoutPolkitNobodyAsks) {
  start("none");
  EXPECT_EQ(Asker(service, someUser).find(), AuthorizationDialogs::NoAuthority);
}

TEST_F(AuthorizationDialogsTest, WithoutAgentAndTerminalNobodyCanBeAsked) {
  start("polkit");
  EXPECT_EQ(Asker(service, someUser).find(), AuthorizationDialogs::Nobody);
}

TEST_F(AuthorizationDialogsTest, AnAgentServes) {
  start("polkit");
  Asker asker(service, someUser);
  const PolkitAgent agent(service, asker.identity(), "wait");
  EXPECT_EQ(asker.find(), AuthorizationDialogs::Served);
}

}  // namespace
}  // namespace corvane
