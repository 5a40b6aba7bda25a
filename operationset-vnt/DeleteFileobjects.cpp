#include <utility>

#include "foundation/POSIXError.h"
#include "operations/ObjectLocation.h"
#include "operations/SingleRemoval.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/RecursiveRemoval.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {

namespace {

Error removalError(const OperationErrorText& text, const std::string& path,
                   const std::optional<Error>& underlying = std::nullopt) {
  return operationError(text, Array{path}, path, underlying);
}

bool isRestricted(const ObjectLocation& location) {
  const Result<FileStatus> status = statusOf(location);
  return status && (status->flags & FileFlag::Restricted) != 0;
}

std::optional<Error> removeSingle(const std::string& path) {
  const Result<ObjectLocation> location = locateObject(path);
  if (!location) return location.error();
  const auto failure = removeSingleObject(*location);
  if (!failure) return std::nullopt;
  switch (failure->reason) {
    case SingleRemovalFailure::Reason::Whiteout:
      return removalError(whiteoutError, path);
    case SingleRemovalFailure::Reason::FlagsKept:
      return removalError(flagsError, path);
    case SingleRemovalFailure::Reason::SystemFlags:
      return removalError(singleUserModeError, path);
    case SingleRemovalFailure::Reason::System:
      break;
  }
  if (isPOSIXError(*failure->error, POSIXErrorCode::NotPermitted) && isRestricted(*location)) {
    return removalError(integrityProtectionError, path, failure->error);
  }
  return failure->error;
}

std::optional<Error> removeRecursively(const std::string& path, const std::stop_token& stop) {
  const Result<ObjectLocation> location = locateObject(path);
  if (!location) {
    return meansNoObject(location.error()) ? std::nullopt : std::optional(location.error());
  }
  auto error = removeObjectRecursively(*location, stop);
  if (error && isPOSIXError(*error, POSIXErrorCode::Canceled)) return error;
  if (error && isRestricted(*location)) return removalError(integrityProtectionError, path, error);
  return error;
}

std::optional<Error> setImmutableFlagAtPath(bool set, const std::string& path,
                                            bool checkingExistenceOfLinkTarget) {
  const Result<ObjectLocation> location = locateObject(path);
  if (!location) return location.error();
  if (const auto found = statusOf(*location); !found) return found.error();
  const int folder = location->folder.get();
  const char* name = location->name.c_str();
  FileStatus target;
  if (statusOf(folder, name, FinalLink::Follow, target)) {
    if (checkingExistenceOfLinkTarget) return posixError(POSIXErrorCode::NoEntry);
    return std::nullopt;
  }
  return changeImmutableFlag(folder, name, FinalLink::Follow, set);
}

// Writes a failure to `error`, which may be null. Returns whether there was none; then `error`
// keeps what it has.
bool passOn(std::optional<Error> failure, std::optional<Error>* error) {
  if (!failure) return true;
  if (error != nullptr) *error = std::move(failure);
  return false;
}

void sendProgress(const FeedbackConnection& feedbackConnection, double fraction) {
  if (feedbackConnection == nullptr) return;
  feedbackConnection->remoteObjectProxy().processPrivilegedOperationFeedback(
      Dictionary{{ProgressFractionKey, fraction}});
}

// An element of an argument list that is no string is as good as an empty one.
std::string stringIn(const Value& argument) {
  return argument.string() == nullptr ? std::string() : *argument.string();
}

}  // namespace

std::optional<Error> ZELPrivilegedOperationSetVNT::performOperationDeleteFileobjectsWithArguments(
    const Array& arguments, const FeedbackConnection& feedbackConnection,
    const std::stop_token& stop) {
  bool recursive = false;
  bool stopOnFirstError = false;
  if (arguments.size() < 3 || !getBool(recursive, stringIn(arguments[0])) ||
      !getBool(stopOnFirstError, stringIn(arguments[1]))) {
    return posixError(POSIXErrorCode::Invalid);
  }
  return deleteFileSystemObjectsAtPaths(Array(arguments.begin() + 2, arguments.end()), recursive,
                                        stopOnFirstError, feedbackConnection, stop);
}

std::optional<Error> ZELPrivilegedOperationSetVNT::deleteFileSystemObjectsAtPaths(
    const Array& paths, bool recursive, bool stopOnFirstError,
    const FeedbackConnection& feedbackConnection, const std::stop_token& stop) {
  const auto count = static_cast<double>(paths.size());
  std::optional<Error> error;
  double done = 0;
  for (const Value& path : paths) {
    if (stop.stop_requested()) return posixError(POSIXErrorCode::Canceled);
    const bool removed =
        enforceRemovalOfFileSystemObjectAtPath(stringIn(path), recursive, &error, stop);
    if (!removed && stopOnFirstError) return error;
    if (!removed && isPOSIXError(*error, POSIXErrorCode::Canceled)) return error;
    done += 1;
    sendProgress(feedbackConnection, done / count);
  }
  sendProgress(feedbackConnection, 1.0);
  return error;
}

bool ZELPrivilegedOperationSetVNT::enforceRemovalOfFileSystemObjectAtPath(
    const std::string& path, bool recursive, std::optional<Error>* error,
    const std::stop_token& stop) {
  return recursive ? enforceRecursiveRemovalOfFileSystemObjectAtPath(path, error, stop)
                   : enforceSingleRemovalOfFileSystemObjectAtPath(path, error);
}

bool ZELPrivilegedOperationSetVNT::enforceSingleRemovalOfFileSystemObjectAtPath(
    const std::string& path, std::optional<Error>* error) {
  return passOn(removeSingle(path), error);
}

bool ZELPrivilegedOperationSetVNT::enforceRecursiveRemovalOfFileSystemObjectAtPath(
    const std::string& path, std::optional<Error>* error, const std::stop_token& stop) {
  return passOn(removeRecursively(path, stop), error);
}

bool ZELPrivilegedOperationSetVNT::setImmutableFlag(bool set, const std::string& path,
                                                    bool checkingExistenceOfLinkTarget,
                                                    std::optional<Error>* error) {
  return passOn(setImmutableFlagAtPath(set, path, checkingExistenceOfLinkTarget), error);
}

bool ZELPrivilegedOperationSetVNT::isSIPRestrictedObjectAtPath(const std::string& path,
                                                               std::optional<Error>* error) {
  // Every system that this runs on is recent enough to know the flag.
  const Result<ObjectLocation> location = locateObject(path);
  if (!location || !isRestricted(*location)) return false;
  if (error != nullptr) *error = removalError(integrityProtectionError, path, *error);
  return true;
}

bool ZELPrivilegedOperationSetVNT::getBool(bool& value, std::string_view argument) {
  if (argument != "0" && argument != "1") return false;
  value = argument == "1";
  return true;
}

}  // namespace corvane
