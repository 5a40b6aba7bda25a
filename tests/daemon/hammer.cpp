// Clients that come and go all at once: hammer SOCKET AUTHORIZATION-SOCKET PROCESSES ROUNDS. Each
// process registers, performs the empty operation and unregisters, over and over, the odd ones in
// two threads at a time. What fails is told, and is the exit status.

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "PrivilegedHelperClient.h"

using namespace corvane;

namespace {

void comeAndGo(const PrivilegedHelperClient::Options& options, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    const auto outcome = PrivilegedHelperClient(options).nop();
    if (outcome && outcome->isSuccess()) continue;
    std::fprintf(stderr, "%s\n",
                 outcome ? outcome->error->localizedDescription().c_str()
                         : outcome.error().description.c_str());
    std::_Exit(1);
  }
}

[[noreturn]] void runProcess(const PrivilegedHelperClient::Options& options, int number,
                             int rounds) {
  if (number % 2 == 1) {
    std::thread other([&] { comeAndGo(options, rounds); });
    comeAndGo(options, rounds);
    other.join();
  } else {
    comeAndGo(options, rounds);
  }
  std::_Exit(0);
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 5) return 2;
  PrivilegedHelperClient::Options options;
  options.helperAddress = argv[1];
  options.issuerAddress = argv[2];
  options.patience = std::chrono::minutes(2);
  const int rounds = std::atoi(argv[4]);

  std::vector<pid_t> processes;
  for (int number = 0; number < std::atoi(argv[3]); ++number) {
    const pid_t pid = ::fork();
    if (pid == 0) runProcess(options, number, rounds);
    processes.push_back(pid);
  }
  int status = 0;
  for (const pid_t process : processes) {
    int end = 0;
    ::waitpid(process, &end, 0);
    if (end != 0) status = 1;
  }
  return status;
}
