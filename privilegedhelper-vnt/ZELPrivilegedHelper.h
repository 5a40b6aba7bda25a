#ifndef CORVANE_PRIVILEGEDHELPER_VNT_ZELPRIVILEGEDHELPER_H
#define CORVANE_PRIVILEGEDHELPER_VNT_ZELPRIVILEGEDHELPER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <variant>

#include "foundation/Error.h"
#include "foundation/Value.h"
#include "operations/ZELPrivilegedOperationSet.h"
#include "platform/SystemLog.h"
#include "platform/XPCListener.h"
#include "privilegedhelper-vnt/RunningRequests.h"

namespace corvane {

/// The one object of the daemon: takes connections, keeps the registry of working clients, and
/// authorizes, checks and dispatches their requests. Each of these has a file of its own.
class ZELPrivilegedHelper : public XPCListenerDelegate,
                            public ZELPrivilegedHelperProtocol,
                            public ZELPrivilegedHelperControl {
 public:
  using ClientSet = std::set<std::int32_t>;

  /// The shared instance, or null before the first one was made. Never destroyed.
  static ZELPrivilegedHelper* privilegedHelper();

  /// Makes the shared instance, or returns the one there is.
  static ZELPrivilegedHelper* init();
  /// Readies the shared instance to serve `operationSet`, which it keeps; the log handle and the
  /// template stay the caller's. Null if there is no operation set.
  static ZELPrivilegedHelper* initForOperationSet(ZELPrivilegedOperationSet* operationSet,
                                                  aslclient usingASLHandle, aslmsg messsage);

  /// Serves clients on the calling thread; returns only when there is nothing to listen on.
  void run();

  XPCListener* listener() const { return _listener.get(); }
  ClientSet& clientSet() { return _clientSet; }
  std::mutex& clientSetLock() { return _clientSetLock; }
  ZELPrivilegedOperationSet* operationSet() const { return _operationSet; }
  /// The priority of routine and trace messages: 7, or 5 while debug mode is on.
  int logLevel() const { return _logLevel; }
  void setLogLevel(int level) { _logLevel = level; }

  /// Logs the message of an error during an operation; nothing if it is absent or empty.
  void logErrorMessage(const std::optional<std::string>& message);

  bool listenerShouldAcceptNewConnection(const XPCListener* listener,
                                         XPCIncomingConnection* newConnection) override;

  void connectWithEndpointUsingReply(const EndpointReply& reply) override;
  void getVersionStringUsingReply(const VersionReply& reply) override;
  void registerClientWithPID(std::int32_t pid) override;
  void unregisterClientWithPID(std::int32_t pid) override;
  void performPrivilegedOperation(std::uint64_t code, const Data& authorizationData,
                                  std::optional<XPCListenerEndpoint> feedbackEndpoint,
                                  std::optional<Array> arguments,
                                  const OperationReply& reply) override;
  void enableDebugMode(bool flag) override;

  bool cancelOperation(const std::string& token) override;
  Result<AuthorizationState> queryAuthorization(std::uint64_t code,
                                                const Data& authorizationData) override;

  /// Reads the prompt and the icon path out of a request's metadata. An out pointer is written
  /// only if it is given and the dictionary holds a string under its key.
  void processMetadataDictionary(const Dictionary& metadata, std::optional<std::string>* prompt,
                                 std::optional<std::string>* iconPath) const;
  /// Nothing if the holder of the authorization may perform the operation `code`, else the error
  /// to answer with. Waits while the system asks the user, unless nobody is to be asked, and until
  /// `stop` is requested.
  std::optional<Error> checkAuthorization(const Data& authorizationData, std::uint64_t code,
                                          const std::optional<std::string>& prompt,
                                          const std::optional<std::string>& iconPath,
                                          bool destroyRights, bool isInteractionAllowed = true,
                                          const std::stop_token& stop = {}) const;

  /// Deletes the objects at the paths one by one, never with contents; what is no string is
  /// skipped. Nothing, or the error of the last one that could not be deleted; ECANCELED if `stop`
  /// was requested before the last one's turn.
  std::optional<Error> deleteFileSystemObjectsWithPaths(const Array& paths,
                                                        const std::stop_token& stop = {});
  /// Deletes one object; `error` (which may be null) is written on failure only.
  bool enforceRemovalOfFileSystemObjectAtPath(const std::string& path, std::optional<Error>* error);
  /// Removes the daemon from the system and ends it. Returns only with the error that stood in the
  /// way before anything but files was touched.
  std::optional<Error> performUninstallForClientWithPID(std::int32_t pid,
                                                        const std::string& removingObjectsAtPath,
                                                        const std::string& andPath);
  /// Ends the process with status 0, without waiting for requests in progress.
  [[noreturn]] void terminatePrivilegedHelper();

 private:
  ZELPrivilegedHelper() = default;

  /// Log at a fixed priority, and at the current `logLevel`.
  void logAt(int priority, const char* format, ...) const __attribute__((format(printf, 3, 4)));
  void log(const char* format, ...) const __attribute__((format(printf, 2, 3)));

  /// Drops the clients that have ended, once there are `_clientsToLookAt` of them: nothing waits
  /// for these, and the numbers, which are whatever clients send, must not take up memory without
  /// bounds. As the set has to double before it is done again, it costs each registration little.
  void dropEndedClients();

  /// The name of the operation's right; nothing if there is no such operation.
  std::optional<std::string> rightNameForCode(std::uint64_t code) const;

  /// One request on its way through the dispatcher.
  struct Request;
  std::optional<Error> checkArguments(const Request& request) const;
  std::optional<Error> openFeedbackConnection(const Request& request, XPCListenerEndpoint endpoint,
                                              FeedbackConnection& connection) const;
  std::optional<Error> execute(const Request& request, const FeedbackConnection& connection);
  std::optional<Error> executeImplementingMethod(const Request& request,
                                                 const FeedbackConnection& connection);
  void closeFeedbackConnection(XPCConnection& connection) const;
  /// Leaves one entry in the system's log about a request that was refused (no `arguments`) or
  /// authorized, and how it ended; `stop` tells who dismissed a dialog from who cancelled it.
  void audit(std::uint64_t code, const Array* arguments, const std::optional<Error>& error,
             const std::stop_token& stop = {}) const;

  aslclient _aslHandle = nullptr;
  aslmsg _aslMessage = nullptr;
  std::atomic<int> _logLevel = LogPriorityDebug;
  std::unique_ptr<XPCListener> _listener;
  /// Far more than there are programs that use the daemon.
  static constexpr std::size_t clientsToLookAtFirst = 4096;

  ClientSet _clientSet;
  std::size_t _clientsToLookAt = clientsToLookAtFirst;  ///< under the lock of the set
  std::mutex _clientSetLock;
  ZELPrivilegedOperationSet* _operationSet = nullptr;
  RunningRequests _runningRequests;
};

}  // namespace corvane

#endif
