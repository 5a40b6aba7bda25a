// Performs the utility of an application through the library and, once that has made its file,
// cancels it from another thread:  cancelling SOCKET AUTHORIZATION-SOCKET APPLICATION FILE
// Prints the domain and the code of the outcome, and what a cancel says when nothing is performed.
#include <cstdio>
#include <filesystem>
#include <thread>

#include "PrivilegedHelperClient.h"

using namespace corvane;

int main(int argc, char* argv[]) {
  if (argc != 5) return 2;
  PrivilegedHelperClient::Options options;
  options.helperSocketPath = argv[1];
  options.authorizationSocketPath = argv[2];
  PrivilegedHelperClient client(options);
  const bool isIdleCancelWell = !client.cancel();

  const std::filesystem::path file = argv[4];
  bool isCancelWell = false;
  std::thread other([&] {
    while (!std::filesystem::exists(file)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    isCancelWell = !client.cancel();
  });
  const auto cancelled = client.executeUtility(argv[3], "lipo", {"exit 3", file});
  other.join();
  // The next operation is another one.
  const auto next = client.nop();
  if (!isIdleCancelWell || !isCancelWell || !next.isSuccess() || !cancelled.error) return 1;
  std::printf("%s %lld\n", cancelled.error->domain().c_str(),
              static_cast<long long>(cancelled.error->code()));
}
