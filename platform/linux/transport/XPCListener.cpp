#include "platform/XPCListener.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include "foundation/POSIXError.h"
#include "platform/ProcessTable.h"
#include "platform/StandardLog.h"
#include "platform/linux/transport/CurrentPeer.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerLimits.h"
#include "platform/linux/transport/Registrations.h"
#include "platform/linux/transport/ServedConnection.h"

namespace corvane {

namespace {

// The socket on which a service manager waits for clients and starts the daemon for them.
FileDescriptor socketFromServiceManager() {
  const int count = ::sd_listen_fds(1);
  FileDescriptor first;
  for (int descriptor = SD_LISTEN_FDS_START; descriptor < SD_LISTEN_FDS_START + count;
       ++descriptor) {
    FileDescriptor passed(descriptor);
    if (!first && ::sd_is_socket(descriptor, AF_UNIX, SOCK_STREAM, 1) > 0)
      first = std::move(passed);
  }
  return first;
}

// Clients that wait to be accepted, as the service manager has them. They are in front of everybody
// who comes later, so they are few.
constexpr int maximumWaiting = 128;

// Where nobody started the daemon on demand: the service's own path.
FileDescriptor socketAtServicePath(const std::string& name) {
  const std::filesystem::path folder = "/run/" + name;
  const std::string path = folder / "socket";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return {};
  }
  path.copy(address.sun_path, path.size());
  // Whatever the umask is: everybody may come in, and nobody else may put a socket there.
  if (::mkdir(folder.c_str(), 0755) == 0 && ::chmod(folder.c_str(), 0755) != 0) return {};

  FileDescriptor listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  FileDescriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (::connect(probe.get(), generic, sizeof(address)) == 0 || errno == EAGAIN) {
    errno = EADDRINUSE;  // another daemon serves it
    return {};
  }
  ::unlink(path.c_str());
  if (::bind(listening.get(), generic, sizeof(address)) != 0) return {};
  // Every user may connect; each request is authorized on its own.
  if (::chmod(path.c_str(), 0666) != 0 || ::listen(listening.get(), maximumWaiting) != 0) return {};
  return listening;
}

constexpr std::size_t descriptorsOfConnection = 4;

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

// Memory, descriptors or threads may run out at any time.
template <typename Function>
bool reportingExceptions(Function function) {
  try {
    function();
  } catch (const std::exception& exception) {
    NSLog("A connection cannot be served: %s\n", exception.what());
    return false;
  }
  return true;
}

// Whether the peer has left without a word, or has nothing more to say.
bool hasLeft(int socket) {
  char byte = 0;
  return ::recv(socket, &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT) == 0;
}

// Sent by who has put another program in the place of this one. Those of older versions, which know
// nothing of it, are not disturbed by it either.
constexpr int leaveIfForsaken = SIGWINCH;
std::atomic<bool> isLeavingAsked = false;
std::atomic<int> wakeOfListener = -1;

void askToLeave(int) {
  const int error = errno;
  isLeavingAsked = true;
  ::eventfd_write(wakeOfListener, 1);
  errno = error;
}

// Nobody's: it shows whom the delegate has messages handled by.
struct OwnConnection : XPCIncomingConnection {
  void setExportedInterface(XPCInterface) override {}
  void setExportedObject(ZELPrivilegedHelperProtocol& exported) override { object = &exported; }
  void setExportedControl(ZELPrivilegedHelperControl&) override {}
  void resume() override {}

  ZELPrivilegedHelperProtocol* object = nullptr;
};

// Accepts connections and gives each a thread. The socket is the service manager's: it lets clients
// wait in its queue while no helper runs, and starts one for them. So the worst helper is one that
// runs, since no other is started then, but serves nobody:
//
//   helper    has no descriptor left, for whatever reason, when the next client comes
//   listener  fails to accept it; the client is still in the queue, so trying again at once would
//             use all of a processor
//   clients   that are connected give theirs back when they leave, and the queue is served
//   helper    has no client left and still no descriptor: nothing will ever give one back
//
// So it waits a moment after each failure, and ends, with status 1, in the last case: the service
// manager starts it anew, with all its descriptors, for those who are still in the queue. Where it
// is memory or threads that run out, that one connection fails.
class LinuxListener : public XPCListener {
 public:
  explicit LinuxListener(std::string name) : _name(std::move(name)) {}

  void setDelegate(XPCListenerDelegate* delegate) override { _delegate = delegate; }
  void resume() override { setState(State::Resumed); }
  void suspend() override { setState(State::Suspended); }
  void invalidate() override {
    setState(State::Invalid);
    // Where its sender wanted that; later it may never be.
    acknowledgeCurrentOneWayMessage();
  }

  XPCListenerEndpoint endpoint() override {
    auto [ours, theirs] = connectedSockets();
    // Of a pair of sockets the kernel names the process that made it, which is the daemon itself.
    // The peer is who asked for the endpoint.
    const Peer* asking = currentPeer();
    offer(std::move(ours), asking != nullptr ? std::optional(*asking) : std::nullopt, false);
    return endpointFromSocket(std::move(theirs));
  }

