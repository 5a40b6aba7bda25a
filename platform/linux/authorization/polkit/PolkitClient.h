#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITCLIENT_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITCLIENT_H

#include <atomic>
#include <chrono>
#include <stop_token>
#include <string>

#include "platform/linux/authorization/polkit/Asker.h"
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
  Abandoned,  ///< whoever asked has gone away, or wants no answer any more
};

/// Asks polkit over the system bus. Any thread, many at a time: each waits by itself. An answer may
/// take as long as a person does, and meanwhile anything else may end:
///
///     asker     is killed while the dialog is open; then the person says yes
///     client    watches the asker's connection beside the bus: it has polkit close the dialog,
///               and a yes that comes all the same counts for nobody
///
///     polkit    hangs, and will never answer
///     client    cannot tell that from a person who thinks; after `patience` it asks something that
///               polkit answers at any time, and without a sign of life it gives up
///
///     attacker  takes all of the bus's connections, hoping to be judged as on a system without
///               polkit, where root may do everything
///     client    takes polkit for absent only where nobody listens at the bus's address, or the bus
///               itself says that it knows of none; everything else is a failure and grants nothing
class PolkitClient {
 public:
  /// polkit's time for a sign of life while it does not answer. Dialogs take as long as they take.
  static constexpr std::chrono::milliseconds defaultPatience = std::chrono::seconds(15);

  explicit PolkitClient(std::string busAddress,
                        std::chrono::milliseconds patience = defaultPatience);

  /// Waits for the answer, for as long as a person takes to give it. `asker` is a socket that hangs
  /// up when whoever asks goes away, which cancels the question, or -1; so does `stop`.
  Result<PolkitAnswer, PolkitFailure> checkAuthorization(const PolkitQuestion& question, int asker,
                                                         const std::stop_token& stop = {});

 private:
  Result<PolkitAnswer, PolkitFailure> ask(const PolkitQuestion& question, const Asker& asker);

  using Clock = std::chrono::steady_clock;

  BusConnections _connections;
  const std::chrono::milliseconds _patience;
  std::atomic<Clock::time_point> _absentUntil{Clock::time_point::min()};
};

/// The address of the system bus: that in the environment, else the usual one.
std::string systemBusAddress();

}  // namespace corvane

#endif
