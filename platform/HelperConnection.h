#ifndef CORVANE_PLATFORM_HELPERCONNECTION_H
#define CORVANE_PLATFORM_HELPERCONNECTION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "foundation/AuthorizationState.h"
#include "foundation/CommunicationFailure.h"
#include "foundation/Error.h"
#include "foundation/Value.h"
#include "platform/XPCListenerEndpoint.h"

namespace corvane {

/// Where the system has the helper listen: on Linux the path of a socket, elsewhere maybe the name
/// of a service.
std::string defaultHelperAddress();

/// What an operation is given: values, and behind them texts, which may be many and are not copied
/// before they are in a message.
struct OperationArguments {
  std::span<const Value> values;
  std::span<const std::string* const> texts = {};
};

/// A client's connection to the helper. Calls wait for their answer. One thread at a time.
class HelperConnection {
 public:
  using Timeout = std::optional<std::chrono::milliseconds>;

  /// Connects to the helper at `address`. Waits at most `timeout`, the start of a helper that is
  /// not running included.
  static Answer<std::unique_ptr<HelperConnection>> connect(const std::string& address,
                                                           std::chrono::milliseconds timeout);

  virtual ~HelperConnection() = default;

  virtual Answer<std::string> getVersionString(Timeout timeout) = 0;
  virtual Answer<void> registerClientWithPID(std::int32_t pid, Timeout timeout) = 0;
  /// A helper that ends because this was its last client has answered too.
  virtual Answer<void> unregisterClientWithPID(std::int32_t pid, Timeout timeout) = 0;
  virtual Answer<void> enableDebugMode(bool flag, Timeout timeout) = 0;
  /// The outcome of the operation: nothing is success. Without a timeout it may take as long as a
  /// person needs to answer a dialog.
  virtual Answer<std::optional<Error>> performPrivilegedOperation(
      std::uint64_t code, const Data& authorizationData,
      std::optional<XPCListenerEndpoint> feedbackEndpoint, const OperationArguments& arguments,
      Timeout timeout) = 0;

  /// Whether a request that was named `token`, over another connection, is in progress.
  virtual Answer<bool> cancelOperation(const std::string& token, Timeout timeout) = 0;
  virtual Answer<AuthorizationState> queryAuthorization(std::uint64_t code,
                                                        const Data& authorizationData,
                                                        Timeout timeout) = 0;
};

}  // namespace corvane

#endif
