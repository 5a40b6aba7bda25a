// Performs the utility of an application through the library and, once that has made its file,
// cancels it from another thread:  cancelling SOCKET AUTHORIZATION-SOCKET APPLICATION FILE
// Then a deletion that takes several messages, when the first of them is done. Prints the domain
// and the code of both outcomes.
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "PrivilegedHelperClient.h"

using namespace corvane;

namespace {

// As many as one message does not hold; nothing is there.
std::vector<std::string> manyPaths() {
  constexpr int count = 15000;
  std::vector<std::string> paths;
  paths.reserve(count);
  for (int i = 0; i < count; ++i) paths.push_back("/" + std::to_string(100000 + i));
  return paths;
}

// Cancelled from another thread while a callback of the first message holds up the next one.
Answer<PrivilegedHelperClient::Outcome> cancelBetweenMessages(PrivilegedHelperClient& client) {
  PrivilegedHelperClient::Feedback feedback;
  bool isFirst = true;
  feedback.progress = [&](double fraction) {
    // One message holds 10000 paths as short as these.
    const bool isFirstDone = fraction > 9999.5 / 15000;
    if (!isFirstDone || !std::exchange(isFirst, false)) return;
    std::thread([&client] { (void)client.cancel(); }).join();
  };
  return client.deleteFileObjects(manyPaths(), {.isRecursive = true}, feedback).answer;
}

void print(const Answer<PrivilegedHelperClient::Outcome>& outcome) {
  const bool isError = outcome && outcome->error;
  std::printf("%s %lld\n", isError ? outcome->error->domain().c_str() : "none",
              isError ? static_cast<long long>(outcome->error->code()) : 0LL);
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 5) return 2;
  PrivilegedHelperClient::Options options;
  options.helperAddress = argv[1];
  options.issuerAddress = argv[2];
  PrivilegedHelperClient client(options);
  const bool isIdleCancelWell = bool(client.cancel());

  const std::filesystem::path file = argv[4];
  bool isCancelWell = false;
  std::thread other([&] {
    while (!std::filesystem::exists(file)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    isCancelWell = bool(client.cancel());
  });
  const auto cancelled = client.executeUtility(argv[3], "lipo", {"exit 3", file});
  other.join();
  // The next operation is another one.
  const auto next = client.nop();
  const bool isNextWell = next && next->isSuccess();
  if (!isIdleCancelWell || !isCancelWell || !isNextWell || !cancelled || !cancelled->error)
    return 1;
  print(cancelled);
  print(cancelBetweenMessages(client));
}
