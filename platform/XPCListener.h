#ifndef CORVANE_PLATFORM_XPCLISTENER_H
#define CORVANE_PLATFORM_XPCLISTENER_H

#include <memory>
#include <string>

#include "platform/XPCConnection.h"
#include "platform/XPCListenerEndpoint.h"
#include "platform/ZELPrivilegedHelperControl.h"
#include "platform/ZELPrivilegedHelperProtocol.h"

namespace corvane {

/// A connection that a client has made to a listener. It handles nothing until it is resumed.
class XPCIncomingConnection {
 public:
  virtual ~XPCIncomingConnection() = default;
  virtual void setExportedInterface(XPCInterface interface) = 0;
  /// The object that gets the messages; it must outlive the process's connections.
  virtual void setExportedObject(ZELPrivilegedHelperProtocol& object) = 0;
  /// The object that gets the messages about operations, if any; it must live as long.
  virtual void setExportedControl(ZELPrivilegedHelperControl& control) = 0;
  virtual void resume() = 0;
};

class XPCListener;

class XPCListenerDelegate {
 public:
  virtual ~XPCListenerDelegate() = default;
  /// Told of each new connection, on the listener's thread or on that of a request for an
  /// endpoint. False closes the connection.
  virtual bool listenerShouldAcceptNewConnection(const XPCListener* listener,
                                                 XPCIncomingConnection* newConnection) = 0;
};

/// Offers a service to the processes of the machine under a name.
///
/// Each connection's messages are handled one at a time, different connections in parallel. A peer
/// costs only itself: what it may hold, and for how long it may leave something half done, is
/// limited by the system or, where the system has no such limits, by its side.
class XPCListener {
 public:
  /// A listener that is not yet resumed. Never null; a name that cannot be served fails in `run`.
  static std::unique_ptr<XPCListener> initWithMachServiceName(const std::string& name);

  virtual ~XPCListener() = default;

  /// The delegate must outlive the listener.
  virtual void setDelegate(XPCListenerDelegate* delegate) = 0;
  virtual void resume() = 0;
  virtual void suspend() = 0;
  /// Takes no more connections, for good. The caller may be about to end the process: whatever the
  /// side owes to the sender of the one-way message that the calling thread is handling is sent.
  virtual void invalidate() = 0;
  /// A new way to this listener.
  virtual XPCListenerEndpoint endpoint() = 0;
  /// The run loop of the calling thread: takes connections while the listener is resumed, waits
  /// while it is suspended or invalidated. Returns only if there is nothing to listen on.
  virtual void run() = 0;
};

}  // namespace corvane

#endif
