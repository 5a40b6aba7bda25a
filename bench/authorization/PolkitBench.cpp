// A request that does nothing, authorized by polkit, from the client to the daemon and back,
// against a bare question to polkit about the same process. Needs root; bus and polkit are the
// bench's own.

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "platform/HelperConnection.h"
#include "platform/linux/Bus.h"
#include "platform/linux/authorization/ActionFile.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"

namespace corvane {
namespace {

constexpr int calls = 1000;
constexpr int rounds = 9;
constexpr const char* rightName = "com.corvane.vnt.nop";

/// A bus with a polkit that knows the right, until the object goes.
class Polkit {
 public:
  Polkit() {
    int commands[2] = {};
    int answers[2] = {};
    if (::mkdtemp(_folder.data()) == nullptr || ::pipe2(commands, O_CLOEXEC) != 0 ||
        ::pipe2(answers, O_CLOEXEC) != 0) {
      throw std::runtime_error("no temporary folder");
    }
    std::filesystem::permissions(_folder, std::filesystem::perms(0755));
    std::filesystem::create_directory(actions());
    std::ofstream(actions() + "/" + rightName + ".policy")
        << actionFile(rightName, {"allow", "Nothing", ""}, {}).value();
    _process = ::fork();
    if (_process == 0) {
      ::dup2(commands[0], STDIN_FILENO);
      ::dup2(answers[1], STDOUT_FILENO);
      ::execl(SERVE_POLKIT, SERVE_POLKIT, _folder.c_str(), nullptr);
      ::_exit(127);
    }
    const FileDescriptor read(commands[0]);
    FileDescriptor write(answers[1]);
    write.reset();
    _commands.reset(commands[1]);
    const FileDescriptor answer(answers[0]);
    char ready = 0;
    if (::read(answer.get(), &ready, 1) != 1) throw std::runtime_error("no polkit here");
  }
  Polkit(const Polkit&) = delete;
  Polkit& operator=(const Polkit&) = delete;
  ~Polkit() {
    _commands.reset();
    ::waitpid(_process, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(_folder, ignored);
  }

  std::string address() const { return "unix:path=" + _folder + "/bus"; }
  std::string actions() const { return _folder + "/actions"; }

 private:
  std::string _folder = "/tmp/polkit-bench.XXXXXX";
  FileDescriptor _commands;
  pid_t _process = -1;
};

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

/// The daemon, connected to, with the form that the issuer would give the subject.
class Helper {
 public:
  Helper(const Polkit& polkit, const ProcessIdentity& subject) {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", polkit.address().c_str(), 1);
    ::setenv(ActionsDirectoryVariable, polkit.actions().c_str(), 1);
    _activation.start();
    auto connection = HelperConnection::connect(_activation.socketPath(), std::chrono::seconds(10));
    if (const auto* failure = std::get_if<CommunicationFailure>(&connection)) {
      throw std::runtime_error(failure->description);
    }
    _connection = std::get<std::unique_ptr<HelperConnection>>(std::move(connection));
    const auto key = AuthorizationKeyFile(authorizationKeyDirectory()).key();
    const AuthorizationExternalForm form =
        makeExternalForm(subject, std::get<AuthorizationKey>(key));
    _form.assign(std::begin(form.bytes), std::end(form.bytes));
  }

  void call() {
    const auto answer =
        _connection->performPrivilegedOperation(9998, _form, std::nullopt, Array(), std::nullopt);
    const auto* error = std::get_if<std::optional<Error>>(&answer);
    if (error == nullptr || error->has_value()) throw std::runtime_error("nop failed");
  }

 private:
  bench::SocketActivation _activation{"com.corvane.system.privilegedhelper-vnt"};
  std::unique_ptr<HelperConnection> _connection;
  Data _form;
};

template <typename Server>
bench::Contender contender(const char* name, Server& server) {
  return {name, [&server] {
            return 1e6 / calls * bench::secondsFor([&server] {
                     for (int i = 0; i < calls; ++i) server.call();
                   });
          }};
}

void measure() {
  const Polkit polkit;
  const Subject subject;
  Helper helper(polkit, subject.identity());
  BareQuestion question(polkit.address(), subject.identity());
  bench::compare(contender("nop through the daemon and polkit", helper),
                 contender("bare question to polkit", question), rounds, "us a call", 1.25);
}

}  // namespace
}  // namespace corvane

int main() {
  try {
    corvane::measure();
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
