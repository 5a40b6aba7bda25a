#include "platform/XPCListener.h"

#include <utility>

#include "platform/StandardLog.h"
#include "platform/macos/transport/Endpoint.h"
#include "platform/macos/transport/ExportedHelper.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

namespace {

class IncomingConnection : public XPCIncomingConnection {
 public:
  explicit IncomingConnection(NSXPCConnection* connection) : _connection(connection) {}

  // There is one interface that the system's library can be told; the object answers it whatever
  // name it is given here.
  void setExportedInterface(XPCInterface /*interface*/) override {
    _connection.exportedInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(ZELPrivilegedHelperService)];
  }
  void setExportedObject(ZELPrivilegedHelperProtocol& object) override { _helper = &object; }
  void setExportedControl(ZELPrivilegedHelperControl& control) override { _control = &control; }
  void resume() override {
    _connection.exportedObject = [[ZELExportedHelper alloc] initWithHelper:_helper
                                                                   control:_control];
    [_connection resume];
  }

 private:
  NSXPCConnection* _connection;
  ZELPrivilegedHelperProtocol* _helper = nullptr;
  ZELPrivilegedHelperControl* _control = nullptr;
};

}  // namespace

}  // namespace corvane

/// Tells a delegate of ours of new connections.
@interface ZELListenerDelegate : NSObject <NSXPCListenerDelegate>
/// Both outlive the object.
- (instancetype)initWithListener:(const corvane::XPCListener*)listener;
@property(assign) corvane::XPCListenerDelegate* delegate;
@end

@implementation ZELListenerDelegate {
  const corvane::XPCListener* _listener;
}

- (instancetype)initWithListener:(const corvane::XPCListener*)listener {
  self = [super init];
  if (self != nil) _listener = listener;
  return self;
}

- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  try {
    return corvane::guarded([&]() -> BOOL {
      if (self.delegate == nullptr) return NO;
      corvane::IncomingConnection connection(newConnection);
      return self.delegate->listenerShouldAcceptNewConnection(_listener, &connection) ? YES : NO;
    });
  } catch (const std::exception& exception) {
    corvane::NSLog("Uncaught exception while taking a connection: %s\n", exception.what());
    return NO;
  }
}

@end

namespace corvane {

namespace {

// What a client may hold, and for how long, is limited by the system.
class MachServiceListener : public XPCListener {
 public:
  explicit MachServiceListener(const std::string& name)
      : _listener([[NSXPCListener alloc] initWithMachServiceName:objectFromText(name)]),
        _delegate([[ZELListenerDelegate alloc] initWithListener:this]) {
    // The library does not keep it alive.
    _listener.delegate = _delegate;
  }

  void setDelegate(XPCListenerDelegate* delegate) override { _delegate.delegate = delegate; }
  void resume() override {
    guarded([this] { [_listener resume]; });
  }
  void suspend() override {
    guarded([this] { [_listener suspend]; });
  }
  void invalidate() override {
    guarded([this] { [_listener invalidate]; });
  }
  XPCListenerEndpoint endpoint() override {
    return guarded([this] { return endpointFromObject(_listener.endpoint); });
  }
  void run() override {
    guarded([] { [[NSRunLoop currentRunLoop] run]; });
  }

 private:
  NSXPCListener* _listener;
  ZELListenerDelegate* _delegate;
};

}  // namespace

std::unique_ptr<XPCListener> XPCListener::initWithMachServiceName(const std::string& name) {
  return guarded([&] { return std::make_unique<MachServiceListener>(name); });
}

}  // namespace corvane
