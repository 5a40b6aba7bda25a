#include <exception>
#include <utility>

#include "foundation/POSIXError.h"
#include "operations/ObjectLocation.h"
#include "operations/OperationCodes.h"
#include "operations/SingleRemoval.h"
#include "platform/Authorization.h"
#include "platform/ProcessTable.h"
#include "platform/StandardLog.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"
#include "process/NSProcessInfoZELAdditions.h"
#include "process/ZELTaskExecutor.h"

namespace corvane {

namespace {

constexpr const char* launchControl = "/bin/launchctl";

std::optional<Error> removeObject(const std::string& path) {
  const Result<ObjectLocation> location = locateObject(path);
  if (!location) return location.error();
  const auto failure = removeSingleObject(*location);
  if (!failure) return std::nullopt;
  // Whiteouts, system flags and flags that cannot be cleared are all one error here.
  return failure->reason == SingleRemovalFailure::Reason::System
             ? failure->error
             : posixError(POSIXErrorCode::InputOutput);
}

// The two steps that come past the point of no return. Whatever goes wrong in them is logged and
// not raised: the files are gone, so the process has to end.

bool removeRights(const ZELPrivilegedOperationSet& operationSet, AuthorizationRef authorization) {
  try {
    operationSet.removeAuthorizationRightsForImplementedOperationsUsingAuthorization(authorization);
    operationSet.enumerateRightDefinitionsUsingBlock([](const std::optional<std::string>& name,
                                                        const Value&, const std::string&) {
      if (AuthorizationRightGet(name.value_or("").c_str(), nullptr) == errAuthorizationDenied) {
        return;
      }
      NSLog("WARNING: the right definition of '%s' is still there!\n", name.value_or("").c_str());
    });
    return true;
  } catch (const std::exception& exception) {
    NSLog("WARNING: the right definitions were not removed: %s\n", exception.what());
    return false;
  }
}

// The status of launch control; -1 if it cannot be run, as when its start is refused.
std::int32_t removeJob(const ZELPrivilegedOperationSet& operationSet) {
  try {
    return ZELTaskExecutor::init()->executeProgramAtPath(
        launchControl,
        ZELTaskExecutor::Arguments{"remove", operationSet.serviceIdentifierForHelper()});
  } catch (const std::exception&) {
    return -1;
  }
}

}  // namespace

std::optional<Error> ZELPrivilegedHelper::deleteFileSystemObjectsWithPaths(
    const Array& paths, const std::stop_token& stop) {
  std::optional<Error> error;
  for (const Value& path : paths) {
    if (path.string() == nullptr) continue;
    if (stop.stop_requested()) return posixError(POSIXErrorCode::Canceled);
    log("Deleting file system object '%s'.", path.string()->c_str());
    enforceRemovalOfFileSystemObjectAtPath(*path.string(), &error);
  }
  return error;
}

bool ZELPrivilegedHelper::enforceRemovalOfFileSystemObjectAtPath(const std::string& path,
                                                                 std::optional<Error>* error) {
  auto failure = removeObject(path);
  if (!failure) return true;
  if (error != nullptr) *error = std::move(failure);
  return false;
}

std::optional<Error> ZELPrivilegedHelper::performUninstallForClientWithPID(
    std::int32_t pid, const std::string& removingObjectsAtPath, const std::string& andPath) {
  if (removingObjectsAtPath.empty() || andPath.empty()) return posixError(POSIXErrorCode::Invalid);

  ClientSet others;
  {
    const std::lock_guard lock(clientSetLock());
    others = clientSet();
  }
  others.erase(pid);
  for (const std::int32_t other : others) {
    if (hasProcessEnded(other)) continue;
    const auto name = processNameForProcessID(other, nullptr);
    // Without a name it may have ended since; but a name can also be missing for other reasons, so
    // that is asked again.
    if (!name && hasProcessEnded(other)) continue;
    log("Uninstall request from PID %d was rejected because client '%s' with PID %d is still "
        "working with us.",
        pid, name.value_or("?").c_str(), other);
    return posixError(POSIXErrorCode::Busy);
  }

  if (!ZELTaskExecutor::hasExecutableSafePermissionsAtPath(launchControl)) {
    return posixError(POSIXErrorCode::Access, {{NSFilePathErrorKey, launchControl}});
  }
  AuthorizationRef authorization = nullptr;
  const OSStatus status =
      AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authorization);
  if (status != errAuthorizationSuccess) return Error(NSOSStatusErrorDomain, status);
  if (auto error = deleteFileSystemObjectsWithPaths({removingObjectsAtPath, andPath});
      error && error->code() != 0) {
    AuthorizationFree(authorization, kAuthorizationFlagDefaults);
    return error;
  }

  // The point of no return. The lock is never given back: who registers or unregisters from now
  // on waits for the end of the process.
  clientSetLock().lock();
  clientSet().erase(pid);
  log("Processing uninstall request for PID %d. The executable files have been deleted, the point "
      "of no return was passed.",
      pid);
  const Array arguments{pid, removingObjectsAtPath, andPath};
  audit(codePerformUninstall, &arguments, std::nullopt);
  if (removeRights(*operationSet(), authorization)) log("Removed associated right definitions.");
  AuthorizationFree(authorization, kAuthorizationFlagDefaults);
  if (const std::int32_t result = removeJob(*operationSet()); result != 0) {
    log("Removal from Launch Services management failed with error code %d.", result);
  }
  terminatePrivilegedHelper();
}

}  // namespace corvane
