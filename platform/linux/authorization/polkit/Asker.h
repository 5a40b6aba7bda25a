#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_ASKER_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_ASKER_H

#include <chrono>
#include <functional>
#include <stop_token>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// Whoever waits for an answer, until they hang up or are told to wait no more.
class Asker {
 public:
  /// `connection` hangs up when the asker goes away; borrowed, or -1.
  Asker(int connection, const std::stop_token& stop);
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  /// Waits for some of `events` on `descriptor`, or for the asker to go, but no longer than that.
  /// True if the asker has gone. Without a descriptor (-1), for the asker alone.
  bool hasGoneWhileWaiting(int descriptor, short events, std::chrono::milliseconds patience) const;
  bool hasGone() const { return hasGoneWhileWaiting(-1, 0, {}); }

 private:
  const int _connection;
  const std::stop_token _stop;
  FileDescriptor _stopped;
  std::stop_callback<std::function<void()>> _wake;
};

}  // namespace corvane

#endif
