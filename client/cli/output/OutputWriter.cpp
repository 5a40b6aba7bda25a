#include "client/cli/output/OutputWriter.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace corvane::cli {

namespace {

// 0, or the errno value of the failure.
int writeAll(int descriptor, const Data& chunk) {
  std::size_t written = 0;
  while (written < chunk.size()) {
    const ssize_t count = ::write(descriptor, chunk.data() + written, chunk.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      pollfd ready{descriptor, POLLOUT, 0};
      ::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

OutputWriter::OutputWriter() : _thread([this] { run(); }) {}

OutputWriter::~OutputWriter() {
  finish();
}

void OutputWriter::write(int descriptor, Data chunk) {
  std::unique_lock lock(_mutex);
  _changed.wait(lock, [this] { return _pendingSize < maximumPending; });
  if (_failures.contains(descriptor)) return;
  const std::size_t size = chunk.size();
  _pending.push_back({descriptor, std::move(chunk)});
  _pendingSize += size;
  _changed.notify_all();
}

int OutputWriter::finish() {
  {
    const std::lock_guard lock(_mutex);
    _isFinishing = true;
    _changed.notify_all();
  }
  if (_thread.joinable()) _thread.join();
  for (const auto& [descriptor, failure] : _failures) {
    if (failure != EPIPE) return failure;
  }
  return 0;
}

void OutputWriter::run() {
  std::unique_lock lock(_mutex);
  for (;;) {
    _changed.wait(lock, [this] { return !_pending.empty() || _isFinishing; });
    if (_pending.empty()) return;
    const Pending next = std::move(_pending.front());
    _pending.pop_front();
    const bool isWanted = !_failures.contains(next.descriptor);
    lock.unlock();
    const int failure = isWanted ? writeAll(next.descriptor, next.chunk) : 0;
    lock.lock();
    if (failure != 0) _failures.emplace(next.descriptor, failure);
    _pendingSize -= next.chunk.size();
    _changed.notify_all();
  }
}

}  // namespace corvane::cli
