// Handles that say how they are closed and raise what a test tells them to. They read to the end
// of the file only, which is all that the programs run with them need.

#include "tests/process/FileHandleStandIn.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/FileHandle.h"

namespace corvane {

namespace tests {

HandleLog& handleLog() {
  static HandleLog log;
  return log;
}

}  // namespace tests

namespace {

void record(const char* operation, const FileDescriptor& descriptor) {
  tests::handleLog().operations.emplace_back(operation);
  struct stat status {};
  fstat(descriptor.get(), &status);
  tests::handleLog().pipes.push_back(status.st_ino);
}

}  // namespace

FileHandle::FileHandle(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) {}
FileHandle::~FileHandle() = default;

FileDescriptor FileHandle::releaseFileDescriptor() {
  record("releaseFileDescriptor", _descriptor);
  if (tests::handleLog().beforeRelease) tests::handleLog().beforeRelease();
  return std::move(_descriptor);
}

void FileHandle::closeFile() {
  record("closeFile", _descriptor);
  _descriptor.reset();
}

std::size_t FileHandle::availableLength() const {
  return 0;
}

Data FileHandle::availableData() {
  if (tests::handleLog().beforeRead) tests::handleLog().beforeRead();
  Data data(maximumReadLength);
  const ssize_t count = read(_descriptor.get(), data.data(), data.size());
  data.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return data;
}

Data FileHandle::readDataUntil(Clock::time_point /*deadline*/) {
  return availableData();
}

}  // namespace corvane
