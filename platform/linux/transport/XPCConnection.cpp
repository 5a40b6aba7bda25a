#include "platform/XPCConnection.h"

#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

// How long the receiver may take nothing before it is given up.
constexpr std::chrono::seconds stallTimeout{10};

// A client may send any descriptor; only a connected local stream socket is an endpoint.
bool isConnectedStreamSocket(int descriptor) {
  int type = 0;
  int domain = 0;
  socklen_t size = sizeof(int);
  if (::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0) return false;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) return false;
  sockaddr_storage peer{};
  size = sizeof(peer);
  if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return false;
  if (type != SOCK_STREAM || domain != AF_UNIX) errno = EPROTOTYPE;
  return type == SOCK_STREAM && domain == AF_UNIX;
}

// How much of what was sent the receiver has not taken yet, as the kernel counts it.
int untakenBytes(int socket) {
  int count = 0;
  return ::ioctl(socket, SIOCOUTQ, &count) == 0 ? count : 0;
}

// A receiver that reads slowly slows the sender down, for as long as it goes on reading; one that
// does not read at all for the time above is given up. Errors are told on the sending thread.
class FeedbackSender : public XPCConnection, public ZELPrivilegedOperationFeedbackProtocol {
 public:
  explicit FeedbackSender(XPCListenerEndpoint endpoint) : _transport(endpoint.takeTransport()) {}

  void setRemoteObjectInterface(XPCInterface interface) override {
    _interface = "com.corvane." + interface.protocolName;
  }

  void resume() override {
    const std::lock_guard lock(_mutex);
    if (_transport == nullptr || !isConnectedStreamSocket(_transport->socket.get())) {
      return fail(posixErrorFromHost(_transport == nullptr ? EINVAL : errno));
    }
    // After the handshake nothing is read: feedback is not answered.
    _input.emplace(_transport->socket.get());
    Result<Bus> bus =
        makePeerBus(std::move(_transport->socket), BusRole::Client, _input->takeReadingEnd());
    if (!bus) return fail(bus.error());
    _bus = *std::move(bus);
    const auto done = completeHandshake(_bus.get(), *_input, Clock::now() + handshakeTimeout);
    if (!done) fail(done.error());
  }

  std::unique_ptr<ZELPrivilegedOperationFeedbackProtocol> remoteObjectProxyWithErrorHandler(
      ErrorHandler handler) override {
    return std::make_unique<Proxy>(*this, std::move(handler));
  }

  ZELPrivilegedOperationFeedbackProtocol& remoteObjectProxy() override { return *this; }

  void processPrivilegedOperationFeedback(const Dictionary& feedback) override { send(feedback); }

  // Nothing is received, so there is nothing to hold back.
  void suspend() override {}

  void invalidate() override {
    const std::lock_guard lock(_mutex);
    if (!_failure) flush(0);
    if (!_failure) fail(posixErrorFromHost(ENOTCONN));
  }

 private:
  class Proxy : public ZELPrivilegedOperationFeedbackProtocol {
   public:
    Proxy(FeedbackSender& sender, ErrorHandler handler)
        : _sender(&sender), _handler(std::move(handler)) {}
    void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
      if (const std::optional<Error> error = _sender->send(feedback)) _handler(*error);
    }

   private:
    FeedbackSender* _sender;
    ErrorHandler _handler;
  };

  std::optional<Error> send(const Dictionary& feedback) {
    const std::lock_guard lock(_mutex);
    if (_failure) return _failure;
    auto writer = MessageWriter::ofCall(_bus.get(), nullptr, feedbackObjectPath, _interface.c_str(),
                                        feedbackMember.name);
    writer.expectNoReply();
    appendDictionary(writer, feedback);
    writer.send(_bus.get());
    if (writer.result() < 0) {
      fail(posixErrorFromHost(-writer.result()));
    } else {
      flush(1);
    }
    return _failure;
  }

  // Waits until at most `remaining` messages are queued, the receiver has stalled, or it is gone.
  void flush(std::uint64_t remaining) {
    for (;;) {
      std::uint64_t queued = 0;
      int result = sd_bus_get_n_queued_write(_bus.get(), &queued);
      if (result < 0) return fail(posixErrorFromHost(-result));
      if (queued <= remaining) return;
      // The wait ends when most of what the kernel keeps has been taken. A receiver that has not
      // got as far, but has taken something, is slow and not stuck.
      const int socket = _input->socket();
      const int untaken = untakenBytes(socket);
      if (!waitFor(socket, POLLOUT, Clock::now() + stallTimeout)) {
        if (untakenBytes(socket) < untaken) continue;
        return fail(posixError(POSIXErrorCode::TimedOut));
      }
      result = sd_bus_process(_bus.get(), nullptr);
      if (result < 0) return fail(posixErrorFromHost(-result));
    }
  }

  void fail(Error error) {
    _failure = std::move(error);
    if (_bus == nullptr) return;
    // The request that brought the socket still holds it, but the receiver is to see the end now.
    ::shutdown(_input->socket(), SHUT_RDWR);
    _bus.reset();
  }

  std::mutex _mutex;
  std::unique_ptr<XPCListenerEndpoint::Transport> _transport;
  std::string _interface;
  std::optional<ByteInput> _input;
  Bus _bus;
  /// Why nothing can be sent any more.
  std::optional<Error> _failure;
};

}  // namespace

std::shared_ptr<XPCConnection> XPCConnection::initWithListenerEndpoint(
    XPCListenerEndpoint endpoint) {
  return std::make_shared<FeedbackSender>(std::move(endpoint));
}

}  // namespace corvane
