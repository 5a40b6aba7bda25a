#include "platform/linux/PreferencesFile.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/PropertyList.h"
#include "platform/linux/PreferencesWorker.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

/// The child process at the other end of a socket. Ended, if it still runs, with this object.
class Child {
 public:
  Child(const PreferencesPlace& place, PreferencesAccess access) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
    _socket.reset(ends[0]);
    const FileDescriptor childsEnd(ends[1]);
    _process = ::fork();
    if (_process == 0) runPreferencesWorker(place, access, childsEnd.get());
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (_process <= 0) return;
    ::kill(_process, SIGKILL);
    while (::waitpid(_process, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  explicit operator bool() const { return _process > 0; }

  /// Both return 0, or why the bytes did not pass: EPIPE if the child ended, ETIMEDOUT.
  int receive(void* bytes, std::size_t size) {
    return transfer(POLLIN, static_cast<char*>(bytes), size, [this](char* at, std::size_t rest) {
      return ::recv(_socket.get(), at, rest, MSG_DONTWAIT);
    });
  }
  int send(const void* bytes, std::size_t size) {
    return transfer(POLLOUT, static_cast<const char*>(bytes), size,
                    [this](const char* at, std::size_t rest) {
                      return ::send(_socket.get(), at, rest, MSG_DONTWAIT | MSG_NOSIGNAL);
                    });
  }

 private:
  template <typename Byte, typename Operation>
  int transfer(short events, Byte* bytes, std::size_t size, Operation operation) {
    while (size > 0) {
      const ssize_t count = operation(bytes, size);
      if (count > 0) {
        bytes += count;
        size -= static_cast<std::size_t>(count);
      } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        return EPIPE;
      } else {
        const auto rest =
            std::chrono::duration_cast<std::chrono::milliseconds>(_deadline - Clock::now());
        if (rest.count() <= 0) return ETIMEDOUT;
        pollfd descriptor{_socket.get(), events, 0};
        ::poll(&descriptor, 1, static_cast<int>(rest.count()));
      }
    }
    return 0;
  }

  const Clock::time_point _deadline = Clock::now() + preferencesFileTimeout;
  FileDescriptor _socket;
  pid_t _process = -1;
};

PreferencesContent receiveContent(Child& child) {
  PreferencesReport report{};
  if (const int failure = child.receive(&report, sizeof report)) return failure;
  if (report.failure != 0) return report.failure;
  if (report.isThere == 0) return std::optional<Data>();
  Data content(report.size);
  if (const int failure = child.receive(content.data(), content.size())) return failure;
  return std::optional(std::move(content));
}

}  // namespace

PreferencesContent readPreferencesFile(const PreferencesPlace& place) {
  Child child(place, PreferencesAccess::Read);
  if (!child) return errno;
  return receiveContent(child);
}

int changePreferencesFile(const PreferencesPlace& place, bool mayCreate,
                          const PreferencesChange& change) {
  Child child(place, mayCreate ? PreferencesAccess::Create : PreferencesAccess::Change);
  if (!child) return errno;
  const PreferencesContent content = receiveContent(child);
  if (const int* failure = std::get_if<int>(&content)) return *failure;
  const std::optional<Data> changed = change(std::get<std::optional<Data>>(content));
  if (!changed) return 0;
  const std::uint64_t size = changed->size();
  if (const int failure = child.send(&size, sizeof size)) return failure;
  if (const int failure = child.send(changed->data(), changed->size())) {
    // The child may have said why it stopped taking bytes.
    PreferencesReport report{};
    return child.receive(&report, sizeof report) == 0 ? report.failure : failure;
  }
  PreferencesReport report{};
  if (const int failure = child.receive(&report, sizeof report)) return failure;
  return report.failure;
}

}  // namespace corvane
