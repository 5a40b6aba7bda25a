// A request that does nothing, authorized by polkit, from the client to the daemon and back,
// against a bare question to polkit about the same process. Needs root; bus and polkit are the
// bench's own.

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "bench/support/Helper.h"
#include "bench/support/Polkit.h"
#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/polkit/ActionFile.h"
#include "platform/linux/bus/Bus.h"

namespace corvane {
namespace {

constexpr int calls = 1000;
constexpr int rounds = 9;
constexpr const char* rightName = "com.corvane.vnt.nop";

/// A process of an ordinary user, which the questions are about.
class Subject {
 public:
  Subject() : _process(::fork()) {
    if (_process == 0) {
      if (::setresuid(65534, 65534, 65534) != 0) ::_exit(1);
      for (;;) ::pause();
    }
  }
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;
  ~Subject() {
    ::kill(_process, SIGKILL);
    ::waitpid(_process, nullptr, 0);
  }

  ProcessIdentity identity() const { return {_process, 65534, processStartTime(_process).value()}; }

 private:
  pid_t _process;
};

class BareQuestion {
 public:
  BareQuestion(const std::string& address, const ProcessIdentity& subject) : _subject(subject) {
    sd_bus* raw = nullptr;
    sd_bus_new(&raw);
    _bus.reset(raw);
    sd_bus_set_address(raw, address.c_str());
    sd_bus_set_bus_client(raw, 1);
    if (sd_bus_start(raw) < 0) throw std::runtime_error("no bus");
  }

  void call() {
    sd_bus_message* raw = nullptr;
    int isAuthorized = 0;
    int isChallenge = 0;
    const int result = sd_bus_call_method(
        _bus.get(), "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
        "org.freedesktop.PolicyKit1.Authority", "CheckAuthorization", nullptr, &raw,
        "(sa{sv})sa{ss}us", "unix-process", 3, "pid", "u", static_cast<std::uint32_t>(_subject.pid),
        "start-time", "t", _subject.startTime, "uid", "i", static_cast<std::int32_t>(_subject.uid),
        rightName, 0, 1U, "");
    const BusMessage reply(raw);
    if (result < 0 || sd_bus_message_enter_container(raw, SD_BUS_TYPE_STRUCT, "bba{ss}") < 0 ||
        sd_bus_message_read(raw, "bb", &isAuthorized, &isChallenge) < 0 || isAuthorized == 0) {
      throw std::runtime_error("polkit does not authorize");
    }
  }

 private:
  const ProcessIdentity _subject;
  Bus _bus;
};

void measure() {
  const std::map<std::string, std::string> actionFiles = {
      {std::string(rightName) + ".policy",
       actionFile(rightName, {"allow", "Nothing", ""}, {}).value()}};
  const bench::Polkit polkit(actionFiles);
  const Subject subject;
  BareQuestion question(polkit.busAddress(), subject.identity());

  bench::SocketActivation daemon(bench::helperProgram);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", polkit.busAddress().c_str(), 1);
  ::setenv(ActionsDirectoryVariable, polkit.actionsFolder().c_str(), 1);
  daemon.start();
  const auto connection = bench::connectToHelper(daemon.socketPath());
  const Data form = bench::formOf(subject.identity());

  bench::compare(bench::perCall("nop through the daemon and polkit", calls,
                                [&] { bench::performNop(*connection, form); }),
                 bench::perCall("bare question to polkit", calls, [&] { question.call(); }), rounds,
                 "us a call", 1.25);
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
