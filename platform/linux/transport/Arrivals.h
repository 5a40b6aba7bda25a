#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_ARRIVALS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_ARRIVALS_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>

namespace corvane {

/// Keeps clients that leave from taking the helper with them while others are just coming. The
/// helper ends in the middle of the unregistration that leaves no client, and this could happen:
///
///     A, the last client   unregisters
///     B                    connects, is accepted, and sends its registration
///     helper               handles A's message first, finds no client left, and ends
///     B                    has lost its connection, or was even told that it is registered
///
/// So that unregistration closes the door, which means that nobody is accepted any more, and waits
/// until those who were accepted have had their first message handled; one that sends nothing is
/// waited for as long as `patience`. Who comes to a closed door stays in the queue of the listening
/// socket, which outlives the process, and is served by the next helper. And as an unregistration
/// is never handled at the same time as a registration, no registration is acknowledged that has
/// come too late to count. An unregistration that leaves others closes no door: whoever has clients
/// leave without end would otherwise hold up everybody who comes.
class Arrivals {
 public:
  using Clock = std::chrono::steady_clock;

  /// How long a connection is waited for from its acceptance. An unregistration waits for those who
  /// are accepted in its first such time, and so at most twice as long.
  static constexpr std::chrono::milliseconds patience{250};

  /// One connection, from its acceptance until its first message has been handled.
  class Arrival {
   public:
    explicit Arrival(std::shared_ptr<Arrivals> arrivals);
    Arrival(const Arrival&) = delete;
    Arrival& operator=(const Arrival&) = delete;
    ~Arrival();

   private:
    std::shared_ptr<Arrivals> _arrivals;
    std::multiset<Clock::time_point>::iterator _deadline;
  };

  /// Held while a connection is accepted and becomes an arrival.
  std::unique_lock<std::mutex> accepting() { return std::unique_lock(_door); }
  /// Held while a registration is handled and acknowledged, and while an unregistration is that
  /// leaves others.
  std::unique_lock<std::mutex> registering() { return std::unique_lock(_registration); }

  /// Held while the unregistration that leaves nobody is handled, with the door closed; waits first
  /// for those who are arriving.
  class Leaving {
   public:
    explicit Leaving(Arrivals& arrivals);

   private:
    std::unique_lock<std::mutex> _door;
    std::unique_lock<std::mutex> _registration;
  };

 private:
  void waitForArriving(Clock::time_point end);
  bool isAnyArriving();

  std::mutex _door;
  std::mutex _registration;

  std::mutex _mutex;
  std::condition_variable _changed;
  std::multiset<Clock::time_point> _deadlines;
};

}  // namespace corvane

#endif
