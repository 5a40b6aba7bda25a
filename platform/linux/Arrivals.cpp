#include "platform/linux/Arrivals.h"

#include <utility>

namespace corvane {

Arrivals::Arrival::Arrival(std::shared_ptr<Arrivals> arrivals) : _arrivals(std::move(arrivals)) {
  const std::lock_guard lock(_arrivals->_mutex);
  _deadline = _arrivals->_deadlines.insert(Clock::now() + patience);
}

Arrivals::Arrival::~Arrival() {
  const std::lock_guard lock(_arrivals->_mutex);
  _arrivals->_deadlines.erase(_deadline);
  _arrivals->_changed.notify_all();
}

Arrivals::Leaving::Leaving(Arrivals& arrivals) : _door(arrivals._door) {
  std::unique_lock lock(arrivals._mutex);
  const auto& deadlines = arrivals._deadlines;
  while (!deadlines.empty() && Clock::now() < *deadlines.rbegin()) {
    arrivals._changed.wait_until(lock, *deadlines.rbegin());
  }
  lock.unlock();
  _registration = arrivals.registering();
}

}  // namespace corvane
