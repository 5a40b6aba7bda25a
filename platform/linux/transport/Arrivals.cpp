#include "platform/linux/transport/Arrivals.h"

#include <algorithm>
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

void Arrivals::waitForArriving(Clock::time_point end) {
  std::unique_lock lock(_mutex);
  while (!_deadlines.empty()) {
    // A copy: the arrival whose deadline it is may be gone when the wait is over.
    const Clock::time_point last = std::min(*_deadlines.rbegin(), end);
    if (Clock::now() >= last) return;
    _changed.wait_until(lock, last);
  }
}

bool Arrivals::isAnyArriving() {
  const std::lock_guard lock(_mutex);
  return !_deadlines.empty() && Clock::now() < *_deadlines.rbegin();
}

Arrivals::Leaving::Leaving(Arrivals& arrivals) {
  // Others are accepted meanwhile, but not without end.
  const Clock::time_point end = Clock::now() + patience;
  do {
    if (_door.owns_lock()) _door.unlock();
    arrivals.waitForArriving(end);
    _door = std::unique_lock(arrivals._door);
  } while (arrivals.isAnyArriving() && Clock::now() < end);
  arrivals.waitForArriving(Clock::time_point::max());
  _registration = arrivals.registering();
}

}  // namespace corvane
