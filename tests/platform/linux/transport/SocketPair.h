#ifndef CORVANE_TESTS_PLATFORM_LINUX_TRANSPORT_SOCKETPAIR_H
#define CORVANE_TESTS_PLATFORM_LINUX_TRANSPORT_SOCKETPAIR_H

#include <array>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// Two connected stream sockets, one of them a peer's.
struct SocketPair {
  SocketPair() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
    ours.reset(ends[0]);
    theirs.reset(ends[1]);
  }

  /// Sends as the peer: bytes, and with them a socket so many times.
  void send(std::string_view bytes, std::size_t descriptors = 0) const {
    std::string copy(bytes);
    iovec portion{copy.data(), copy.size()};
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int) * 253)> control{};
    msghdr message{};
    message.msg_iov = &portion;
    message.msg_iovlen = 1;
    if (descriptors > 0) {
      message.msg_control = control.data();
      message.msg_controllen = CMSG_SPACE(sizeof(int) * descriptors);
      cmsghdr* header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof(int) * descriptors);
      for (std::size_t i = 0; i < descriptors; ++i) {
        const int descriptor = theirs.get();
        std::memcpy(CMSG_DATA(header) + i * sizeof(int), &descriptor, sizeof(int));
      }
    }
    ASSERT_EQ(::sendmsg(theirs.get(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }

  FileDescriptor ours;
  FileDescriptor theirs;
};

/// What has arrived at a socket, without waiting.
inline std::string received(int socket) {
  std::string all;
  std::array<char, 4096> buffer{};
  for (ssize_t size = 0; (size = ::recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;) {
    all.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return all;
}

inline int openDescriptors() {
  const std::filesystem::directory_iterator folder("/proc/self/fd");
  return static_cast<int>(std::distance(begin(folder), end(folder)));
}

}  // namespace corvane

#endif
