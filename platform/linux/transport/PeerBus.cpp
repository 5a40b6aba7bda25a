#include "platform/linux/transport/PeerBus.h"

#include <cerrno>

#include <sys/socket.h>

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

Bus makePeerBus(FileDescriptor socket, BusRole role, FileDescriptor input) {
  if (!input) {
    errno = EMFILE;
    return nullptr;
  }
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
  if (result < 0) {
    errno = -result;
    return nullptr;
  }
  return bus;
}

int completeHandshake(sd_bus* bus, const ByteInput& input, Clock::time_point deadline) {
  for (;;) {
    const int ready = sd_bus_is_ready(bus);
    if (ready != 0) return ready < 0 ? ready : 0;
    const int progress = sd_bus_process(bus, nullptr);
    if (progress < 0) return progress;
    if (progress > 0) continue;
    const int events = sd_bus_get_events(bus);
    if (events < 0) return events;
    if (!waitFor(input.socket(), static_cast<short>(events), deadline)) return -ETIMEDOUT;
    const int pumped = input.pump();
    if (pumped < 0) return pumped;
  }
}

}  // namespace corvane
