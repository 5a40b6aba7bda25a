#include <algorithm>
#include <chrono>
#include <thread>

#include "foundation/Atomic.h"
#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
#include "operations/OperationCodes.h"
#include "platform/AuditLog.h"
#include "platform/CurrentClient.h"
#include "privilegedhelper-vnt/RequestControl.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

namespace corvane {

namespace {

using Code = unsigned long long;  // as the log formats take it

// How long the last message may take to arrive before its connection is taken down.
constexpr std::chrono::microseconds finalMessagePause{250000};

// Takes the metadata off an argument list that begins with the marker and a dictionary.
std::optional<Dictionary> takeMetadata(Array& arguments) {
  if (arguments.size() < 2) return std::nullopt;
  const std::string* marker = arguments[0].string();
  auto* dictionary = arguments[1].as<Dictionary>();
  if (marker == nullptr || *marker != MetadataMarker || dictionary == nullptr) return std::nullopt;
  std::optional<Dictionary> metadata = std::move(*dictionary);
  arguments.erase(arguments.begin(), arguments.begin() + 2);
  return metadata;
}

bool isTypeCode(char code) {
  return code == 'S' || code == 'N' || code == 'D';
}

bool hasType(const Value& value, char code) {
  switch (code) {
    case 'S':
      return value.string() != nullptr;
    case 'N':
      return value.number() != nullptr;
    default:
      return value.data() != nullptr;
  }
}

const char* orNil(const std::string& text) {
  return text.empty() ? "<nil>" : text.c_str();
}

}  // namespace

struct ZELPrivilegedHelper::Request {
  std::uint64_t code;
  const std::string& identifier;
  const ZELPrivilegedOperation& operation;
  const Array& arguments;
  std::stop_token stop;

