#include "platform/linux/authorization/FileStamp.h"

#include <ctime>

#include <sys/stat.h>

namespace corvane {

std::optional<FileStamp> FileStamp::of(const std::string& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return FileStamp{status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec,
                   status.st_ctim.tv_nsec};
}

bool FileStamp::isSettled() const {
  constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
  constexpr std::int64_t longestStep = nanosecondsPerSecond / 10;
  timespec now = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age =
      (now.tv_sec - changedSeconds) * nanosecondsPerSecond + now.tv_nsec - changedNanoseconds;
  return age > longestStep;
}

}  // namespace corvane
