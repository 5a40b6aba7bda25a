#include "operations/OperationRun.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <utility>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
#include "operations/OutputForwarder.h"
#include "platform/ChildEnvironment.h"
#include "process/ProgramRun.h"

namespace corvane {

namespace {

Error errorAbout(POSIXErrorCode code, const std::string& path) {
  return posixError(code, {{NSFilePathErrorKey, path}});
}

}  // namespace

OperationRun::OperationRun(const Array& arguments, FeedbackConnection connection,
                           std::stop_token stop)
    : _arguments(&arguments), _connection(std::move(connection)), _stop(std::move(stop)) {}

Error OperationRun::cancelled() {
  return posixError(POSIXErrorCode::Canceled);
}

Result<std::int32_t> OperationRun::runProgram(const std::string& path,
                                              const std::vector<std::string>& arguments) const {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) {
    return errorAbout(POSIXErrorCode::NoEntry, path);
  }
  if (!ZELTaskExecutor::hasExecutableSafePermissionsAtPath(path)) {
    return errorAbout(POSIXErrorCode::Access, path);
  }
  ChildEnvironment::set("PATH", safePath);
  const auto forwarder = std::make_shared<OutputForwarder>(_output);
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(forwarder);
  try {
    const ProgramEnd end = corvane::runProgram(*executor, path, arguments, _stop);
    if (end.isInterrupted) return cancelled();
    if (end.status < 0) return errorAbout(POSIXErrorCode::InputOutput, path);
    return end.status;
  } catch (const Exception&) {
    return errorAbout(POSIXErrorCode::InputOutput, path);
  }
}

void ProgressRun::reportProgress(double fraction) const {
  if (connection() == nullptr) return;
  // What is no number is no progress either.
  const double part = fraction > 0 ? std::min(fraction, 1.0) : 0.0;
  connection()->remoteObjectProxy().processPrivilegedOperationFeedback(
      {{ProgressFractionKey, part}});
}

OutputRun::OutputRun(const Array& arguments, FeedbackConnection connection, std::stop_token stop)
    : OperationRun(arguments, std::move(connection), std::move(stop)) {
  sendOutputOfPrograms();
}

void OutputRun::write(std::string_view text) const {
  OutputForwarder(connection()).receiveTaskOutput(dataFromString(text), false);
}

void OutputRun::writeError(std::string_view text) const {
  OutputForwarder(connection()).receiveTaskOutput(dataFromString(text), true);
}

}  // namespace corvane
