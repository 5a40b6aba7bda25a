#include "client/cli/setup/EndingSignals.h"

#include <csignal>
#include <initializer_list>
#include <thread>

#include "PrivilegedHelperClient.h"

namespace corvane::cli {

namespace {

// Locked while the process must not be ended, and by the thread that is about to end it. Never
// destroyed: a signal may come while the process ends.
std::mutex& ending() {
  static auto* const shared = new std::mutex;
  return *shared;
}

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

[[noreturn]] void endBy(const sigset_t& signals) {
  int signal = 0;
  ::sigwait(&signals, &signal);
  ending().lock();

  // The same signal once more ends the process at once, for those who do not want to wait until a
  // helper has answered.
  sigset_t again;
  sigemptyset(&again);
  sigaddset(&again, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &again, nullptr);
  PrivilegedHelperClient::leaveHelpersBeforeEnd();
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
