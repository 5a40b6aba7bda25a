#ifndef CORVANE_PLATFORM_ZELPRIVILEGEDHELPERPROTOCOL_H
#define CORVANE_PLATFORM_ZELPRIVILEGEDHELPERPROTOCOL_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/Value.h"
#include "platform/XPCListenerEndpoint.h"

namespace corvane {

/// An argument list may begin with this text and a dictionary, which are about the request itself.
inline constexpr const char* MetadataMarker = "!ZELMETA!";
/// The dictionary's keys.
/// Texts: what the dialog shows in place of the operation's own sentence and icon.
inline constexpr const char* AuthorizationPromptKey = "ZELAuthorizationPrompt";
inline constexpr const char* AuthorizationIconKey = "ZELAuthorizationIcon";
/// A boolean; false: no dialog.
inline constexpr const char* AuthorizationInteractionKey = "ZELAuthorizationInteraction";
/// A text of 1 to 64 characters that nobody guesses: the request's name, by which it is cancelled.
inline constexpr const char* OperationTokenKey = "ZELOperationToken";

/// What the daemon exports to every connection. Methods return nothing; a result comes through the
/// reply, which is called at most once and before the method returns. Messages of one connection
/// arrive one after the other, those of different connections at the same time.
class ZELPrivilegedHelperProtocol {
 public:
  using EndpointReply = std::function<void(XPCListenerEndpoint)>;
  using VersionReply = std::function<void(const std::string&)>;
  /// No error is success.
  using OperationReply = std::function<void(const std::optional<Error>&)>;

  virtual ~ZELPrivilegedHelperProtocol() = default;

  virtual void connectWithEndpointUsingReply(const EndpointReply& reply) = 0;
  virtual void getVersionStringUsingReply(const VersionReply& reply) = 0;
  virtual void registerClientWithPID(std::int32_t pid) = 0;
  virtual void unregisterClientWithPID(std::int32_t pid) = 0;
  /// `feedbackEndpoint` and `arguments` may be absent.
  virtual void performPrivilegedOperation(std::uint64_t code, const Data& authorizationData,
                                          std::optional<XPCListenerEndpoint> feedbackEndpoint,
                                          std::optional<Array> arguments,
                                          const OperationReply& reply) = 0;
  virtual void enableDebugMode(bool flag) = 0;
};

}  // namespace corvane

#endif
