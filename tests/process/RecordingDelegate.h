#ifndef CORVANE_TESTS_PROCESS_RECORDINGDELEGATE_H
#define CORVANE_TESTS_PROCESS_RECORDINGDELEGATE_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "process/ZELTaskExecutorDelegate.h"

namespace corvane::tests {

/// Keeps what it is told, and lets a test wait for it.
class RecordingDelegate : public ZELTaskExecutorDelegate {
 public:
  struct Chunk {
    std::string text;
    bool isError;
  };

  void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) override {
    const std::lock_guard lock(_mutex);
    _chunks.push_back({std::string(stringFromData(*chunk)), isError->boolValue()});
    _changed.notify_all();
  }
  void taskWillExecute(ZELTaskExecutor&) override { record("will execute"); }
  void taskDidLaunch(ZELTaskExecutor&) override { record("did launch"); }

  std::vector<Chunk> chunks() const {
    const std::lock_guard lock(_mutex);
    return _chunks;
  }
  std::string output() const { return text(false); }
  std::string errorOutput() const { return text(true); }
  std::vector<std::string> events() const {
    const std::lock_guard lock(_mutex);
    return _events;
  }
  /// Waits until the standard output begins with `expected`.
  void waitForOutput(const std::string& expected) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [&] { return textLocked(false).starts_with(expected); });
  }

 private:
  void record(const char* event) {
    const std::lock_guard lock(_mutex);
    _events.emplace_back(event);
  }
  std::string text(bool isError) const {
    const std::lock_guard lock(_mutex);
    return textLocked(isError);
  }
  std::string textLocked(bool isError) const {
    std::string text;
    for (const Chunk& chunk : _chunks) {
      if (chunk.isError == isError) text += chunk.text;
    }
    return text;
  }

  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<Chunk> _chunks;
  std::vector<std::string> _events;
};

}  // namespace corvane::tests

#endif
