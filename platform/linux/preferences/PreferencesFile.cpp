#include "platform/linux/preferences/PreferencesFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/NoDestructor.h"
#include "foundation/POSIXError.h"
#include "platform/linux/preferences/PreferencesWorker.h"
#include "platform/linux/processes/AbandonedChildren.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

/// How many children may be left behind, whoever's preferences they were to change.
constexpr std::size_t maximumStuckWorkers = 16;

AbandonedChildren& abandonedChildren() {
  static NoDestructor<AbandonedChildren> children(maximumStuckWorkers, maximumStuckWorkers);
  return *children;
}

/// The worker process and what is shared with it. Ended, if it still runs, with this object.
class Child {
 public:
  explicit Child(const PreferencesPlace& place)
      : _place(place), _memory(::memfd_create("preferences", MFD_CLOEXEC)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (_process > 0) abandonedChildren().end(_process, _place.owner);
  }

  Result<void> start(PreferencesAccess access) {
    if (!abandonedChildren().mayStart(_place.owner)) return posixErrorFromHost(ETIMEDOUT);
    std::array<int, 2> ends{};
    if (!_memory || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      return posixErrorFromHost(errno);
    }
    _socket.reset(ends[0]);
    const FileDescriptor childsEnd(ends[1]);
    _process = ::fork();
    if (_process == 0) runPreferencesWorker(_place, access, childsEnd.get(), _memory.get());
    if (_process < 0) return posixErrorFromHost(errno);
    return {};
  }

  Result<PreferencesContent> content() const {
    const PreferencesReport report = receiveReport();
    if (report.failure != 0) return posixErrorFromHost(report.failure);
    if (report.isThere == 0) return std::nullopt;
    Data content(report.size);
    for (std::size_t done = 0; done < content.size();) {
      const ssize_t count = ::pread(_memory.get(), content.data() + done, content.size() - done,
                                    static_cast<off_t>(done));
      if (count <= 0) return posixErrorFromHost(count < 0 ? errno : EIO);
      done += static_cast<std::size_t>(count);
    }
    return content;
  }

  /// Has the content written.
  Result<void> write(const Data& content) const {
    for (std::size_t done = 0; done < content.size();) {
      const ssize_t count = ::pwrite(_memory.get(), content.data() + done, content.size() - done,
                                     static_cast<off_t>(done));
      if (count < 0) return posixErrorFromHost(errno);
      done += static_cast<std::size_t>(count);
    }
    const std::uint64_t size = content.size();
    if (::send(_socket.get(), &size, sizeof size, MSG_NOSIGNAL) != sizeof size) {
      return posixErrorFromHost(EPIPE);
    }
    const PreferencesReport report = receiveReport();
    if (report.failure != 0) return posixErrorFromHost(report.failure);
    return {};
  }

 private:
  /// One that tells of EPIPE if the worker ended, and of ETIMEDOUT if it takes too long.
  PreferencesReport receiveReport() const {
    for (;;) {
      const auto rest =
          std::chrono::duration_cast<std::chrono::milliseconds>(_deadline - Clock::now());
      pollfd descriptor{_socket.get(), POLLIN, 0};
      const int ready = ::poll(&descriptor, 1, std::max(0, static_cast<int>(rest.count())));
      if (ready == 0) return {ETIMEDOUT, 0, 0};
      PreferencesReport report{};
      if (ready > 0 && ::recv(_socket.get(), &report, sizeof report, MSG_DONTWAIT) ==
                           static_cast<ssize_t>(sizeof report)) {
        return report;
      }
      if (ready > 0 || errno != EINTR) return {EPIPE, 0, 0};
    }
  }

  const Clock::time_point _deadline = Clock::now() + preferencesFileTimeout;
  const PreferencesPlace& _place;
  const FileDescriptor _memory;
  FileDescriptor _socket;
  pid_t _process = -1;
};

}  // namespace

Result<PreferencesContent> readPreferencesFile(const PreferencesPlace& place) {
  Child child(place);
  if (const auto started = child.start(PreferencesAccess::Read); !started) return started.error();
  return child.content();
}

Result<void> changePreferencesFile(const PreferencesPlace& place, bool mayCreate,
                                   const PreferencesChange& change) {
  Child child(place);
  const auto access = mayCreate ? PreferencesAccess::Create : PreferencesAccess::Change;
  if (const auto started = child.start(access); !started) return started.error();
  const Result<PreferencesContent> old = child.content();
  if (!old) return old.error();
  const Result<PreferencesContent> changed = change(*old);
  if (!changed) return changed.error();
  return *changed ? child.write(**changed) : Result<void>();
}

}  // namespace corvane
