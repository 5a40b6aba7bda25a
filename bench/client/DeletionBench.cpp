// A file deleted by the client's command without a terminal, from its start to its end, the helper
// being started for it, against what root would have without a helper: a program that asks polkit
// as the helper does, and one that asks nobody. Needs root; bus and polkit are the bench's own.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/support/Helper.h"
#include "bench/support/Issuer.h"
#include "bench/support/Polkit.h"
#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "foundation/FileDescriptor.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/polkit/ActionFile.h"

namespace corvane {
namespace {

constexpr int rounds = 51;
constexpr double atMost = 2.5;
constexpr const char* rightName = "com.corvane.vnt.delete-fileobjects";
constexpr const char* pkexecActions = "org.freedesktop.policykit.policy";

using Command = std::vector<std::string>;

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + " is missing: pkexec is not installed");
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string mountNamespaceOf(pid_t process) {
  return "/proc/" + std::to_string(process) + "/ns/mnt";
}

// Runs the command without a terminal, where `mounts` are mounted.
void run(const Command& command, const FileDescriptor& mounts) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t process = ::fork();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (process == 0) {
    const int null = ::open("/dev/null", O_RDWR);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
    ::setsid();
    if (::setns(mounts.get(), CLONE_NEWNS) == 0) ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  int status = 0;
  if (::waitpid(process, &status, 0) != process || status != 0) {
    throw std::runtime_error(command.front() + " failed");
  }
}

// Its cost are the milliseconds in which a new file is deleted.
bench::Contender deletion(const std::string& name, Command command, const std::string& path,
                          const FileDescriptor& mounts, bench::SocketActivation* helper = nullptr) {
  command.push_back(path);
  return {name, [command = std::move(command), path, &mounts, helper] {
            std::ofstream(path) << "content";
            if (helper != nullptr) helper->startOnDemand();
            const double seconds = bench::secondsFor([&] { run(command, mounts); });
            if (helper != nullptr) helper->stop();
            if (std::filesystem::exists(path)) throw std::runtime_error(path + " is still there");
            return seconds * 1e3;
          }};
}

bool isInstalled(const std::string& program) {
  return ::access(("/usr/bin/" + program).c_str(), X_OK) == 0;
}

void measure() {
  const bench::Polkit polkit(
      {{pkexecActions, contentOf(std::string("/usr/share/polkit-1/actions/") + pkexecActions)},
       {std::string(rightName) + ".policy",
        actionFile(rightName, {"authenticate-admin", "Delete", ""}, {}).value()}});
  const FileDescriptor mounts(
      ::open(mountNamespaceOf(polkit.process()).c_str(), O_RDONLY | O_CLOEXEC));

  bench::SocketActivation helper(bench::helperProgram);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", polkit.busAddress().c_str(), 1);
  ::setenv(ActionsDirectoryVariable, polkit.actionsFolder().c_str(), 1);
  const bench::Issuer issuer(helper.folder());
  const std::string client =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "privilegerequestor-vnt";
  const std::string path = helper.folder() + "/file";
  const auto ours = deletion("delete FILE through the helper",
                             {client, "--socket", helper.socketPath(), "--authorization-socket",
                              issuer.socketPath(), "delete"},
                             path, mounts, &helper);
  for (const std::string rival : {"pkexec", "sudo"}) {
    if (isInstalled(rival)) {
      bench::compare(ours, deletion(rival + " rm FILE", {rival, "rm"}, path, mounts), rounds, "ms",
                     atMost);
    } else {
      std::printf("%s is not installed: tools/install-packages bench\n", rival.c_str());
    }
  }
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
