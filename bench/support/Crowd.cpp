#include "bench/support/Crowd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "foundation/FileDescriptor.h"

namespace corvane::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t largestPart = std::size_t{1} << 20;

class Member {
 public:
  Member(const Crowd& crowd, const std::string& path) : _crowd(&crowd), _path(&path) {}

  bool isConnected() const { return static_cast<bool>(_socket); }
  pollfd interest() const {
    const bool sends = _sent < _sending.size() || _crowd->nextMessage;
    const int events = (_crowd->reads ? POLLIN : 0) | (sends ? POLLOUT : 0);
    return {_socket.get(), static_cast<short>(events), 0};
  }

  void connect() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    _path->copy(address.sun_path, sizeof(address.sun_path) - 1);
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
      return;
    }
    _socket = std::move(socket);
    _sending = _crowd->beginning;
    _sent = 0;
    _carriesDescriptor = false;
    _end = Clock::now() + _crowd->lifetime;
    if (!_sending.empty()) send();
  }

  void handle(short events) {
    if ((events & POLLOUT) != 0) send();
    if (_socket && (events & POLLIN) != 0) receive();
    if ((events & (POLLHUP | POLLERR)) != 0 || Clock::now() >= _end) _socket.reset();
  }

 private:
  void send() {
    if (_sent == _sending.size()) {
      if (!_crowd->nextMessage) return;
      _sending = _crowd->nextMessage();
      _sent = 0;
      _carriesDescriptor = _crowd->descriptor >= 0;
    }
    iovec part = {&_sending[_sent], std::min(_sending.size() - _sent, largestPart)};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    if (_carriesDescriptor && _sent == 0) {
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      cmsghdr* header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof(int));
      std::memcpy(CMSG_DATA(header), &_crowd->descriptor, sizeof(int));
    }
    const ssize_t count = ::sendmsg(_socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0)
      _sent += static_cast<std::size_t>(count);
    else if (errno != EAGAIN)
      _socket.reset();
  }

  // Descriptors among it find no room and are closed.
  void receive() {
    std::array<char, 65536> content;
    const ssize_t count = ::recv(_socket.get(), content.data(), content.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && errno != EAGAIN)) _socket.reset();
  }

  const Crowd* _crowd;
  const std::string* _path;
  FileDescriptor _socket;
  std::string _sending;
  std::size_t _sent = 0;
  bool _carriesDescriptor = false;
  Clock::time_point _end;
};

}  // namespace

void runCrowd(const Crowd& crowd, const std::string& path) {
  std::vector<Member> members;
  members.reserve(static_cast<std::size_t>(crowd.connections));
  for (int i = 0; i < crowd.connections; ++i) members.emplace_back(crowd, path);
  std::vector<pollfd> interests(members.size());
  for (;;) {
    bool areAllConnected = true;
    for (std::size_t i = 0; i < members.size(); ++i) {
      if (!members[i].isConnected()) members[i].connect();
      areAllConnected = areAllConnected && members[i].isConnected();
      interests[i] = members[i].interest();
    }
    const bool hasEnds = crowd.lifetime < std::chrono::seconds(1);
    ::poll(interests.data(), interests.size(), areAllConnected && !hasEnds ? 100 : 1);
    for (std::size_t i = 0; i < members.size(); ++i) {
      if (members[i].isConnected()) members[i].handle(interests[i].revents);
    }
  }
}

}  // namespace corvane::bench
