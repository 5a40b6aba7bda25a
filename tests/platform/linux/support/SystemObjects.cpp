#include "tests/support/SystemObjects.h"

#include <initializer_list>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Files.h"

namespace corvane {

namespace {

void run(std::initializer_list<std::string> command) {
  std::vector<std::string> texts(command);
  std::vector<char*> arguments;
  arguments.reserve(texts.size() + 1);
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  pid_t process = 0;
  if (::posix_spawnp(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) == 0) {
    ::waitpid(process, nullptr, 0);
  }
}

}  // namespace

void makeWhiteoutAt(const std::string& path) {
  require(::mknod(path.c_str(), S_IFCHR | 0600, ::makedev(0, 0)) == 0, path);
}

bool exchangeNames(const std::string& one, const std::string& other) {
  return ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

void removeByTools(const std::string& path) {
  run({"chattr", "-R", "-f", "-i", "-a", path});
  run({"rm", "-rf", path});
}

}  // namespace corvane
