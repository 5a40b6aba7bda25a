// A gibibyte of a child's output through the daemon to a client that counts it, against the same
// child piped into wc, and the daemon's peak memory. Needs root.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "bench/support/Helper.h"
#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "bench/support/TemporaryFolder.h"
#include "operations/OperationCodes.h"
#include "platform/FeedbackListener.h"

namespace corvane {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t gibibyte = std::size_t{1} << 30;
constexpr const char* child = "head -c 1073741824 /dev/zero";
constexpr int rounds = 5;

// An application whose own utility writes the output.
class Application {
 public:
  Application() {
    std::filesystem::create_directories(path() + "/Contents/MacOS");
    std::ofstream(path() + "/Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key>"
           "<string>application</string></dict></plist>";
    for (const char* name : {"application", "lipo"}) {
      const std::string program = path() + "/Contents/MacOS/" + name;
      std::ofstream(program) << "#!/bin/sh\nexec /usr/bin/" << child << "\n";
      std::filesystem::permissions(program, std::filesystem::perms(0755));
    }
  }

  const std::string& path() const { return _folder.path(); }

 private:
  bench::TemporaryFolder _folder;
};

class Counter : public ZELPrivilegedOperationFeedbackProtocol {
 public:
  void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
    const Value* output = feedback.find(OutputDataKey);
    if (output == nullptr || output->data() == nullptr) return;
    count += output->data()->size();
    if (count == gibibyte) end = Clock::now();
  }
  std::size_t count = 0;
  Clock::time_point end;
};

// The seconds from the request to the last byte; the pause before its answer is no output.
double runThroughDaemon(HelperConnection& connection, const Application& application) {
  const Clock::time_point begin = Clock::now();
  Counter counter;
  const auto listener = FeedbackListener::serve(counter);
  const auto answer = connection.performPrivilegedOperation(
      codeExecuteUtility, bench::formOf(ProcessIdentity::ofThisProcess()), listener->takeEndpoint(),
      {Array{application.path(), "lipo"}}, std::nullopt);
  listener->waitUntilClosed();
  if (!answer || *answer || counter.count != gibibyte) {
    throw std::runtime_error("the output did not arrive");
  }
  return std::chrono::duration<double>(counter.end - begin).count();
}

void measure() {
  const Application application;
  bench::SocketActivation daemon(bench::helperProgram);
  daemon.start();
  const auto connection = bench::connectToHelper(daemon.socketPath());

  bench::compare(
      {"1 GiB through the daemon", [&] { return runThroughDaemon(*connection, application); }},
      {"1 GiB into wc -c",
       [] {
         return bench::secondsFor([] {
           // NOLINTNEXTLINE(bugprone-command-processor): a pipeline is the rival
           if (std::system((std::string(child) + " | wc -c >/dev/null").c_str()) != 0) {
             throw std::runtime_error("wc failed");
           }
         });
       }},
      rounds, "s", 2);
  std::printf("%-44s %10.1f MiB (below 16)\n", "peak memory of the daemon",
              static_cast<double>(daemon.memory("VmHWM")) / 1024);
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
