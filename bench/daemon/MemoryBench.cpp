// What an idle daemon holds, against an idle polkitd, and what each idle connection adds. Needs
// root; polkitd runs on a bus of its own.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/Helper.h"
#include "bench/support/Polkit.h"
#include "bench/support/Program.h"
#include "bench/support/SocketActivation.h"

namespace corvane {
namespace {

constexpr int connections = 1000;

using Connections = std::vector<std::unique_ptr<HelperConnection>>;

// Connects, and asks a question so that the daemon has done what it does for a connection.
std::unique_ptr<HelperConnection> connect(const std::string& path) {
  auto connection = bench::connectToHelper(path);
  bench::askForVersion(*connection);
  return connection;
}

long memoryOfPolkitd() {
  const bench::Polkit polkit;
  return bench::memoryOf(polkit.process(), "VmRSS");
}

void measure() {
  bench::SocketActivation activation(bench::helperProgram);
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
  return corvane::bench::runProgram(&corvane::measure);
}
