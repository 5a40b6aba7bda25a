#ifndef CORVANE_TESTS_SUPPORT_RECORDINGCONNECTION_H
#define CORVANE_TESTS_SUPPORT_RECORDINGCONNECTION_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/XPCConnection.h"

namespace corvane {

/// A connection whose client is the test: keeps every message in its order.
class RecordingConnection : public XPCConnection, private ZELPrivilegedOperationFeedbackProtocol {
 public:
  void setRemoteObjectInterface(XPCInterface) override {}
  void resume() override {}
  std::unique_ptr<ZELPrivilegedOperationFeedbackProtocol> remoteObjectProxyWithErrorHandler(
      ErrorHandler) override {
    return nullptr;
  }
  ZELPrivilegedOperationFeedbackProtocol& remoteObjectProxy() override { return *this; }
  void suspend() override {}
  void invalidate() override {}

  std::vector<Dictionary> messages() const {
    const std::lock_guard lock(_mutex);
    return _messages;
  }
  /// All the bytes that came under `key`.
  std::string text(const char* key) const {
    const std::lock_guard lock(_mutex);
    return textLocked(key);
  }
  std::string output() const { return text(OutputDataKey); }
  std::string errorOutput() const { return text(ErrorDataKey); }
  void waitForOutput(const std::string& expected) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [&] { return textLocked(OutputDataKey).starts_with(expected); });
  }

 private:
  void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
    const std::lock_guard lock(_mutex);
    _messages.push_back(feedback);
    _changed.notify_all();
  }
  std::string textLocked(const char* key) const {
    std::string text;
    for (const Dictionary& message : _messages) {
      const Value* value = message.find(key);
      if (value != nullptr && value->data() != nullptr) text += stringFromData(*value->data());
    }
    return text;
  }

  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<Dictionary> _messages;
};

}  // namespace corvane

#endif
