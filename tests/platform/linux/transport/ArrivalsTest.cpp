#include <atomic>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/transport/Arrivals.h"

namespace corvane {
namespace {

using Clock = Arrivals::Clock;

/// A client that leaves, on a thread of its own.
class Leaver {
 public:
  explicit Leaver(Arrivals& arrivals)
      : _thread([this, &arrivals] {
          _task = ::gettid();
          const Arrivals::Leaving leaving(arrivals);
          _left = Clock::now();
          _hasLeft = true;
        }) {}
  Leaver(const Leaver&) = delete;
  Leaver& operator=(const Leaver&) = delete;
  ~Leaver() {
    if (_thread.joinable()) _thread.join();
  }

  /// Returns when it waits, or has left.
  void waitUntilItWaits() const {
    while (!_hasLeft && !isAsleep()) std::this_thread::yield();
  }
  bool hasLeft() const { return _hasLeft; }
  /// When it left, once it has.
  Clock::time_point left() {
    _thread.join();
    return _left;
  }

 private:
  bool isAsleep() const {
    std::ifstream file("/proc/self/task/" + std::to_string(_task) + "/stat");
    std::string number;
    std::string name;
    char state = 0;
    return file >> number >> name >> state && state == 'S';
  }

  std::atomic<pid_t> _task = 0;
  std::atomic<bool> _hasLeft = false;
  Clock::time_point _left;
  std::thread _thread;
};

class ArrivalsTest : public testing::Test {
 protected:
  const std::shared_ptr<Arrivals> arrivals = std::make_shared<Arrivals>();
};

TEST_F(ArrivalsTest, WhoArrivesIsWaitedForAWhile) {
  const auto begun = Clock::now();
  const Arrivals::Arrival arrival(arrivals);
  Leaver leaver(*arrivals);
  EXPECT_GE(leaver.left() - begun, Arrivals::patience);
}

// A busy machine can take any one attempt beyond the time after which nobody is waited for.
TEST_F(ArrivalsTest, WhoHasArrivedIsNotWaitedForAnyMore) {
  bool isEarly = false;
  for (int attempt = 0; attempt < 100 && !isEarly; ++attempt) {
    const auto begun = Clock::now();
    std::optional<Arrivals::Arrival> arrival(arrivals);
    Leaver leaver(*arrivals);
    leaver.waitUntilItWaits();
    EXPECT_TRUE(!leaver.hasLeft() || Clock::now() - begun >= Arrivals::patience);
    arrival.reset();
    isEarly = leaver.left() - begun < Arrivals::patience;
  }
  EXPECT_TRUE(isEarly);
}

TEST_F(ArrivalsTest, WhoIsAcceptedMeanwhileIsWaitedForToo) {
  std::optional<Arrivals::Arrival> first(arrivals);
  Leaver leaver(*arrivals);
  leaver.waitUntilItWaits();
  auto accepting = arrivals->accepting();
  first.reset();
  const auto begun = Clock::now();
  const Arrivals::Arrival second(arrivals);
  const bool wasThere = !leaver.hasLeft();
  accepting.unlock();
  // Unless the first was waited for no more when the second came.
  if (wasThere) {
    EXPECT_GE(leaver.left() - begun, Arrivals::patience);
  }
}

TEST_F(ArrivalsTest, NobodyIsAcceptedOrRegisteredWhileSomebodyLeaves) {
  std::atomic<bool> hasLeft = false;
  std::optional<Arrivals::Leaving> leaving(*arrivals);
  std::thread accepting([&] {
    const auto lock = arrivals->accepting();
    EXPECT_TRUE(hasLeft);
  });
  std::thread registering([&] {
    const auto lock = arrivals->registering();
    EXPECT_TRUE(hasLeft);
  });
  hasLeft = true;
  leaving.reset();
  accepting.join();
  registering.join();
}

TEST_F(ArrivalsTest, ALeaverWaitsForARegistration) {
  auto registering = arrivals->registering();
  Leaver leaver(*arrivals);
  leaver.waitUntilItWaits();
  EXPECT_FALSE(leaver.hasLeft());
  registering.unlock();
  leaver.left();
}

}  // namespace
}  // namespace corvane
