#ifndef CORVANE_CLIENT_CLI_SIGNALSHELDBACK_H
#define CORVANE_CLIENT_CLI_SIGNALSHELDBACK_H

#include <csignal>

namespace corvane::cli {

/// Holds back the signals that end a process, for a while in which it must not be ended halfway.
class SignalsHeldBack {
 public:
  SignalsHeldBack();
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
  ~SignalsHeldBack();

 private:
  sigset_t _before;
};

}  // namespace corvane::cli

#endif
