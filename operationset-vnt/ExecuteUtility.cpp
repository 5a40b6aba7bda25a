#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/Bundle.h"
#include "foundation/POSIXError.h"
#include "foundation/Path.h"
#include "operations/OutputForwarder.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/ChildEnvironment.h"
#include "process/ProgramRun.h"
#include "process/ZELTaskExecutor.h"

namespace corvane {

namespace {

// The utilities that may be run, each known by the last component of its path.
constexpr auto trustedUtilities = std::to_array<std::string_view>({"/bin/launchctl"});
// The one that is found beside the executable of the client application.
constexpr const char* applicationUtility = "lipo";

bool isFile(const std::string& path) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path, ignored);
  return std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

}  // namespace

std::optional<Error> ZELPrivilegedOperationSetVNT::performOperationExecuteUtilityWithArguments(
    const Array& arguments, const FeedbackConnection& feedbackConnection,
    const std::stop_token& stop) {
  const bool areStrings = std::all_of(arguments.begin(), arguments.end(),
                                      [](const Value& value) { return value.string(); });
  if (arguments.size() < 2 || !areStrings) return posixError(POSIXErrorCode::Invalid);

  const std::string& utilityName = *arguments[1].string();
  bool isExternal = true;
  bool needsSafePath = false;
  const auto path = trustedPathForApplicationPath(*arguments[0].string(), utilityName, &isExternal,
                                                  &needsSafePath);
  if (!path) return posixError(POSIXErrorCode::Invalid);
  if (!isFile(*path)) {
    return operationError(missingUtilityError, Array{utilityName, *path}, *path);
  }

  std::vector<std::string> utilityArguments;
  utilityArguments.reserve(arguments.size() - 2);
  for (auto argument = arguments.begin() + 2; argument != arguments.end(); ++argument) {
    utilityArguments.push_back(*argument->string());
  }
  return executeTrusted(!isExternal, *path, utilityArguments, needsSafePath, feedbackConnection,
                        stop);
}

std::vector<std::string> ZELPrivilegedOperationSetVNT::utilityNames() {
  std::vector<std::string> names;
  names.reserve(trustedUtilities.size() + 1);
  for (const std::string_view path : trustedUtilities) {
    names.push_back(lastPathComponent(std::string(path)));
  }
  names.emplace_back(applicationUtility);
  return names;
}

std::optional<std::string> ZELPrivilegedOperationSetVNT::trustedPathForApplicationPath(
    const std::string& applicationPath, const std::string& utilityName, bool* isExternal,
    bool* needsSafePathEnvironment) {
  if (applicationPath.empty() || utilityName.empty()) return std::nullopt;

  std::optional<std::string> path;
  const bool isPartOfApplication = utilityName == applicationUtility;
  if (isPartOfApplication) {
    const auto bundle = Bundle::bundleWithPath(applicationPath);
    const auto executable = bundle ? bundle->executablePath() : std::nullopt;
    if (executable) path = deletingLastPathComponent(*executable) + "/" + utilityName;
  } else {
    const auto* const utility = std::find_if(
        trustedUtilities.begin(), trustedUtilities.end(),
        [&](std::string_view known) { return lastPathComponent(known) == utilityName; });
    if (utility != trustedUtilities.end()) path = *utility;
  }
  if (isExternal != nullptr) *isExternal = !isPartOfApplication;
  if (needsSafePathEnvironment != nullptr) *needsSafePathEnvironment = utilityName == "periodic";
  return path;
}

std::optional<Error> ZELPrivilegedOperationSetVNT::executeTrusted(
    bool trusted, const std::string& systemProgramAtPath,
    const std::vector<std::string>& withArguments, bool safePathEnvironment,
    const FeedbackConnection& forwardingOutputToConnection, const std::stop_token& stop) {
  if (!trusted && !ZELTaskExecutor::hasExecutableSafePermissionsAtPath(systemProgramAtPath)) {
    return operationError(unsafeUtilityError, Array{systemProgramAtPath}, systemProgramAtPath);
  }
  if (safePathEnvironment) {
    ChildEnvironment::set("PATH", safePath);
  } else {
    ChildEnvironment::remove("PATH");
  }

  setOutputConnection(forwardingOutputToConnection);
  const auto forwarder = std::make_shared<OutputForwarder>(forwardingOutputToConnection);
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(forwarder);
  const ProgramEnd end = runProgram(*executor, systemProgramAtPath, withArguments, stop);
  if (end.isInterrupted) return posixError(POSIXErrorCode::Canceled);
  if (end.status != 0) return operationError(failedRunError, Array{std::to_string(end.status)});
  setOutputConnection(nullptr);
  return std::nullopt;
}

void ZELPrivilegedOperationSetVNT::receiveTaskOutput(std::optional<Data> chunk,
                                                     std::optional<Number> isError) {
  OutputForwarder(outputConnection()).receiveTaskOutput(std::move(chunk), isError);
}

}  // namespace corvane
