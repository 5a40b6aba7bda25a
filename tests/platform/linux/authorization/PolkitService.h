#ifndef CORVANE_TESTS_PLATFORM_LINUX_AUTHORIZATION_POLKITSERVICE_H
#define CORVANE_TESTS_PLATFORM_LINUX_AUTHORIZATION_POLKITSERVICE_H

#include <csignal>
#include <optional>
#include <string>

#include "platform/linux/processes/ProcessIdentity.h"
#include "tests/platform/linux/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

/// A bus of the tests' own with a polkit on it that reads actions and rules of the tests' own.
class PolkitService {
 public:
  PolkitService();
  PolkitService(const PolkitService&) = delete;
  PolkitService& operator=(const PolkitService&) = delete;
  ~PolkitService();

  std::string busAddress() const { return "unix:path=" + _folder.path("bus"); }
  std::string actionsDirectory() const { return _folder.path("actions"); }
  const TemporaryFolder& folder() const { return _folder; }

  /// A rule in polkit's own language, for a polkit that is started later.
  void addRule(const std::string& rule);

  /// Has a bus that is started later start `program` when somebody asks for polkit.
  void addActivatable(const std::string& program);

  /// Starts the bus, and on it "polkit" itself, "none", or a substitute that answers in a manner
  /// that the substitute's script tells. False if this cannot be done here.
  bool start(const std::string& authority = "polkit");
  /// Starts another on the same bus, after the first has ended.
  bool startAgain(const std::string& authority);

  void killPolkit() const;
  void killBus() const;
  /// What the substitute prints, line by line; empty when it has ended.
  std::string nextLineOfPolkit() const { return readLine(_output); }

 private:
  bool isReady() const;

  TemporaryFolder _folder;
  int _rules = 0;
  PipeEnds _commands;
  PipeEnds _answers;
  std::optional<ChildProcess> _process;
  FileDescriptor _output;
};

/// An authentication agent for the dialogs of one process, which answers them all in one manner.
class PolkitAgent {
 public:
  PolkitAgent(const PolkitService& service, const ProcessIdentity& subject,
              const std::string& manner);

  /// What happens to dialogs, each as an object of JSON; waits for the next.
  std::string nextEvent() const { return readLine(_events.output); }
  /// Has one of the manner "late" answer.
  void answer() const { ::kill(_process.pid(), SIGUSR1); }

 private:
  PipeEnds _events;
  ChildProcess _process;
};

}  // namespace corvane

#endif
