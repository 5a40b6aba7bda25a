#include <algorithm>
#include <charconv>
#include <filesystem>

#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/OutputWriter.h"
#include "client/cli/output/Prompt.h"
#include "client/cli/output/Translation.h"
#include "foundation/POSIXError.h"
#include "operations/ErrorTemplateKeys.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane::cli {

namespace {

constexpr int greatestStatus = 255;

// Why part of the output is missing, if it is.
std::optional<Error> lossOf(const Answer<Outcome>& outcome, int writeFailure) {
  if (writeFailure != 0) return posixErrorFromHost(writeFailure);
  if (outcome && outcome->hasLostFeedback) return Error(clientErrorDomain, outputIncomplete);
  return std::nullopt;
}

bool isKnown(const std::string& utility) {
  const auto names = ZELPrivilegedOperationSetVNT::utilityNames();
  return std::find(names.begin(), names.end(), utility) != names.end();
}

std::string listOf(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list;
}

// Why the helper knows no path for the utility, where it said no more than that.
Error reasonOf(const Error& error, const std::string& utility) {
  if (!isPOSIXError(error, POSIXErrorCode::Invalid)) return error;
  if (isKnown(utility)) return {clientErrorDomain, noUtilityInBundle};
  const std::string known =
      translated(knownUtilitiesText, listOf(ZELPrivilegedOperationSetVNT::utilityNames()));
  return {clientErrorDomain, noSuchUtility,
          Dictionary{{NSLocalizedRecoverySuggestionErrorKey, known}}};
}

// The status that the utility has ended with; nothing if it was not started, or has none.
std::optional<int> statusOfUtility(const Error& error) {
  if (!error.is(ZELPrivilegedOperationSetVNT::errorDomain(), failedRunError.code)) {
    return std::nullopt;
  }
  const Value* parameters = error.userInfo().find(ZELLocalizedRecoverySuggestionParametersKey);
  const Array* list = parameters != nullptr ? parameters->array() : nullptr;
  const std::string* text = list != nullptr && !list->empty() ? list->front().string() : nullptr;
  if (text == nullptr) return std::nullopt;
  int status = 0;
  const auto [end, failure] = std::from_chars(text->data(), text->data() + text->size(), status);
  const bool isStatus = failure == std::errc() && end == text->data() + text->size() &&
                        status > 0 && status <= greatestStatus;
  return isStatus ? std::optional(status) : std::nullopt;
}

// What the command ends with where it would end with `status`, as shells have it: the utility's own
// status, or one that says that it was not run.
int statusFor(const Error& error, int status) {
  if (const auto own = statusOfUtility(error)) return *own;
  if (status == ExitNotAuthorized) return ExitUtilityRefused;
  if (error.is(clientErrorDomain, noSuchUtility) ||
      error.is(clientErrorDomain, noUtilityInBundle) ||
      error.is(ZELPrivilegedOperationSetVNT::errorDomain(), missingUtilityError.code)) {
    return ExitUtilityNotFound;
  }
  const bool isUnsafe =
      error.is(ZELPrivilegedOperationSetVNT::errorDomain(), unsafeUtilityError.code);
  return isUnsafe ? static_cast<int>(ExitUtilityRefused) : status;
}

}  // namespace

int executeUtility(const Context& context, const std::string& application,
                   const std::string& utility, const std::vector<std::string>& arguments) {
  OutputWriter writer;
  PrivilegedHelperClient::Feedback feedback;
  feedback.output = [&](const Data& chunk) {
    // With --json there is one object on standard output and nothing else.
    writer.write(context.isJSON ? STDERR_FILENO : STDOUT_FILENO, chunk);
  };
  feedback.errorOutput = [&](const Data& chunk) { writer.write(STDERR_FILENO, chunk); };
  // Absolute, as the helper's working folder is another; but an empty path stays empty, so that the
  // helper refuses it.
  const std::string bundle =
      application.empty() ? application : std::filesystem::absolute(application).string();
  auto outcome =
      PrivilegedHelperClient(asking(context, promptToRun(utility, arguments)))
          .executeUtility(bundle, utility, arguments,
                          context.isWithoutFeedback ? std::nullopt : std::optional(feedback));
  const std::optional<Error> loss = lossOf(outcome, writer.finish());
  // With --json only one object may be printed: a failure of the utility comes before lost output.
  const bool isSuccess = outcome && outcome->isSuccess();
  if (loss && (isSuccess || !context.isJSON)) {
    const int status = report(context, Action::PassOnOutput, utility,
                              Outcome{.error = loss, .wasAuthorized = true});
    if (isSuccess) return status;
  }
  const bool isError = outcome && outcome->error;
  if (isError) outcome->error = reasonOf(*outcome->error, utility);
  const int status = report(context, Action::Run, utility, outcome);
  return isError ? statusFor(*outcome->error, status) : status;
}

}  // namespace corvane::cli
