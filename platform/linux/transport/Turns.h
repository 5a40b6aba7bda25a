#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_TURNS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_TURNS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include <sys/types.h>

namespace corvane {

/// Who may use the processor to read and answer messages. Each connection has a thread, so an
/// account with many connections would get many times the processor that one with a single
/// connection gets, and that one would wait behind all of them. Here connections of one account
/// wait for each other, in the order in which they come. Root waits for nobody. Any thread.
class Turns {
 public:
  using Clock = std::chrono::steady_clock;

  /// How many connections of an account are at it at once.
  static constexpr std::size_t atOnce = 2;
  /// A turn is for what needs the processor. Longer than this takes what waits for something else,
  /// a dialog or a disk; then it is the next one's turn all the same.
  static constexpr std::chrono::milliseconds longest{20};

  explicit Turns(Clock::duration duration = longest) : _duration(duration) {}

  /// Waits for a turn of the account, and has it until it goes.
  class Turn {
   public:
    Turn(Turns& turns, uid_t account);
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

   private:
    Turns* _turns;
    uid_t _account;
  };

 private:
  struct Taken {
    const Turn* turn;
    Clock::time_point end;
  };
  struct Account {
    /// The oldest first.
    std::vector<Taken> taken;
    std::deque<std::condition_variable*> waiting;
  };

  void take(const Turn& turn, uid_t account);
  void giveBack(const Turn& turn, uid_t account);

  const Clock::duration _duration;
  std::mutex _mutex;
  /// Those with a turn, or who wait for one.
  std::map<uid_t, Account> _accounts;
};

}  // namespace corvane

#endif
