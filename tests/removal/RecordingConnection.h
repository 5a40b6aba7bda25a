#ifndef CORVANE_TESTS_REMOVAL_RECORDINGCONNECTION_H
#define CORVANE_TESTS_REMOVAL_RECORDINGCONNECTION_H

#include <memory>
#include <vector>

#include "platform/XPCConnection.h"

namespace corvane {

/// A connection whose other side keeps the feedback it is sent.
class RecordingConnection : public XPCConnection, private ZELPrivilegedOperationFeedbackProtocol {
 public:
  const std::vector<Dictionary>& messages() const { return _messages; }

  void setRemoteObjectInterface(XPCInterface) override {}
  void resume() override {}
  std::unique_ptr<ZELPrivilegedOperationFeedbackProtocol> remoteObjectProxyWithErrorHandler(
      ErrorHandler) override {
    return nullptr;
  }
  ZELPrivilegedOperationFeedbackProtocol& remoteObjectProxy() override { return *this; }
  void suspend() override {}
  void invalidate() override {}

 private:
  void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
    _messages.push_back(feedback);
  }

  std::vector<Dictionary> _messages;
};

}  // namespace corvane

#endif
