#include <filesystem>

#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/OutputWriter.h"
#include "client/cli/output/Prompt.h"
#include "foundation/POSIXError.h"

namespace corvane::cli {

namespace {

// Why part of the output is missing, if it is.
std::optional<Error> lossOf(const PrivilegedHelperClient::Outcome& outcome, int writeFailure) {
  if (writeFailure != 0) return posixErrorFromHost(writeFailure);
  if (outcome.hasLostFeedback) return Error(clientErrorDomain, outputIncomplete);
  return std::nullopt;
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
  const auto outcome =
      PrivilegedHelperClient(asking(context, promptToRun(utility, arguments)))
          .executeUtility(bundle, utility, arguments,
                          context.isWithoutFeedback ? std::nullopt : std::optional(feedback));
  const std::optional<Error> loss = lossOf(outcome, writer.finish());
  // With --json only one object may be printed: a failure of the utility comes before lost output.
  if (loss && (outcome.isSuccess() || !context.isJSON)) {
    const int status =
        report(context, Action::PassOnOutput, utility, {std::nullopt, loss, false, true});
    if (outcome.isSuccess()) return status;
  }
  return report(context, Action::Run, utility, outcome);
}

}  // namespace corvane::cli
