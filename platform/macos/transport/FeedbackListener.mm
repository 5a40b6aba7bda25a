#include "platform/FeedbackListener.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/StandardLog.h"
#include "platform/macos/transport/Endpoint.h"
#include "platform/macos/transport/Protocols.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

namespace {

// What the listener and the library's threads share. The receiver is the listener's caller's, and
// gets nothing more once the listener is at its end.
class Reception {
 public:
  explicit Reception(ZELPrivilegedOperationFeedbackProtocol& receiver) : _receiver(&receiver) {}

  void receive(const Dictionary& feedback) {
    const std::lock_guard lock(_receiving);
    if (_receiver != nullptr) _receiver->processPrivilegedOperationFeedback(feedback);
  }
  // Waits for a message that is being received.
  void end() {
    {
      const std::lock_guard lock(_receiving);
      _receiver = nullptr;
    }
    close();
  }

  void close() {
    const std::lock_guard lock(_mutex);
    _isClosed = true;
    _closed.notify_all();
  }
  void waitUntilClosed() {
    std::unique_lock lock(_mutex);
    _closed.wait(lock, [this] { return _isClosed; });
  }

  // One connection is taken, from whoever has the endpoint.
  bool takeConnection() {
    const std::lock_guard lock(_mutex);
    return !_isClosed && !std::exchange(_isTaken, true);
  }
  // Takes no connection any more; true if none was taken.
  bool closeUnlessTaken() {
    const std::lock_guard lock(_mutex);
    if (!_isTaken) _isClosed = true;
    return !_isTaken;
  }

 private:
  std::mutex _receiving;
  ZELPrivilegedOperationFeedbackProtocol* _receiver;
  std::mutex _mutex;
  std::condition_variable _closed;
  bool _isClosed = false;
  bool _isTaken = false;
};

}  // namespace

}  // namespace corvane

/// Takes the connection of a helper and its messages.
@interface ZELFeedbackReceiver
    : NSObject <NSXPCListenerDelegate, ZELPrivilegedOperationFeedbackProtocol>
- (instancetype)initWithReception:(std::shared_ptr<corvane::Reception>)reception;
@end

@implementation ZELFeedbackReceiver {
  std::shared_ptr<corvane::Reception> _reception;
}

- (instancetype)initWithReception:(std::shared_ptr<corvane::Reception>)reception {
  self = [super init];
  if (self != nil) _reception = std::move(reception);
  return self;
}

- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  if (!_reception->takeConnection()) return NO;
  newConnection.exportedInterface =
      [NSXPCInterface interfaceWithProtocol:@protocol(ZELPrivilegedOperationFeedbackProtocol)];
  newConnection.exportedObject = self;
  const std::shared_ptr<corvane::Reception> reception = _reception;
  newConnection.invalidationHandler = ^{
    reception->close();
  };
  [newConnection resume];
  return YES;
}

- (void)processPrivilegedOperationFeedback:(NSDictionary*)feedback {
  try {
    corvane::guarded([&] {
      const auto value = corvane::valueFromObject(feedback);
      if (value && value->dictionary() != nullptr) _reception->receive(*value->dictionary());
    });
  } catch (const std::exception& exception) {
    corvane::NSLog("Uncaught exception while handling feedback: %s\n", exception.what());
  }
}

@end

namespace corvane {

namespace {

class AnonymousFeedbackListener : public FeedbackListener {
 public:
  explicit AnonymousFeedbackListener(ZELPrivilegedOperationFeedbackProtocol& receiver)
      : _reception(std::make_shared<Reception>(receiver)),
        _receiver([[ZELFeedbackReceiver alloc] initWithReception:_reception]),
        _listener([NSXPCListener anonymousListener]) {
    _listener.delegate = _receiver;
    [_listener resume];
  }
  ~AnonymousFeedbackListener() override {
    [_listener invalidate];
    _reception->end();
  }

  XPCListenerEndpoint takeEndpoint() override {
    return guarded([this] { return endpointFromObject(_listener.endpoint); });
  }
  // The system does not tell of an endpoint that was dropped. Who is asked for the end has the
  // answer to the request already, and a helper with feedback connects before it gives that.
  void waitUntilClosed() override {
    if (!_reception->closeUnlessTaken()) _reception->waitUntilClosed();
  }

 private:
  std::shared_ptr<Reception> _reception;
  ZELFeedbackReceiver* _receiver;
  NSXPCListener* _listener;
};

}  // namespace

std::unique_ptr<FeedbackListener> FeedbackListener::serve(
    ZELPrivilegedOperationFeedbackProtocol& receiver) {
  return guarded([&] { return std::make_unique<AnonymousFeedbackListener>(receiver); });
}

}  // namespace corvane
