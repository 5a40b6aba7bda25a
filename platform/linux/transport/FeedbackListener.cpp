#include "platform/FeedbackListener.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include "foundation/FileDescriptor.h"
#include "platform/StandardLog.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

int processFeedback(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  MessageReader reader(message);
  const Dictionary feedback = readDictionary(reader);
  if (reader.result() < 0) return reader.result();
  try {
    static_cast<ZELPrivilegedOperationFeedbackProtocol*>(userdata)
        ->processPrivilegedOperationFeedback(feedback);
  } catch (const std::exception& exception) {
    // No exception may pass through the library.
    NSLog("Uncaught exception while handling feedback: %s\n", exception.what());
  }
  return 1;
}

sd_bus_vtable served(const Member& member) {
  sd_bus_vtable entry = SD_BUS_METHOD(member.name, member.call, member.answer, &processFeedback,
                                      SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY);
  entry.x.method.names = member.names;
  return entry;
}

const sd_bus_vtable members[] = {SD_BUS_VTABLE_START(0), served(feedbackMember), SD_BUS_VTABLE_END};

void serveFeedback(FileDescriptor socket, ZELPrivilegedOperationFeedbackProtocol& receiver) {
  const int descriptor = socket.get();
  // The helper connects when the request has been authorized: a dialog may be in between.
  if (!waitFor(descriptor, POLLIN, Clock::time_point::max())) return;
  ByteInput input(descriptor);
  const Result<Bus> bus = makePeerBus(std::move(socket), BusRole::Server, input.takeReadingEnd());
  if (!bus ||
      sd_bus_add_object_vtable(bus->get(), nullptr, feedbackObjectPath, feedbackInterface, members,
                               &receiver) < 0 ||
      !completeHandshake(bus->get(), input, Clock::now() + handshakeTimeout)) {
    return;
  }
  for (;;) {
    const int progress = sd_bus_process(bus->get(), nullptr);
    if (progress > 0) continue;
    if (progress < 0 || !waitFor(descriptor, POLLIN, Clock::time_point::max()) || !input.pump()) {
      return;
    }
  }
}

FileDescriptor duplicate(const FileDescriptor& descriptor) {
  FileDescriptor copy(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy) throw std::system_error(errno, std::generic_category(), "fcntl");
  return copy;
}

class LinuxFeedbackListener : public FeedbackListener {
 public:
  explicit LinuxFeedbackListener(ZELPrivilegedOperationFeedbackProtocol& receiver)
      : LinuxFeedbackListener(receiver, connectedSockets()) {}

  ~LinuxFeedbackListener() override {
    // Ends the thread whichever side it waits for; dropping an unsent endpoint does too.
    _endpoint.reset();
    ::shutdown(_control.get(), SHUT_RDWR);
    LinuxFeedbackListener::waitUntilClosed();
  }

  XPCListenerEndpoint takeEndpoint() override { return endpointFromSocket(std::move(_endpoint)); }

  void waitUntilClosed() override {
    if (_thread.joinable()) _thread.join();
  }

 private:
  LinuxFeedbackListener(ZELPrivilegedOperationFeedbackProtocol& receiver,
                        std::pair<FileDescriptor, FileDescriptor> ends)
      : _endpoint(std::move(ends.second)),
        _control(duplicate(ends.first)),
        _thread([this, &receiver, socket = std::move(ends.first)]() mutable {
          serveFeedback(std::move(socket), receiver);
          // So that a helper does not go on sending to nobody.
          ::shutdown(_control.get(), SHUT_RDWR);
        }) {}

  FileDescriptor _endpoint;
  /// The thread's socket once more, to shut it down from outside.
  FileDescriptor _control;
  std::thread _thread;
};

}  // namespace

std::unique_ptr<FeedbackListener> FeedbackListener::serve(
    ZELPrivilegedOperationFeedbackProtocol& receiver) {
  return std::make_unique<LinuxFeedbackListener>(receiver);
}

}  // namespace corvane
