#include "platform/linux/transport/DescriptorReceiver.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <span>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "foundation/NoDestructor.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/processes/AbandonedChildren.h"
#include "platform/linux/processes/ForkedChild.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerLimits.h"

namespace corvane {

namespace {

// How long the child may take. It has next to nothing to do, so this is for a machine that is busy.
constexpr std::chrono::seconds receiverTimeout{10};

AbandonedChildren& stuckReceivers() {
  static NoDestructor<AbandonedChildren> children(maximumStuckReceiversPerUser,
                                                  maximumStuckReceivers);
  return *children;
}

// One byte and the descriptors that travel with it.
class Parcel {
 public:
  Parcel() = default;
  Parcel(const Parcel&) = delete;
  Parcel& operator=(const Parcel&) = delete;

  /// With room for exactly `count`: more are dropped by the kernel, and are an error.
  bool receive(int socket, std::size_t count) {
    _header.msg_controllen = CMSG_LEN(sizeof(int) * count);
    const ssize_t size = ::recvmsg(socket, &_header, MSG_CMSG_CLOEXEC);
    if (size <= 0) _header.msg_controllen = 0;
    return size == 1 && (_header.msg_flags & MSG_CTRUNC) == 0 && descriptors().size() == count;
  }

  bool send(int socket) { return ::sendmsg(socket, &_header, MSG_NOSIGNAL) == 1; }

  std::span<int> descriptors() {
    cmsghdr* const header = CMSG_FIRSTHDR(&_header);
    if (header == nullptr || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) {
      return {};
    }
    return {reinterpret_cast<int*>(CMSG_DATA(header)),
            (header->cmsg_len - CMSG_LEN(0)) / sizeof(int)};
  }

 private:
  char _byte = 0;
  iovec _portion{&_byte, 1};
  alignas(cmsghdr)
      std::array<std::byte, CMSG_SPACE(sizeof(int) * maximumMessageDescriptors)> _control{};
  msghdr _header{.msg_name = nullptr,
                 .msg_namelen = 0,
                 .msg_iov = &_portion,
                 .msg_iovlen = 1,
                 .msg_control = _control.data(),
                 .msg_controllen = _control.size(),
                 .msg_flags = 0};
};

// What is passed on in the place of a descriptor: itself, if it is a local socket. The kernel tells
// without asking anybody else. A socket of another family stays a socket, and anything else none.
int harmlessDescriptor(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof(domain);
  if (::getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) {
    return ::eventfd(0, EFD_CLOEXEC);
  }
  if (domain == AF_UNIX) return descriptor;
  std::array<int, 2> ends{};
  const int type = SOCK_DGRAM | SOCK_CLOEXEC;
  return ::socketpair(AF_UNIX, type, 0, ends.data()) == 0 ? ends[0] : -1;
}

// In the child, where nothing but system calls is allowed. Its end closes what it has taken.
[[noreturn]] void runReceiver(int socket, int daemon, std::size_t count) {
  leaveParentBehind(socket, daemon);
  Parcel parcel;
  bool isWhole = parcel.receive(socket, count);
  for (int& descriptor : parcel.descriptors()) {
    descriptor = harmlessDescriptor(descriptor);
    isWhole = isWhole && descriptor >= 0;
  }
  if (isWhole) parcel.send(daemon);
  // However long the end takes: nobody waits for these.
  ::close(socket);
  ::close(daemon);
  ::_exit(0);
}

}  // namespace

std::optional<std::vector<FileDescriptor>> takeDescriptors(int socket, std::size_t count,
                                                           uid_t user) {
  if (count == 0 || count > maximumMessageDescriptors || !stuckReceivers().mayStart(user)) {
    return std::nullopt;
  }
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return std::nullopt;
  const FileDescriptor ours(ends[0]);
  FileDescriptor childs(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return std::nullopt;
  if (child == 0) runReceiver(socket, childs.get(), count);
  childs.reset();

  const auto deadline = std::chrono::steady_clock::now() + receiverTimeout;
  Parcel parcel;
  const bool isReceived =
      waitFor(ours.get(), POLLIN, deadline) && parcel.receive(ours.get(), count);
  // Waits until the child has closed its end too, by which it has closed the peer's connection.
  // Were it killed before that, it could hang with it open, and the peer would never see an end.
  waitFor(ours.get(), POLLIN, deadline);
  std::vector<FileDescriptor> descriptors;
  for (const int descriptor : parcel.descriptors()) descriptors.emplace_back(descriptor);
  const bool hasEnded = stuckReceivers().end(child, user);
  if (!isReceived || !hasEnded) return std::nullopt;
  return descriptors;
}

}  // namespace corvane
