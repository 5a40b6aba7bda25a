#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITCLIENT_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITCLIENT_H

#include <atomic>
#include <chrono>
#include <string>
#include <variant>

#include "platform/linux/authorization/polkit/BusConnections.h"
#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

struct PolkitQuestion {
  ProcessIdentity subject;
  std::string actionId;
  /// What the dialog shows; empty for the action's own.
  std::string message;
  std::string iconName;
  bool isInteractionAllowed = false;
};

struct PolkitAnswer {
  bool isAuthorized = false;
  /// Somebody would have to be asked, and nobody could be.
  bool isChallenge = false;
  bool isDismissed = false;
  /// The name of the kept authorization that was used or made; empty if there was none.
  std::string temporaryAuthorization;
};

enum class PolkitFailure {
  Absent,  ///< the bus knows of no polkit, or nobody listens where the bus would be
  Failed,  ///< it is there, and cannot be reached, or its answer is an error or not one of its own
  Abandoned,  ///< whoever asked has gone away
};

/// Asks polkit over the system bus. Any thread, many at a time: each waits by itself.
class PolkitClient {
 public:
  /// polkit's time for a sign of life while it does not answer. Dialogs take as long as they take.
  static constexpr std::chrono::milliseconds defaultPatience = std::chrono::seconds(15);

  explicit PolkitClient(std::string busAddress,
                        std::chrono::milliseconds patience = defaultPatience);

  /// Waits for the answer, for as long as a person takes to give it. `asker` is a socket that hangs
  /// up when whoever asks goes away, which cancels the question, or -1.
  std::variant<PolkitAnswer, PolkitFailure> checkAuthorization(const PolkitQuestion& question,
                                                               int asker);

 private:
  std::variant<PolkitAnswer, PolkitFailure> ask(const PolkitQuestion& question, int asker);

  using Clock = std::chrono::steady_clock;

  BusConnections _connections;
  const std::chrono::milliseconds _patience;
  std::atomic<Clock::time_point> _absentUntil{Clock::time_point::min()};
};

/// The address of the system bus: that in the environment, else the usual one.
std::string systemBusAddress();

}  // namespace corvane

#endif
