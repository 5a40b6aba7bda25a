#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

#include <cstdarg>
#include <cstdlib>

#include "platform/CurrentClient.h"
#include "platform/StandardLog.h"

namespace corvane {

namespace {

// Held for the life of the process.
ZELPrivilegedHelper* sharedHelper = nullptr;

}  // namespace

ZELPrivilegedHelper* ZELPrivilegedHelper::privilegedHelper() {
  return sharedHelper;
}

ZELPrivilegedHelper* ZELPrivilegedHelper::init() {
  if (sharedHelper == nullptr) sharedHelper = new ZELPrivilegedHelper;
  return sharedHelper;
}

ZELPrivilegedHelper* ZELPrivilegedHelper::initForOperationSet(
    ZELPrivilegedOperationSet* operationSet, aslclient usingASLHandle, aslmsg messsage) {
  ZELPrivilegedHelper* helper = init();
  if (operationSet == nullptr) return nullptr;
  helper->_listener =
      XPCListener::initWithMachServiceName(operationSet->serviceIdentifierForHelper());
  helper->_listener->setDelegate(helper);
  helper->_operationSet = operationSet;
  helper->_aslHandle = usingASLHandle;
  helper->_aslMessage = messsage;
  return helper;
}

void ZELPrivilegedHelper::run() {
  listener()->resume();
  listener()->run();
}

bool ZELPrivilegedHelper::listenerShouldAcceptNewConnection(const XPCListener* newListener,
                                                            XPCIncomingConnection* newConnection) {
  if (newListener != listener() || newConnection == nullptr) {
    NSLog("%s: received bad XPC connection request. Ignoring ...\n", "ZELPrivilegedHelper");
    return false;
  }
  newConnection->setExportedInterface({"ZELPrivilegedHelperProtocol"});
  newConnection->setExportedObject(*this);
  newConnection->setExportedControl(*this);
  newConnection->resume();
  return true;
}

void ZELPrivilegedHelper::connectWithEndpointUsingReply(const EndpointReply& reply) {
  reply(listener()->endpoint());
}

void ZELPrivilegedHelper::getVersionStringUsingReply(const VersionReply& reply) {
  reply(operationSet()->implementationVersion().value_or(""));
}

bool ZELPrivilegedHelper::cancelOperation(const std::string& token) {
  const bool isCancelled = _runningRequests.cancel(userOfCurrentClient(), token);
  log("Request to cancel an operation: %s.", isCancelled ? "it is in progress" : "there is none");
  return isCancelled;
}

void ZELPrivilegedHelper::logAt(int priority, const char* format, ...) const {
  va_list arguments;
  va_start(arguments, format);
  asl_vlog(_aslHandle, _aslMessage, priority, format, arguments);
  va_end(arguments);
}

void ZELPrivilegedHelper::log(const char* format, ...) const {
  va_list arguments;
  va_start(arguments, format);
  asl_vlog(_aslHandle, _aslMessage, logLevel(), format, arguments);
  va_end(arguments);
}

void ZELPrivilegedHelper::logErrorMessage(const std::optional<std::string>& message) {
  if (!message || message->empty()) return;
  log("Error during execution of privileged operation: %s", message->c_str());
}

void ZELPrivilegedHelper::enableDebugMode(bool flag) {
  const int before = logLevel();
  setLogLevel(flag ? LogPriorityNotice : LogPriorityDebug);
  const int level = logLevel();
  if (level == before) return;
  logAt(LogPriorityError,
        "Debug mode changed to %s. Debug messages are now handled at logging priority level %d.",
        flag ? "enabled" : "disabled", level);
  if (flag) {
    log("--- This is helper version %s, implementing operation set '%s'. ---",
        operationSet()->implementationVersion().value_or("(null)").c_str(),
        operationSet()->implementationCode().value_or("(null)").c_str());
  }
}

void ZELPrivilegedHelper::terminatePrivilegedHelper() {
  log("Terminating privileged helper.");
  listener()->suspend();
  listener()->invalidate();
  // At once: destructors would take things away from requests that are still in progress.
  std::_Exit(0);
}

}  // namespace corvane
