#ifndef CORVANE_PLATFORM_XPCCONNECTION_H
#define CORVANE_PLATFORM_XPCCONNECTION_H

#include <functional>
#include <memory>
#include <string>

#include "foundation/Error.h"
#include "platform/XPCListenerEndpoint.h"
#include "platform/ZELPrivilegedOperationFeedbackProtocol.h"

namespace corvane {

/// The interface that the other side of a connection serves, named by its protocol.
struct XPCInterface {
  std::string protocolName;
};

/// A connection to the feedback object that a client serves behind an endpoint.
///
/// Messages are sent in the order of the calls and not awaited, from any thread. What waits for a
/// receiver that reads slowly is bounded; how it is held, and when it is given up, is the side's.
/// What is sent to one that is given up, or gone, is dropped.
class XPCConnection {
 public:
  /// Told of a transport error, on any thread; maybe after the message's call has returned, and
  /// more than once.
  using ErrorHandler = std::function<void(const Error&)>;

  /// Makes a connection that is not yet resumed. Never null.
  static std::shared_ptr<XPCConnection> initWithListenerEndpoint(XPCListenerEndpoint endpoint);

  virtual ~XPCConnection() = default;

  virtual void setRemoteObjectInterface(XPCInterface interface) = 0;
  /// Connects. A failure is told to the error handler of the first message.
  virtual void resume() = 0;
  /// The remote object; `handler` is told when a message sent through the result cannot be sent.
  /// The result must not outlive the connection.
  virtual std::unique_ptr<ZELPrivilegedOperationFeedbackProtocol> remoteObjectProxyWithErrorHandler(
      ErrorHandler handler) = 0;
  /// The remote object; failures to send are not told. Lives as long as the connection.
  virtual ZELPrivilegedOperationFeedbackProtocol& remoteObjectProxy() = 0;
  virtual void suspend() = 0;
  /// Sends what is still queued and ends the connection.
  virtual void invalidate() = 0;
};

}  // namespace corvane

#endif
