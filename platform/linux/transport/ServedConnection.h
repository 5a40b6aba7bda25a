#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_SERVEDCONNECTION_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_SERVEDCONNECTION_H

#include <memory>
#include <optional>
#include <string>

#include <systemd/sd-bus.h>

#include "foundation/FileDescriptor.h"
#include "platform/XPCListener.h"
#include "platform/linux/processes/ProcessIdentity.h"
#include "platform/linux/transport/Arrivals.h"
#include "platform/linux/transport/CurrentPeer.h"
#include "platform/linux/transport/PeerLimits.h"
#include "platform/linux/transport/Registrations.h"

namespace corvane {

/// One client's connection on the daemon's side: a D-Bus server whose messages go to the exported
/// object. It has a thread of its own, so a request that waits for a person holds up nobody else.
class ServedConnection : public XPCIncomingConnection {
 public:
  /// `peer` is who connected `socket`; absent, the kernel says who it is.
  ServedConnection(FileDescriptor socket, const std::optional<Peer>& peer,
                   std::shared_ptr<PeerLimits> limits, std::shared_ptr<Arrivals> arrivals,
                   std::shared_ptr<Registrations> registrations);

  /// False if the peer's user already has as many connections as it may have.
  bool isWithinLimits() const { return _isWithinLimits; }

  void setExportedInterface(XPCInterface interface) override;
  void setExportedObject(ZELPrivilegedHelperProtocol& object) override { _object = &object; }
  void setExportedControl(ZELPrivilegedHelperControl& control) override { _control = &control; }
  void resume() override { _isResumed = true; }
  bool isResumed() const { return _isResumed; }

  /// The peer is on its way in until its first message has been handled.
  void setArriving() { _arrival.emplace(_arrivals); }

  /// Handles the peer's messages until it closes the connection or breaks a rule.
  void serve();

 private:
  struct Handlers;

  /// Handles what has been read; false if the connection is to end.
  bool processAll(sd_bus* bus) const;

  FileDescriptor _socket;
  bool _connectedItself;
  std::optional<WatchedProcess> _process;
  Peer _peer;
  PeerLimits::Share _share;
  bool _isWithinLimits;
  bool _isResumed = false;
  std::shared_ptr<Arrivals> _arrivals;
  std::optional<Arrivals::Arrival> _arrival;
  std::shared_ptr<Registrations> _registrations;
  std::string _interface;
  ZELPrivilegedHelperProtocol* _object = nullptr;
  ZELPrivilegedHelperControl* _control = nullptr;
  /// Set by an exception that nobody caught: its request stays unanswered.
  bool _hasFailed = false;
};

/// Acknowledges the one-way message that the calling thread is handling, if its sender wants that.
void acknowledgeCurrentOneWayMessage();

}  // namespace corvane

#endif
