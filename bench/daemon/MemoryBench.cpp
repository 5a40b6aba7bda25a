// What an idle daemon holds, against an idle polkitd, and what each idle connection adds. Needs
// root; polkitd runs on a bus of its own.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "bench/support/SocketActivation.h"
#include "platform/HelperConnection.h"

namespace corvane {
namespace {

constexpr int connections = 1000;
constexpr const char* polkitd = "/usr/lib/polkit-1/polkitd";

using Connections = std::vector<std::unique_ptr<HelperConnection>>;

// Connects, and asks a question so that the daemon has done what it does for a connection.
std::unique_ptr<HelperConnection> connect(const std::string& path) {
  auto answer = HelperConnection::connect(path, std::chrono::seconds(10));
  if (const auto* failure = std::get_if<CommunicationFailure>(&answer)) {
    throw std::runtime_error(failure->description);
  }
  auto connection = std::get<std::unique_ptr<HelperConnection>>(std::move(answer));
  const auto version = connection->getVersionString(std::nullopt);
  if (std::get_if<std::string>(&version) == nullptr) throw std::runtime_error("no version");
  return connection;
}

pid_t spawn(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  pid_t process = -1;
  if (::posix_spawn(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) {
    throw std::runtime_error(command[0] + " cannot be started");
  }
  return process;
}

// A bus that every user may use: polkitd leaves root behind.
std::string writeBusConfiguration(const std::string& folder, const std::string& address) {
  const std::string path = folder + "/bus.conf";
  std::ofstream(path) << "<busconfig><type>system</type><listen>" << address
                      << "</listen><auth>EXTERNAL</auth><policy context='default'>"
                         "<allow user='*'/><allow own='*'/><allow send_destination='*'/>"
                         "<allow receive_sender='*'/></policy></busconfig>";
  return path;
}

// The resident memory of a polkitd that has started and serves its bus.
long memoryOfPolkitd() {
  std::string folder = "/tmp/polkitd.XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr || ::chmod(folder.c_str(), 0755) != 0) {
    throw std::runtime_error("no temporary folder");
  }
  const std::string address = "unix:path=" + folder + "/bus";
  const pid_t bus = spawn({"/usr/bin/dbus-daemon", "--nofork", "--nopidfile", "--nosyslog",
                           "--config-file=" + writeBusConfiguration(folder, address)});
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  while (::access((folder + "/bus").c_str(), F_OK) != 0) std::this_thread::yield();
  const pid_t daemon = spawn({polkitd, "--no-debug"});

  sd_bus* client = nullptr;
  bool isServing = false;
  for (int attempt = 0; attempt < 100 && !isServing; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (client == nullptr && sd_bus_open_system(&client) < 0) continue;
    isServing = sd_bus_call_method(client, "org.freedesktop.PolicyKit1",
                                   "/org/freedesktop/PolicyKit1/Authority",
                                   "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, "") >= 0;
  }
  sd_bus_flush_close_unref(client);
  const long memory = isServing ? bench::memoryOf(daemon, "VmRSS") : -1;
  for (const pid_t process : {daemon, bus}) {
    ::kill(process, SIGTERM);
    ::waitpid(process, nullptr, 0);
  }
  std::filesystem::remove_all(folder);
  if (!isServing) throw std::runtime_error("polkitd does not serve its bus");
  return memory;
}

void measure() {
  bench::SocketActivation activation("com.corvane.system.privilegedhelper-vnt");
  activation.start();
  Connections open;
  open.push_back(connect(activation.socketPath()));
  const long idle = activation.memory("VmRSS");
  while (open.size() <= connections) open.push_back(connect(activation.socketPath()));
  const long busy = activation.memory("VmRSS");
  open.clear();

  const long rival = memoryOfPolkitd();
  std::printf("%-44s %10ld KiB\n", "idle daemon, resident", idle);
  std::printf("%-44s %10ld KiB\n", "idle polkitd, resident", rival);
  std::printf("%-44s %10.2f (below 1)\n\n", "ratio",
              static_cast<double>(idle) / static_cast<double>(rival));
  std::printf("%-44s %10.1f KiB (below 64)\n", "each of 1,000 idle connections",
              static_cast<double>(busy - idle) / connections);
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
