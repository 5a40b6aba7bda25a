#ifndef CORVANE_CLIENT_CLI_SETUP_ENDINGSIGNALS_H
#define CORVANE_CLIENT_CLI_SETUP_ENDINGSIGNALS_H

#include <mutex>

namespace corvane::cli {

/// From now on the process leaves its helpers before INT, TERM, HUP or QUIT ends it, so that a
/// helper without other clients ends too. It is ended by that signal then, or by the next one of
/// the kind while it still leaves. The first INT in the middle of an operation ends that instead,
/// and the process as it ends then; at the next signal helpers have a moment, and no more. What the
/// process was started to ignore stays ignored. Called once, before there are other threads; those
/// do not see these signals any more.
void leaveHelpersOnEndingSignals();

/// Holds back the signals that end a process, for a while in which it must not be ended halfway.
class SignalsHeldBack {
 public:
  SignalsHeldBack();

 private:
  std::unique_lock<std::mutex> _lock;
};

}  // namespace corvane::cli

#endif
