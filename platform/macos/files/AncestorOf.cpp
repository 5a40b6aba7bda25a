#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

// As many as a path can hold, with some to spare.
constexpr std::size_t levelsAtOnce = 256;

// "../../ ... ../."
std::string wayUpBy(std::size_t levels) {
  std::string way;
  for (std::size_t level = 0; level < levels; ++level) way += "../";
  return way + ".";
}

}  // namespace

std::optional<Error> ancestorOf(int folder, std::size_t levels, FileIdentity& ancestor) {
  FileDescriptor reached;
  for (; levels > levelsAtOnce; levels -= levelsAtOnce) {
    FileDescriptor above(
        ::openat(folder, wayUpBy(levelsAtOnce).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!above) return posixErrorFromHost(errno);
    reached = std::move(above);
    folder = reached.get();
  }
  struct stat attributes {};
  if (::fstatat(folder, wayUpBy(levels).c_str(), &attributes, 0) != 0) {
    return posixErrorFromHost(errno);
  }
  ancestor = {static_cast<std::uint64_t>(attributes.st_dev), attributes.st_ino};
  return std::nullopt;
}

}  // namespace corvane
