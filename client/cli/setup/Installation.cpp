#include "client/cli/setup/Installation.h"

#include <chrono>
#include <cstdint>
#include <cstdio>

#include <unistd.h>

#include "client/cli/output/Advice.h"
#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane::cli {

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
    const std::string who = holder > 0 ? "process " + std::to_string(holder) : "another process";
    std::fprintf(stderr, "Waiting for %s, which is installing or removing the helper.\n",
                 who.c_str());
  });
}

void tellChanges(const Context& context, const std::vector<Change>& changes,
                 std::string_view conclusion) {
  if (context.isJSON) {
    nlohmann::ordered_json rows = nlohmann::json::array();
    for (const Change& change : changes) {
      rows.push_back({{"name", change.name}, {"state", change.state}});
    }
    printResult(rows);
    return;
  }
  if (!context.isQuiet) {
    for (const Change& change : changes) {
      std::printf("%-10s %s\n", change.state, printable(change.name).c_str());
    }
    std::printf("%s\n", std::string(conclusion).c_str());
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
