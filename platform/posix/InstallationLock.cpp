#include "platform/posix/InstallationLock.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"

namespace corvane {

namespace {

// How often a process that waits for the lock tries to take it.
constexpr std::chrono::milliseconds interval(50);

std::int32_t holderNamedIn(const FileDescriptor& file) {
  std::array<char, 16> text{};
  const ssize_t length = ::pread(file.get(), text.data(), text.size(), 0);
  std::int32_t pid = 0;
  if (length > 0) std::from_chars(text.data(), text.data() + length, pid);
  return pid;
}

void nameHolderIn(const FileDescriptor& file) {
  const std::string text = std::to_string(::getpid());
  // Without the number, who waits is only not told for whom.
  if (::ftruncate(file.get(), 0) != 0) return;
  [[maybe_unused]] const ssize_t written = ::pwrite(file.get(), text.data(), text.size(), 0);
}

Error timedOut(const std::string& path, std::int32_t holder) {
  const std::string who = holder > 0 ? "process " + std::to_string(holder) : "another process";
  return posixError(POSIXErrorCode::TimedOut,
                    {{NSFilePathErrorKey, path},
                     {NSLocalizedDescriptionKey,
                      who + " is installing or removing the helper and does not come to its end"},
                     {NSLocalizedRecoverySuggestionErrorKey,
                      "See what it waits for, or end it, and try again. Nothing was changed."}});
}

}  // namespace

InstallationLock::~InstallationLock() {
  if (_file) ::unlink(_path.c_str());
}

// Whether the locked file is still the one at the path. Who held the lock before has removed its
// file, and a lock on a file that is gone keeps nobody out.
bool InstallationLock::isHeld(const FileDescriptor& file) const {
  struct stat opened {};
  struct stat named {};
  return ::fstat(file.get(), &opened) == 0 && ::lstat(_path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

Result<void> InstallationLock::take(std::chrono::milliseconds patience,
                                    const std::function<void(std::int32_t)>& onWait) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (bool isWaiting = false;;) {
    FileDescriptor file(::open(_path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return posixErrorAbout(_path, errno);
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
      if (!isHeld(file)) continue;
      nameHolderIn(file);
      _file = std::move(file);
      return {};
    }
    if (errno != EWOULDBLOCK) return posixErrorAbout(_path, errno);
    const std::int32_t holder = holderNamedIn(file);
    if (std::chrono::steady_clock::now() >= deadline) return timedOut(_path, holder);
    if (!std::exchange(isWaiting, true)) onWait(holder);
    std::this_thread::sleep_for(interval);
  }
}

}  // namespace corvane
