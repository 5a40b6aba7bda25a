#ifndef CORVANE_PLATFORM_FEEDBACKLISTENER_H
#define CORVANE_PLATFORM_FEEDBACKLISTENER_H

#include <memory>

#include "platform/XPCListenerEndpoint.h"
#include "platform/ZELPrivilegedOperationFeedbackProtocol.h"

namespace corvane {

/// Serves the feedback protocol to one helper, on a thread of its own.
class FeedbackListener {
 public:
  /// `receiver` gets the messages, in their order, on the listener's thread; it must outlive the
  /// listener. Throws if the process has no descriptor or thread left for it.
  static std::unique_ptr<FeedbackListener> serve(ZELPrivilegedOperationFeedbackProtocol& receiver);

  /// Ends the service and waits for its thread.
  virtual ~FeedbackListener() = default;

  /// The way to this listener; to be taken once and sent with a request.
  virtual XPCListenerEndpoint takeEndpoint() = 0;
  /// Waits until the other side has closed the connection or the endpoint was dropped: everything
  /// that it sent has been received then.
  virtual void waitUntilClosed() = 0;
};

}  // namespace corvane

#endif
