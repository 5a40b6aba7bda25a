#include <algorithm>
#include <cstdio>

#include "client/cli/Commands.h"
#include "client/cli/Installation.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/ConnectedProcesses.h"

namespace corvane::cli {

namespace {

using Names = std::vector<std::string>;

constexpr const char* action = "uninstall the helper";

Names whatIsThere(const HelperInstallation& installation) {
  Names names = installation.leftovers();
  const Names rights = examineRights().registered;
  names.insert(names.end(), rights.begin(), rights.end());
  return names;
}

// The helper only says that another client is working with it.
Error busyError(const std::string& socketPath) {
  std::string clients;
  for (const ConnectedProcess& process : processesConnectedTo(socketPath)) {
    clients += (clients.empty() ? "" : ", ") + ("'" + process.name + "' with process id ") +
               std::to_string(process.pid);
  }
  const std::string who =
      clients.empty() ? "A process that is not connected to it at the moment" : clients;
  return Error(NSPOSIXErrorDomain, static_cast<std::int64_t>(POSIXErrorCode::Busy),
               {{std::string(NSLocalizedDescriptionKey),
                 "another client is still working with the helper: " + who},
                {std::string(NSLocalizedRecoverySuggestionErrorKey),
                 "Wait until it is done, or end it, and try again. Nothing was removed."}});
}

// Has the helper remove itself. One that cannot be reached has no clients and is removed from here.
std::optional<PrivilegedHelperClient::Outcome> haveHelperRemoveItself(
    const Context& context, const HelperInstallation& installation) {
  PrivilegedHelperClient client(context.client);
  auto outcome = client.performUninstall(installation.programPath(), installation.jobPath());
  if (outcome.failure && outcome.failure->kind == CommunicationFailure::Kind::Refused) {
    return std::nullopt;
  }
  if (outcome.error && isPOSIXError(*outcome.error, POSIXErrorCode::Busy)) {
    outcome.error = busyError(client.helperSocketPath());
  }
  return outcome;
}

int tellWhatIsLeft(const Context& context, const Names& before, const Names& after) {
  std::vector<Change> changes;
  const auto isLeft = [&after](const std::string& name) {
    return std::find(after.begin(), after.end(), name) != after.end();
  };
  for (const std::string& name : before) {
    changes.push_back({name, isLeft(name) ? "LEFT" : "removed"});
  }
  tellChanges(context, changes,
              after.empty() ? "Nothing is left of the helper." : "What is left is marked above.");
  return after.empty() ? ExitDone : ExitFailed;
}

}  // namespace

int uninstall(const Context& context) {
  if (const auto status = requireRoot(context, "uninstall")) return *status;
  const auto installation = ownInstallation();
  const Names before = whatIsThere(*installation);
  if (before.empty()) {
    tellChanges(context, {}, "The helper is not installed. Nothing was changed.");
    return ExitDone;
  }

  const SignalsHeldBack heldBack;
  const auto outcome = haveHelperRemoveItself(context, *installation);
  if (outcome && !outcome->isSuccess()) return report(context, action, *outcome);
  if (!context.isJSON && !context.isQuiet) {
    std::puts(outcome ? "The helper ended the connection: it has removed itself."
                      : "The helper cannot be reached. It is removed without its help.");
  }
  installation->remove();
  removeRights();
  return tellWhatIsLeft(context, before, whatIsThere(*installation));
}

}  // namespace corvane::cli
