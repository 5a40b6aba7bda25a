#include "client/cli/setup/EndingSignals.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <thread>

#include <unistd.h>

#include "PrivilegedHelperClient.h"
#include "client/cli/output/ProgressBar.h"
#include "client/cli/output/Translation.h"
#include "foundation/NoDestructor.h"
#include "platform/AuthenticationAgent.h"

namespace corvane::cli {

namespace {

// How long a helper that is left may take.
constexpr std::chrono::milliseconds patienceOfTheImpatient{250};
constexpr std::chrono::milliseconds patienceOfOthers{10000};

// Locked while the process must not be ended, and by the thread that is about to end it. Never
// destroyed: a signal may come while the process ends.
std::mutex& ending() {
  static NoDestructor<std::mutex> shared;
  return *shared;
}

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// Has the operation in progress stop, and tells so. False if there is none.
bool stopOperation() {
  const std::lock_guard held(ending());
  return PrivilegedHelperClient::cancelOperationsBeforeEnd([] {
    // What the terminal shows for the key is taken away with the line that it stands behind.
    const bool isBehindKey = !ProgressBar::hideAny() && !AuthenticationAgent::leavePrompt() &&
                             ::isatty(STDERR_FILENO) != 0;
    std::fprintf(stderr, "%s%s\n", isBehindKey ? "\n" : "", translated(stoppingText).c_str());
  });
}

[[noreturn]] void endBy(const sigset_t& signals) {
  int signal = 0;
  ::sigwait(&signals, &signal);
  const bool isStopping = signal == SIGINT && stopOperation();
  if (isStopping) ::sigwait(&signals, &signal);
  ending().lock();

  // The same signal once more ends the process at once, for those who do not want to wait until a
  // helper has answered.
  sigset_t again;
  sigemptyset(&again);
  sigaddset(&again, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &again, nullptr);
  PrivilegedHelperClient::leaveHelpersBeforeEnd(isStopping ? patienceOfTheImpatient
                                                           : patienceOfOthers);
  for (;;) ::raise(signal);
}

}  // namespace

void leaveHelpersOnEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    if (!isIgnored(signal)) sigaddset(&signals, signal);
  }
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread([signals] { endBy(signals); }).detach();
}

SignalsHeldBack::SignalsHeldBack() : _lock(ending()) {}

}  // namespace corvane::cli
