// A gibibyte of a child's output through the daemon to a client that counts it, against the same
// child piped into wc, and the daemon's peak memory. Needs root.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/daemon/OwnForm.h"
#include "bench/support/Rounds.h"
#include "bench/support/SocketActivation.h"
#include "platform/FeedbackListener.h"
#include "platform/HelperConnection.h"

namespace corvane {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t codeExecuteUtility = 2;
constexpr std::size_t gibibyte = std::size_t{1} << 30;
constexpr const char* child = "head -c 1073741824 /dev/zero";
constexpr int rounds = 5;

// An application whose own utility writes the output.
class Application {
 public:
  Application() {
    if (::mkdtemp(_folder.data()) == nullptr) throw std::runtime_error("no temporary folder");
    std::filesystem::create_directories(_folder + "/Contents/MacOS");
    std::ofstream(_folder + "/Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key>"
           "<string>application</string></dict></plist>";
    for (const char* name : {"application", "lipo"}) {
      const std::string path = _folder + "/Contents/MacOS/" + name;
      std::ofstream(path) << "#!/bin/sh\nexec /usr/bin/" << child << "\n";
      std::filesystem::permissions(path, std::filesystem::perms(0755));
    }
  }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  ~Application() { std::filesystem::remove_all(_folder); }

  const std::string& path() const { return _folder; }

 private:
  std::string _folder = "/tmp/output-bench.XXXXXX";
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
      codeExecuteUtility, bench::ownForm(), listener->takeEndpoint(),
      Array{application.path(), "lipo"}, std::nullopt);
  listener->waitUntilClosed();
  const auto* error = std::get_if<std::optional<Error>>(&answer);
  if (error == nullptr || *error || counter.count != gibibyte) {
    throw std::runtime_error("the output did not arrive");
  }
  return std::chrono::duration<double>(counter.end - begin).count();
}

void measure() {
  const Application application;
  bench::SocketActivation daemon("com.corvane.system.privilegedhelper-vnt");
  daemon.start();
  auto answer = HelperConnection::connect(daemon.socketPath(), std::chrono::seconds(10));
  if (const auto* failure = std::get_if<CommunicationFailure>(&answer)) {
    throw std::runtime_error(failure->description);
  }
  const auto connection = std::get<std::unique_ptr<HelperConnection>>(std::move(answer));

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
  try {
    corvane::measure();
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
