#include "bench/support/Bystander.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/mman.h>

namespace corvane::bench {

namespace {

constexpr std::chrono::milliseconds pause{5};
constexpr std::size_t maximumCalls = 100000;

double now() {
  const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::milli>(sinceStart).count();
}

}  // namespace

// In memory that both processes see.
struct Bystander::Notes {
  std::atomic<std::size_t> count = 0;
  std::atomic<long> failures = 0;
  /// When the call that is waiting began; 0 between two.
  std::atomic<double> begin = 0;
  std::array<double, maximumCalls> milliseconds;

  static Notes* make() {
    void* memory =
        ::mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return new (memory) Notes;
  }

  void take(const Call& call) {
    begin = now();
    try {
      call();
    } catch (const std::exception& exception) {
      if (failures++ == 0) std::fprintf(stderr, "a bystander: %s\n", exception.what());
    }
    milliseconds[count] = now() - begin;
    ++count;
    begin = 0;
  }
};

void Bystander::Unmap::operator()(Notes* notes) const {
  ::munmap(notes, sizeof(Notes));
}

Bystander::Bystander(uid_t user, const std::function<Call()>& prepare)
    : _notes(Notes::make()), _process(user, [this, &prepare] {
        return [this, call = prepare()] {
          while (_notes->count < maximumCalls) {
            _notes->take(call);
            std::this_thread::sleep_for(pause);
          }
        };
      }) {}

Latencies Bystander::latencies() const {
  const auto* first = _notes->milliseconds.data();
  std::vector<double> sorted(first, first + _notes->count);
  if (const double begin = _notes->begin; begin != 0) sorted.push_back(now() - begin);
  std::sort(sorted.begin(), sorted.end());
  if (sorted.empty()) return {0, 0, 0, 0, 0};
  return {sorted[sorted.size() / 2], sorted[sorted.size() * 99 / 100], sorted.back(),
          static_cast<long>(sorted.size()), _notes->failures};
}

}  // namespace corvane::bench