  void run() override {
    raiseDescriptorLimit();
    FileDescriptor listening = socketFromServiceManager();
    if (!listening) listening = socketAtServicePath(_name);
    if (!listening) {
      NSLog("The service '%s' cannot be served: %s\n", _name.c_str(),
            posixDescription(posixCodeFromHost(errno)).c_str());
      return;
    }
    wakeOfListener = _wake.get();
    std::signal(leaveIfForsaken, askToLeave);
    // Tells the service manager that clients are served from now on, and removes the variable that
    // says how to tell it, so that child programs do not have it.
    ::sd_notify(1, "READY=1");
    // An invalidated listener does not end the loop: whoever invalidates it is about to end the
    // process, and what the caller of this does afterwards must not happen at the same time.
    for (;;) {
      pollfd events[] = {{_wake.get(), POLLIN, 0},
                         {_state == State::Resumed ? listening.get() : -1, POLLIN, 0}};
      if (::poll(events, 2, -1) < 0 && errno != EINTR) return;
      if (events[0].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(_wake.get(), &count);
      }
      if (isLeavingAsked.exchange(false)) leaveIfNobodyIsLeft();
      if (events[1].revents != 0 && _state == State::Resumed) acceptFrom(listening.get());
    }
  }

 private:
  enum class State { Suspended, Resumed, Invalid };

  void setState(State state) {
    State before = _state;
    while (before != State::Invalid && !_state.compare_exchange_weak(before, state)) {
    }
    ::eventfd_write(_wake.get(), 1);
  }

  // A client that was killed has left its number behind. Where nobody is connected, and no number
  // is that of a process that lives, the numbers are unregistered, by which the helper ends.
  void leaveIfNobodyIsLeft() {
    const Arrivals::Leaving leaving(*_arrivals);
    if (_delegate == nullptr || _limits->hasConnections()) return;
    auto numbers = _registrations->numbers();
    if (!std::ranges::all_of(numbers, hasProcessEnded)) return;
    OwnConnection own;
    _delegate->listenerShouldAcceptNewConnection(this, &own);
    if (own.object == nullptr) return;
    // One that nobody has registered with ends as well.
    if (numbers.empty()) numbers.push_back(0);
    for (const std::int32_t number : numbers) {
      _registrations->remove(0, number);
      own.object->unregisterClientWithPID(number);
    }
  }

  // Ends the process if nobody is connected and descriptors are short: nothing is in progress then
  // that could give any back, and the next process has all of them.
  void endIfOutOfDescriptors() {
    if (_limits->hasConnections()) return;
    std::array<FileDescriptor, descriptorsOfConnection> tried;
    for (FileDescriptor& descriptor : tried) {
      descriptor.reset(::fcntl(_wake.get(), F_DUPFD_CLOEXEC, 0));
      if (!descriptor && errno == EMFILE) {
        NSLog(
            "The helper ends: nobody is connected, and no descriptor is left to serve anybody.\n");
        std::_Exit(1);
      }
    }
  }

  void acceptFrom(int listening) {
    auto accepting = _arrivals->accepting();
    FileDescriptor socket(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
      // Out of descriptors or memory: the client waits in the queue; trying at once would spin.
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        accepting.unlock();
        pollfd wake{_wake.get(), POLLIN, 0};
        ::poll(&wake, 1, 100);
        endIfOutOfDescriptors();
      }
      return;
    }
    // Who connects and leaves without end costs those behind in the queue little.
    if (!hasLeft(socket.get())) offer(std::move(socket), std::nullopt, true);
  }

  // Serves the connection on a thread of its own if it is within the limits and the delegate
  // takes it. What goes wrong with one connection ends that one alone.
  void offer(FileDescriptor socket, const std::optional<Peer>& peer, bool isArriving) {
    const bool isServed = reportingExceptions([&] {
      auto connection = std::make_unique<ServedConnection>(std::move(socket), peer, _limits,
                                                           _arrivals, _registrations);
      if (!connection->isWithinLimits() || _delegate == nullptr ||
          !_delegate->listenerShouldAcceptNewConnection(this, connection.get()) ||
          !connection->isResumed()) {
        return;
      }
      if (isArriving) connection->setArriving();
      std::thread([this, served = std::move(connection)]() mutable {
        const bool isDone = reportingExceptions([&] { served->serve(); });
        served.reset();
        if (!isDone) endIfOutOfDescriptors();
      }).detach();
    });
    if (!isServed) endIfOutOfDescriptors();
  }

  std::string _name;
  XPCListenerDelegate* _delegate = nullptr;
  std::atomic<State> _state = State::Suspended;
  FileDescriptor _wake{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::shared_ptr<PeerLimits> _limits = std::make_shared<PeerLimits>();
  std::shared_ptr<Arrivals> _arrivals = std::make_shared<Arrivals>();
  std::shared_ptr<Registrations> _registrations = std::make_shared<Registrations>();
};

}  // namespace

std::unique_ptr<XPCListener> XPCListener::initWithMachServiceName(const std::string& name) {
  return std::make_unique<LinuxListener>(name);
}

}  // namespace corvane
