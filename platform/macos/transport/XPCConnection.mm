#include "platform/XPCConnection.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "foundation/POSIXError.h"
#include "platform/StandardLog.h"
#include "platform/macos/transport/Endpoint.h"
#include "platform/macos/transport/Protocols.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

namespace {

// How long the receiver may take nothing before it is given up.
constexpr std::chrono::seconds stallTimeout{10};

// How many messages may wait for the receiver. Each is 64 KiB of output at most.
constexpr int mostUntaken = 16;

// The messages that the receiver has not taken yet, counted by whoever sends them and by the
// library's thread, which may do so after the connection is gone.
class Untaken {
 public:
  // Waits for room for one more; false if nothing was taken for too long.
  bool add() {
    std::unique_lock lock(_mutex);
    while (_count >= mostUntaken) {
      const int before = _count;
      if (!_taken.wait_for(lock, stallTimeout, [&] { return _count < before; })) return false;
    }
    ++_count;
    return true;
  }
  void remove() {
    const std::lock_guard lock(_mutex);
    --_count;
    _taken.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _taken;
  int _count = 0;
};

// Called by the library, into whose frames nothing of ours may pass.
void tell(const XPCConnection::ErrorHandler& handler, NSError* error) {
  try {
    guarded([&] { handler(errorFromObject(error)); });
  } catch (const std::exception& exception) {
    NSLog("Uncaught exception while handling an error: %s\n", exception.what());
  }
}

class FeedbackSender : public XPCConnection, public ZELPrivilegedOperationFeedbackProtocol {
 public:
  explicit FeedbackSender(XPCListenerEndpoint endpoint)
      : _connection([[NSXPCConnection alloc] initWithListenerEndpoint:takeObject(endpoint)]),
        _isBounded([_connection respondsToSelector:@selector(scheduleSendBarrierBlock:)] != NO) {}
  // A connection that was resumed and not invalidated would be a mistake for the library.
  ~FeedbackSender() override {
    try {
      FeedbackSender::invalidate();
    } catch (const std::exception& exception) {
      NSLog("Uncaught exception at the end of a connection: %s\n", exception.what());
    }
  }

  void setRemoteObjectInterface(XPCInterface /*interface*/) override {
    guarded([this] {
      _connection.remoteObjectInterface =
          [NSXPCInterface interfaceWithProtocol:@protocol(ZELPrivilegedOperationFeedbackProtocol)];
    });
  }

  void resume() override {
    guarded([this] { [_connection resume]; });
  }

  std::unique_ptr<ZELPrivilegedOperationFeedbackProtocol> remoteObjectProxyWithErrorHandler(
      ErrorHandler handler) override {
    return std::make_unique<Proxy>(*this, std::move(handler));
  }

  ZELPrivilegedOperationFeedbackProtocol& remoteObjectProxy() override { return *this; }

  void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
    send(feedback, [](const Error&) {});
  }

  void suspend() override {
    guarded([this] { [_connection suspend]; });
    _isSuspended = true;
  }

  void invalidate() override {
    guarded([this] {
      // One that is suspended handles nothing, its end included.
      if (_isSuspended.exchange(false)) [_connection resume];
      [_connection invalidate];
    });
  }

 private:
  class Proxy : public ZELPrivilegedOperationFeedbackProtocol {
   public:
    Proxy(FeedbackSender& sender, ErrorHandler handler)
        : _sender(&sender), _handler(std::move(handler)) {}
    void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
      _sender->send(feedback, _handler);
    }

   private:
    FeedbackSender* _sender;
    ErrorHandler _handler;
  };

  void send(const Dictionary& feedback, const ErrorHandler& handler) {
    if (_isBounded && !_isGivenUp && !_untaken->add()) _isGivenUp = true;
    if (_isGivenUp) return handler(posixError(POSIXErrorCode::TimedOut));
    guarded([&] {
      const ErrorHandler told = handler;
      const id<ZELPrivilegedOperationFeedbackProtocol> proxy =
          [_connection remoteObjectProxyWithErrorHandler:^(NSError* error) {
            tell(told, error);
          }];
      [proxy processPrivilegedOperationFeedback:objectFromValue(feedback)];
      if (!_isBounded) return;
      const std::shared_ptr<Untaken> untaken = _untaken;
      [_connection scheduleSendBarrierBlock:^{
        untaken->remove();
      }];
    });
  }

  NSXPCConnection* _connection;
  /// Whether the system, from macOS 10.15 on, tells when a message has been taken.
  const bool _isBounded;
  const std::shared_ptr<Untaken> _untaken = std::make_shared<Untaken>();
  std::atomic<bool> _isGivenUp = false;
  std::atomic<bool> _isSuspended = false;
};

}  // namespace

std::shared_ptr<XPCConnection> XPCConnection::initWithListenerEndpoint(
    XPCListenerEndpoint endpoint) {
  return guarded([&] { return std::make_shared<FeedbackSender>(std::move(endpoint)); });
}

}  // namespace corvane
