#include "client/cli/setup/Installation.h"

#include <chrono>
#include <cstdint>
#include <cstdio>

#include <unistd.h>

#include "client/cli/output/Translation.h"
#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane::cli {

namespace {

constexpr std::size_t stateColumns = 10;
constexpr const char* waitingForText =
    "Waiting for process $1$, which is installing or removing the helper.";
constexpr const char* waitingText =
    "Waiting for another process, which is installing or removing the helper.";

}  // namespace

const ZELPrivilegedOperationSet& catalogue() {
  return ZELPrivilegedOperationSetVNT::privilegedOperationSet();
}

std::unique_ptr<HelperInstallation> ownInstallation() {
  return HelperInstallation::ofHelper(catalogue().serviceIdentifierForHelper(),
                                      HelperInstallation::ownPayload());
}

Result<void> lockInstallation(HelperInstallation& installation) {
  constexpr std::chrono::seconds patience(60);
  return installation.lock(patience, [](std::int32_t holder) {
    const std::string text =
        holder > 0 ? translated(waitingForText, std::to_string(holder)) : translated(waitingText);
    std::fprintf(stderr, "%s\n", text.c_str());
  });
}

void tellChanges(const Context& context, const std::vector<Change>& changes,
                 const std::string& conclusion, const std::optional<Error>& error) {
  if (context.isJSON) {
    nlohmann::ordered_json rows = nlohmann::json::array();
    for (const Change& change : changes) {
      rows.push_back({{"name", change.name}, {"state", change.state}});
    }
    printResult(rows, error);
    return;
  }
  if (!context.isQuiet) {
    for (const Change& change : changes) {
      std::printf("%s %s\n", padded(translated(change.state), stateColumns).c_str(),
                  printable(change.name).c_str());
    }
    std::printf("%s\n", translated(conclusion).c_str());
  }
}

void tellConclusion(const Context& context, const std::string& conclusion,
                    const std::optional<Error>& error) {
  const std::string text = translated(conclusion);
  if (context.isJSON) {
    printResult(text, error);
  } else {
    std::printf("%s\n", printable(text).c_str());
  }
}

std::optional<int> requireRoot(const Context& context, Action action, const char* command) {
  if (::geteuid() == 0) return std::nullopt;
  std::string advice = translated(runAsRootText);
  if (::isatty(STDERR_FILENO) != 0) {
    const std::string line = std::string("privilegerequestor-vnt ") + command;
    const bool hasSudo = ::access("/usr/bin/sudo", X_OK) == 0;
    advice = translated(runLineAsRootText, hasSudo ? "sudo " + line : "su -c '" + line + "'");
  }
  const Error error = posixError(POSIXErrorCode::NotPermitted,
                                 {{NSLocalizedDescriptionKey, translated(needsRootText)},
                                  {NSLocalizedRecoverySuggestionErrorKey, advice}});
  return report(context, action, "", Outcome{.error = error});
}

}  // namespace corvane::cli
