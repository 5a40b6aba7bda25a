#include "fuzz/Conversation.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <sys/socket.h>

#include "foundation/Unicode.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {

namespace {

constexpr std::size_t maximumPortions = 64;
constexpr std::size_t maximumPortionSize = 4096;

int socketToSend() {
  static const auto pair = connectedSockets();
  return pair.first.get();
}

}  // namespace

std::vector<Portion> portionsOf(std::span<const std::byte> conversation) {
  std::vector<Portion> portions;
  while (conversation.size() > 3 && portions.size() < maximumPortions) {
    const auto byte = [&](std::size_t i) { return std::to_integer<std::size_t>(conversation[i]); };
    const std::size_t descriptors = byte(0) % (mostDescriptors + 1);
    const std::size_t announced = byte(1) | byte(2) << 8;
    conversation = conversation.subspan(3);
    const std::size_t size = std::min({announced, conversation.size(), maximumPortionSize});
    const auto* bytes = reinterpret_cast<const char*>(conversation.data());
    if (size > 0) portions.push_back({descriptors, std::string(bytes, size)});
    conversation = conversation.subspan(size);
  }
  return portions;
}

bool send(int socket, const Portion& portion) {
  iovec bytes{const_cast<char*>(portion.bytes.data()), portion.bytes.size()};
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int) * mostDescriptors)> control{};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  if (portion.descriptors > 0) {
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(sizeof(int) * portion.descriptors);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * portion.descriptors);
    for (std::size_t i = 0; i < portion.descriptors; ++i) {
      const int descriptor = socketToSend();
      std::memcpy(CMSG_DATA(header) + i * sizeof(int), &descriptor, sizeof(int));
    }
  }
  return ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) ==
         static_cast<ssize_t>(portion.bytes.size());
}

int openDescriptors() {
  static DIR* const folder = ::opendir("/proc/self/fd");
  socketToSend();
  ::rewinddir(folder);
  int count = 0;
  while (::readdir(folder) != nullptr) ++count;
  return count;
}

void require(bool holds) {
  if (!holds) std::abort();
}

void checkValue(const Value& value, int depth) {
  require(depth >= 0);
  const auto checkText = [](const std::string& text) {
    require(isUTF8(text) && text.find('\0') == std::string::npos);
  };
  if (const std::string* text = value.string()) checkText(*text);
  const auto checkDictionary = [&](const Dictionary& dictionary) {
    require(dictionary.duplicateKey() == nullptr);
    for (const auto& [key, element] : dictionary) {
      checkText(key);
      checkValue(element, depth - 1);
    }
  };
  if (const Dictionary* dictionary = value.dictionary()) checkDictionary(*dictionary);
  if (const Error* error = value.error()) {
    checkText(error->domain());
    checkDictionary(error->userInfo());
  }
  if (const Array* array = value.array()) {
    for (const Value& element : *array) checkValue(element, depth - 1);
  }
}

}  // namespace corvane
