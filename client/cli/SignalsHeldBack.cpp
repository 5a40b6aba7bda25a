#include "client/cli/SignalsHeldBack.h"

#include <initializer_list>

namespace corvane::cli {

SignalsHeldBack::SignalsHeldBack() : _before() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaddset(&ending, signal);
  ::pthread_sigmask(SIG_BLOCK, &ending, &_before);
}

SignalsHeldBack::~SignalsHeldBack() {
  ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
}

}  // namespace corvane::cli
