#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

// As many as a path can hold, with some to spare.
constexpr std::size_t levelsAtOnce = 1024;

// "../../ ... ../."
constexpr auto wayUp = [] {
  std::array<char, levelsAtOnce * 3 + 2> text{};
  for (std::size_t level = 0; level < levelsAtOnce; ++level) {
    text[level * 3] = '.';
    text[level * 3 + 1] = '.';
    text[level * 3 + 2] = '/';
  }
  text[levelsAtOnce * 3] = '.';
  return text;
}();

const char* wayUpBy(std::size_t levels) {
  return wayUp.data() + (levelsAtOnce - levels) * 3;
}

}  // namespace

std::optional<Error> ancestorOf(int folder, std::size_t levels, FileIdentity& ancestor) {
  FileDescriptor reached;
  while (levels > levelsAtOnce) {
    FileDescriptor above(::openat(folder, wayUpBy(levelsAtOnce), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!above) return posixErrorFromHost(errno);
    reached = std::move(above);
    folder = reached.get();
    levels -= levelsAtOnce;
  }
  struct statx attributes {};
  if (::statx(folder, wayUpBy(levels), AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT, STATX_INO,
              &attributes) != 0) {
    return posixErrorFromHost(errno);
  }
  ancestor = {::makedev(attributes.stx_dev_major, attributes.stx_dev_minor), attributes.stx_ino};
  return std::nullopt;
}

}  // namespace corvane
