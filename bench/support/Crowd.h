#ifndef CORVANE_BENCH_SUPPORT_CROWD_H
#define CORVANE_BENCH_SUPPORT_CROWD_H

#include <chrono>
#include <functional>
#include <string>

namespace corvane::bench {

/// Connections of one process that all do the same, as fast as they can, without end.
struct Crowd {
  int connections;
  /// What each sends first, and what it sends from then on, again and again; nothing if empty.
  std::string beginning{};
  std::function<std::string()> nextMessage{};
  /// Sent with the first byte of each message.
  int descriptor = -1;
  /// Whether what comes is taken.
  bool reads = true;
  /// How long after it has connected each is closed, for another in its place.
  std::chrono::milliseconds lifetime = std::chrono::hours(1);
};

/// Runs it in the calling process, against the socket at `path`. Does not return.
[[noreturn]] void runCrowd(const Crowd& crowd, const std::string& path);

}  // namespace corvane::bench

#endif
