#include "platform/FileHandle.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"

namespace corvane {

namespace {

[[noreturn]] void raise(const char* operation) {
  throw Exception(NSFileHandleOperationException,
                  std::string(operation) + ": " + posixDescription(posixCodeFromHost(errno)));
}

std::size_t readSome(int descriptor, std::byte* bytes, std::size_t length) {
  ssize_t count = 0;
  do {
    count = read(descriptor, bytes, length);
  } while (count < 0 && errno == EINTR);
  if (count < 0) raise("read");
  return static_cast<std::size_t>(count);
}

// True as soon as a read would not wait, false if that is still not so at `deadline`.
bool waitUntilReadable(int descriptor, FileHandle::Clock::time_point deadline) {
  pollfd entry{descriptor, POLLIN, 0};
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - FileHandle::Clock::now());
    const int timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
    const int ready = poll(&entry, 1, timeout);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) raise("poll");
    if (ready == 0 && timeout == 0) return false;
  }
}

}  // namespace

FileHandle::FileHandle(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) {}
FileHandle::~FileHandle() = default;

FileDescriptor FileHandle::releaseFileDescriptor() {
  return std::move(_descriptor);
}

void FileHandle::closeFile() {
  _descriptor.reset();
}

std::size_t FileHandle::availableLength() const {
  int length = 0;
  if (ioctl(_descriptor.get(), FIONREAD, &length) != 0) raise("ioctl");
  return static_cast<std::size_t>(length);
}

Data FileHandle::availableData() {
  Data data(std::clamp<std::size_t>(availableLength(), 1, maximumReadLength));
  data.resize(readSome(_descriptor.get(), data.data(), data.size()));
  return data;
}

Data FileHandle::readDataUntil(Clock::time_point deadline) {
  Data data;
  while (data.size() < maximumReadLength && waitUntilReadable(_descriptor.get(), deadline)) {
    const std::size_t length = data.size();
    data.resize(std::clamp<std::size_t>(length + availableLength(), length + 1, maximumReadLength));
    const std::size_t count =
        readSome(_descriptor.get(), data.data() + length, data.size() - length);
    data.resize(length + count);
    if (count == 0) break;
  }
  return data;
}

}  // namespace corvane
