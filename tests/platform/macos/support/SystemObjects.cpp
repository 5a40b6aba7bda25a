#include "tests/support/SystemObjects.h"

#include <filesystem>

#include <spawn.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Files.h"

extern "C" char** environ;

namespace corvane {

void makeWhiteoutAt(const std::string& path) {
  require(::mknod(path.c_str(), S_IFWHT | 0600, 0) == 0, path);
}

bool exchangeNames(const std::string& one, const std::string& other) {
  return ::renamex_np(one.c_str(), other.c_str(), RENAME_SWAP) == 0;
}

void removeByTools(const std::string& path) {
  namespace fs = std::filesystem;
  ::lchflags(path.c_str(), 0);
  std::error_code failure;
  for (fs::recursive_directory_iterator entry(path, failure), end; entry != end && !failure;
       entry.increment(failure)) {
    ::lchflags(entry->path().c_str(), 0);
  }
  const char* const command[] = {"rm", "-rf", path.c_str(), nullptr};
  pid_t process = 0;
  if (::posix_spawnp(&process, command[0], nullptr, nullptr, const_cast<char* const*>(command),
                     environ) == 0) {
    ::waitpid(process, nullptr, 0);
  }
}

}  // namespace corvane
