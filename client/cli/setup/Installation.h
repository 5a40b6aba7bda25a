#ifndef CORVANE_CLIENT_CLI_SETUP_INSTALLATION_H
#define CORVANE_CLIENT_CLI_SETUP_INSTALLATION_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/cli/output/Report.h"
#include "operations/ZELPrivilegedOperationSet.h"
#include "platform/HelperInstallation.h"

namespace corvane::cli {

/// The operations of the helper that came with this program.
const ZELPrivilegedOperationSet& catalogue();

/// Its installation.
std::unique_ptr<HelperInstallation> ownInstallation();

/// Keeps others from changing the installation while it is there; tells whom it waits for.
Result<void> lockInstallation(HelperInstallation& installation);

/// One line, and one element of a JSON result: what became of one object.
struct Change {
  std::string name;
  const char* state;
};
/// Tells the changes, and in the end `conclusion`; as JSON the error if there is one beside them.
void tellChanges(const Context& context, const std::vector<Change>& changes,
                 const std::string& conclusion, const std::optional<Error>& error = std::nullopt);
/// Tells `conclusion` alone; as JSON the error, or that there is none.
void tellConclusion(const Context& context, const std::string& conclusion,
                    const std::optional<Error>& error = std::nullopt);

/// Nothing for root; for anybody else the status to exit with, after telling how to become root.
std::optional<int> requireRoot(const Context& context, Action action, const char* command);

}  // namespace corvane::cli

#endif
