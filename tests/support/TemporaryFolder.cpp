#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/Files.h"
#include "tests/support/SystemObjects.h"

namespace corvane {

namespace {

// The path of what was made.
std::string made(std::string path, int result) {
  require(result == 0, path);
  return path;
}

}  // namespace

TemporaryFolder::TemporaryFolder(const std::string& parent)
    : _path(parent + "/corvane-test.XXXXXX") {
  made(_path, ::mkdtemp(_path.data()) == nullptr ? -1 : ::chmod(_path.c_str(), 0755));
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code failure;
  std::filesystem::remove_all(_path, failure);
  if (!failure) return;
  // Something is protected, or too deep.
  removeByTools(_path);
}

std::string TemporaryFolder::makeFile(std::string_view name, std::string_view content) const {
  writeFile(path(name), content);
  return path(name);
}

std::string TemporaryFolder::makeScript(std::string_view name, std::string_view commands) const {
  writeFile(path(name), "#!/bin/sh\n" + std::string(commands) + "\n", 0755);
  return path(name);
}

std::string TemporaryFolder::makeFolder(std::string_view name) const {
  return made(path(name), ::mkdir(path(name).c_str(), 0755));
}

std::string TemporaryFolder::makeLink(std::string_view name, const std::string& target) const {
  return made(path(name), ::symlink(target.c_str(), path(name).c_str()));
}

std::string TemporaryFolder::makeWhiteout(std::string_view name) const {
  makeWhiteoutAt(path(name));
  return path(name);
}

std::string TemporaryFolder::makeFifo(std::string_view name) const {
  return made(path(name), ::mkfifo(path(name).c_str(), 0600));
}

}  // namespace corvane