  bool hasFeedback() const {
    return operation.isSupportingProgressFeedback() || operation.isSupportingLiveOutput();
  }
};

void ZELPrivilegedHelper::performPrivilegedOperation(
    std::uint64_t code, const Data& authorizationData,
    std::optional<XPCListenerEndpoint> feedbackEndpoint, std::optional<Array> arguments,
    const OperationReply& reply) {
  const std::string* identifier = operationSet()->identifierForCode(code);
  if (!arguments || identifier == nullptr || identifier->empty()) {
    logAt(LogPriorityError, "Received invalid operation with code %llu argument list %p.",
          Code{code}, static_cast<const void*>(arguments ? &*arguments : nullptr));
    return reply(posixError(POSIXErrorCode::Invalid));
  }
  log("About to perform privileged operation '%s' with %llu arguments.", identifier->c_str(),
      Code{arguments->size()});

  std::optional<std::string> prompt;
  std::optional<std::string> iconPath;
  std::optional<RequestControl> control = RequestControl();
  if (const auto metadata = takeMetadata(*arguments)) {
    log("Actual number of arguments is %llu. %llu additional metadata entries have been "
        "transferred.",
        Code{arguments->size()}, Code{metadata->size()});
    processMetadataDictionary(*metadata, &prompt, &iconPath);
    control = readRequestControl(*metadata);
  }
  if (!control) {
    logAt(LogPriorityError, "Operation %s was rejected because its metadata are invalid.",
          identifier->c_str());
    return reply(posixError(POSIXErrorCode::Invalid));
  }
  std::optional<RunningRequests::Entry> running;
  if (control->token) running.emplace(_runningRequests, userOfCurrentClient(), *control->token);
  const std::stop_token stop = running ? running->stop() : std::stop_token();
  const auto end = [&](const Array* authorizedArguments, const std::optional<Error>& error) {
    // Who has the answer can cancel nothing more.
    running.reset();
    audit(code, authorizedArguments, error, stop);
    reply(error);
  };

  // Nothing of the arguments is looked at before this: a malformed request is authorized too.
  if (const auto error =
          checkAuthorization(authorizationData, code, prompt, iconPath, code == codeDiscardAuth,
                             control->isInteractionAllowed, stop)) {
    log("Operation could not be authorized, rejected with error code %lld.",
        static_cast<long long>(error->code()));
    return end(nullptr, error);
  }

  // What has been authorized has a right, and so a description.
  const ZELPrivilegedOperation& operation = *operationSet()->operationWithIdentifier(*identifier);
  const Request request{code, *identifier, operation, *arguments, stop};
  if (const auto error = checkArguments(request)) return end(&*arguments, error);

  FeedbackConnection connection;
  if (feedbackEndpoint && request.hasFeedback()) {
    if (const auto error =
            openFeedbackConnection(request, *std::move(feedbackEndpoint), connection)) {
      return end(&*arguments, error);
    }
  }
  const std::optional<Error> result = execute(request, connection);
  if (connection != nullptr) closeFeedbackConnection(*connection);
  log("Operation %s was completed with return code %lld.", identifier->c_str(),
      static_cast<long long>(result ? result->code() : 0));
  end(&*arguments, result);
}

void ZELPrivilegedHelper::audit(std::uint64_t code, const Array* arguments,
                                const std::optional<Error>& error,
                                const std::stop_token& stop) const {
  const bool isWithoutEffect = code == codeNop || code == codeDiscardAuth;
  if (arguments != nullptr && isWithoutEffect) return;
  const std::string& identifier = *operationSet()->identifierForCode(code);
  const bool isCanceled = error && isPOSIXError(*error, POSIXErrorCode::Canceled);
  AuditEntry entry{
      identifier,
      operationSet()->authorizationRightNameForOperationWithIdentifier(identifier).value_or(""),
      AuditOutcome::Done, error, std::nullopt};
  if (arguments != nullptr) {
    if (error) entry.outcome = AuditOutcome::Failed;
    entry.arguments = operationSet()->loggableArguments(code, *arguments);
  } else {
    entry.outcome = isCanceled ? AuditOutcome::Dismissed : AuditOutcome::Refused;
  }
  if (isCanceled && stop.stop_requested()) entry.outcome = AuditOutcome::Cancelled;
  logAuditEntry(_aslHandle, entry);
}

std::optional<Error> ZELPrivilegedHelper::checkArguments(const Request& request) const {
  const char* identifier = request.identifier.c_str();
  const std::uint64_t count = request.operation.argumentCount();
  const Error invalid = posixError(POSIXErrorCode::Invalid);

  if (count == ZELVariableArgumentCount) {
    const auto other =
        std::find_if(request.arguments.begin(), request.arguments.end(),
                     [](const Value& argument) { return argument.string() == nullptr; });
    if (other == request.arguments.end()) return std::nullopt;
    logAt(LogPriorityError,
          "Operation %s was rejected because at least one argument has class %s (string expected).",
          identifier, other->className());
    return invalid;
  }

  if (request.arguments.size() != count) {
    logAt(LogPriorityError,
          "Operation %s was rejected because an invalid number of arguments was specified (%llu "
          "expected, %llu sent).",
          identifier, Code{count}, Code{request.arguments.size()});
    return invalid;
  }
  const std::string types = request.operation.argumentTypeCodes().value_or("");
  if (types.size() != count) {
    logAt(LogPriorityError,
          "Operation %s was rejected because a contradiction in its definition has been detected "
          "(bad type codes).",
          identifier);
    return invalid;
  }
  for (std::size_t i = 0; i < types.size(); ++i) {
    if (!isTypeCode(types[i])) {
      logAt(LogPriorityError,
            "Operation %s was rejected because a contradiction in its definition has been detected "
            "(invalid type code '%c').",
            identifier, types[i]);
      return invalid;
    }
    if (!hasType(request.arguments[i], types[i])) {
      logAt(LogPriorityError,
            "Operation %s was rejected because argument %llu has class %s (expected type '%c').",
            identifier, Code{i}, request.arguments[i].className(), types[i]);
      return invalid;
    }
  }
  return std::nullopt;
}

std::optional<Error> ZELPrivilegedHelper::openFeedbackConnection(
    const Request& request, XPCListenerEndpoint endpoint, FeedbackConnection& connection) const {
  log("About to configure feedback protocol.");
  const auto opened = XPCConnection::initWithListenerEndpoint(std::move(endpoint));
  opened->setRemoteObjectInterface(operationSet()->interfaceForFeedbackProtocol());
  opened->resume();

  const bool isProgress = request.operation.isSupportingProgressFeedback();
  const Dictionary opening = isProgress
                                 ? Dictionary{{ProgressFractionKey, 0.0}}
                                 : Dictionary{{OutputDataKey, Data()}, {ErrorDataKey, Data()}};
  log("About to open return connection for feedback (progress option %d).", isProgress ? 1 : 0);

  // Shared, and with a lock: the transport may call the handler from another thread, and after this
  // function has returned.
  const auto slot = std::make_shared<Atomic<std::optional<Error>>>();
  opened->remoteObjectProxyWithErrorHandler([slot](const Error& error) { slot->store(error); })
      ->processPrivilegedOperationFeedback(opening);
  if (std::optional<Error> error = slot->load()) {
    logAt(LogPriorityError,
          "The operation is supporting feedback information, but no return connection could be "
          "opened (%s).",
          error->localizedDescription().c_str());
    return error;
  }
  connection = opened;
  return std::nullopt;
}

std::optional<Error> ZELPrivilegedHelper::execute(const Request& request,
                                                  const FeedbackConnection& connection) {
  if (request.stop.stop_requested()) return posixError(POSIXErrorCode::Canceled);
  switch (request.code) {
    case codeNop:
    case codeDiscardAuth:
      return std::nullopt;
    case codeDeleteFiles:
      return deleteFileSystemObjectsWithPaths(request.arguments, request.stop);
    case codePrepareUninstall:
      return posixError(POSIXErrorCode::NotImplemented);
    case codePerformUninstall:
      return performUninstallForClientWithPID(request.arguments[0].number()->intValue(),
                                              *request.arguments[1].string(),
                                              *request.arguments[2].string());
    default:
      return executeImplementingMethod(request, connection);
  }
}

std::optional<Error> ZELPrivilegedHelper::executeImplementingMethod(
    const Request& request, const FeedbackConnection& connection) {
  const char* identifier = request.identifier.c_str();
  const auto selector = operationSet()->selectorForExecutionOfPrivilegedOperationWithCode(
      request.code, request.hasFeedback());
  if (!selector || !operationSet()->respondsToSelector(*selector)) {
    logAt(LogPriorityError,
          "Privileged operation %s could not be performed because no implementation found.",
          identifier);
    return posixError(POSIXErrorCode::NotImplemented);
  }
  log("Operation %s will be executed with feedback option %s.", identifier,
      connection != nullptr ? "enabled" : "disabled");

  std::string name;
  std::string reason;
  try {
    return operationSet()->performSelector(*selector, request.arguments, connection, request.stop);
  } catch (const Exception& exception) {
    name = exception.name();
    reason = exception.reason();
  } catch (const std::exception& exception) {
    name = "std::exception";
    reason = exception.what();
  } catch (...) {
    // What is raised without being an exception has neither name nor reason.
  }
  logAt(LogPriorityError,
        "The exception '%s' occurred while trying to execute the privileged operation: %s",
        orNil(name), orNil(reason));
  return posixError(POSIXErrorCode::Interrupted);
}

void ZELPrivilegedHelper::closeFeedbackConnection(XPCConnection& connection) const {
  log("Sending final feedback message.");
  connection.remoteObjectProxy().processPrivilegedOperationFeedback(
      Dictionary{{FinalFeedbackMessageKey, true}});
  std::this_thread::sleep_for(finalMessagePause);
  log("Suspending feedback connection %p.", static_cast<const void*>(&connection));
  connection.suspend();
  connection.invalidate();
}

}  // namespace corvane
