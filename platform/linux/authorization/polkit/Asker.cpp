#include "platform/linux/authorization/polkit/Asker.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>

namespace corvane {

Asker::Asker(int connection, const std::stop_token& stop)
    : _connection(connection),
      _stop(stop),
      _stopped(stop.stop_possible() ? ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1),
      _wake(stop, [this] { ::eventfd_write(_stopped.get(), 1); }) {}

bool Asker::hasGoneWhileWaiting(int descriptor, short events,
                                std::chrono::milliseconds patience) const {
  std::array<pollfd, 3> waiting = {pollfd{descriptor, events, 0}, pollfd{_connection, POLLRDHUP, 0},
                                   pollfd{_stopped.get(), POLLIN, 0}};
  const int ready = ::poll(waiting.data(), waiting.size(),
                           static_cast<int>(std::max<std::int64_t>(patience.count(), 0)));
  // Where there was no descriptor left to be woken by.
  if (_stop.stop_requested()) return true;
  return ready > 0 && waiting[1].revents != 0;
}

}  // namespace corvane
