#include "platform/linux/transport/PeerBus.h"

#include <cerrno>

#include <sys/socket.h>

#include "foundation/POSIXError.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {

using Clock = std::chrono::steady_clock;

namespace {

// How many bytes the kernel may keep for a peer that does not read. The library asks for eight
// megabytes, as for a bus that many share, and gets them when it runs as root. A server has to
// expect that many peers do not read, so it asks for little; as a client it sends to one that it
// has chosen, and output goes faster in larger portions.
constexpr int sendBufferSize(BusRole role) {
  return role == BusRole::Server ? 64 << 10 : 512 << 10;
}

}  // namespace

Result<Bus> makePeerBus(FileDescriptor socket, BusRole role, FileDescriptor input) {
  if (!input) return posixError(POSIXErrorCode::TooManyOpenFiles);
  sd_bus* raw = nullptr;
  int result = sd_bus_new(&raw);
  Bus bus(raw);
  if (result >= 0) {
    result = sd_bus_set_fd(raw, input.get(), socket.get());
  }
  const int output = socket.get();
  if (result >= 0) {
    socket.release();
    input.release();
    if (role == BusRole::Server) {
      sd_id128_t id;
      result = sd_id128_randomize(&id);
      if (result >= 0) result = sd_bus_set_server(raw, 1, id);
      // The kernel has said who the peer is, so anything that it claims to be is accepted.
      if (result >= 0) result = sd_bus_set_anonymous(raw, 1);
    } else {
      result = sd_bus_set_bus_client(raw, 0);
    }
  }
  if (result >= 0) result = sd_bus_negotiate_fds(raw, 1);
  if (result >= 0) result = sd_bus_start(raw);
  if (result >= 0) {
    const int size = sendBufferSize(role);
    result = ::setsockopt(output, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    if (result < 0) result = -errno;
  }
  if (result < 0) return posixErrorFromHost(-result);
  return bus;
}

Result<void> waitAndPump(sd_bus* bus, const ByteInput& input, Clock::time_point deadline) {
  const int events = sd_bus_get_events(bus);
  if (events < 0) return posixErrorFromHost(-events);
  if (!waitFor(input.socket(), static_cast<short>(events), deadline)) {
    return posixError(POSIXErrorCode::TimedOut);
  }
  return input.pump();
}

Result<void> completeHandshake(sd_bus* bus, const ByteInput& input, Clock::time_point deadline) {
  for (;;) {
    const int ready = sd_bus_is_ready(bus);
    if (ready < 0) return posixErrorFromHost(-ready);
    if (ready > 0) return {};
    const int progress = sd_bus_process(bus, nullptr);
    if (progress < 0) return posixErrorFromHost(-progress);
    if (progress > 0) continue;
    if (auto waited = waitAndPump(bus, input, deadline); !waited) return waited;
  }
}

}  // namespace corvane
