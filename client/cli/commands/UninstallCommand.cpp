#include <algorithm>
#include <cstdio>

#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/Translation.h"
#include "client/cli/setup/EndingSignals.h"
#include "client/cli/setup/Installation.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "operations/Rights.h"
#include "platform/ConnectedProcesses.h"

namespace corvane::cli {

namespace {

using Names = std::vector<std::string>;

Names whatIsThere(const HelperInstallation& installation) {
  Names names = installation.leftovers();
  const Rights rights = examineRights(catalogue());
  for (const Names& there : {rights.registered, rights.unknown}) {
    names.insert(names.end(), there.begin(), there.end());
  }
  return names;
}

constexpr const char* forceAdvice =
    "'uninstall --force' ends the helper, whoever works with it, and removes it without its help.";

Error explained(const Error& error, const std::string& description, const std::string& advice) {
  return Error(error.domain(), error.code(),
               {{NSLocalizedDescriptionKey, description},
                {NSLocalizedRecoverySuggestionErrorKey,
                 translated(advice) + " " + translated(forceAdvice)}});
}

constexpr const char* clientText = "'$1$' of user $2$ with process id $3$";

// Who is connected to the helper, for a person to read. The helper itself refuses without saying
// whose clients keep it, so the system is asked.
std::string otherClients(const std::string& socketPath) {
  const auto processes = processesConnectedTo(socketPath);
  if (!processes) return "one of which the system does not tell";
  std::string clients;
  for (const ConnectedProcess& process : *processes) {
    clients +=
        (clients.empty() ? "" : ", ") +
        translated(clientText, Array{process.name, process.user, std::to_string(process.pid)});
  }
  return clients.empty() ? "one that is not connected to it at the moment" : clients;
}

// What the helper's refusals mean here: their numbers alone do not say it.
Error explained(const Error& error, const PrivilegedHelperClient& client) {
  if (isPOSIXError(error, POSIXErrorCode::Busy)) {
    return explained(
        error,
        "another client is still working with the helper: " + otherClients(client.helperAddress()),
        "Wait until it is done, or end it, and try again. Nothing was removed.");
  }
  const std::optional<std::string> path = error.userInfo().text(NSFilePathErrorKey);
  if (isPOSIXError(error, POSIXErrorCode::Access) && path) {
    const bool isThere = ::access(path->c_str(), F_OK) == 0;
    return explained(
        error,
        *path + (isThere ? " is not safe to run: others than root can change it" : " is missing"),
        "Run 'install' to repair it, and try again. Nothing was removed.");
  }
  if (isPOSIXError(error, POSIXErrorCode::InputOutput)) {
    return explained(error, "a file of the helper is protected by a flag of the system",
                     "Take the flag off and try again.");
  }
  return explained(error, descriptionOf(error), suggestionFor(error, Action::Uninstall, true));
}

// Has the helper remove itself. One that cannot be reached has no clients and is removed from here.
std::optional<Answer<Outcome>> haveHelperRemoveItself(const Context& context,
                                                      const HelperInstallation& installation) {
  PrivilegedHelperClient client(context.client);
  const auto connected = client.connect();
  if (!connected && connected.error().kind == CommunicationFailure::Kind::Refused) {
    return std::nullopt;
  }
  auto outcome = connected
                     ? client.performUninstall(installation.programPath(), installation.jobPath())
                     : connected.error();
  if (!outcome) {
    const CommunicationFailure& failure = outcome.error();
    return CommunicationFailure{failure.kind,
                                descriptionOf(failure) + ". " + translated(forceAdvice)};
  }
  if (outcome->error) outcome->error = explained(*outcome->error, client);
  return outcome;
}

// The refusal to remove files that dpkg keeps account of.
Error leftToPackage(const std::string& package) {
  return posixError(
      POSIXErrorCode::NotSupported,
      {{NSLocalizedDescriptionKey, "it belongs to the package " + package},
       {NSLocalizedRecoverySuggestionErrorKey, "Remove the package: apt remove " + package}});
}

int tellWhatIsLeft(const Context& context, const Names& before, const Names& after) {
  std::vector<Change> changes;
  const auto isLeft = [&after](const std::string& name) {
    return std::find(after.begin(), after.end(), name) != after.end();
  };
  for (const std::string& name : before) {
    changes.push_back({name, isLeft(name) ? "LEFT" : "removed"});
  }
  if (after.empty()) {
    tellChanges(context, changes, "Nothing is left of the helper.");
  } else {
    tellChanges(context, changes, "What is left is marked above.",
                Error(clientErrorDomain, partsLeft));
  }
  return after.empty() ? ExitDone : ExitFailed;
}

// Why the helper did not remove itself; nothing if it did.
std::optional<std::string> refusalOf(PrivilegedHelperClient& client,
                                     const HelperInstallation& installation) {
  const auto outcome = client.performUninstall(installation.programPath(), installation.jobPath());
  if (!outcome) return descriptionOf(outcome.error());
  if (outcome->error) return descriptionOf(explained(*outcome->error, client));
  // That the connection was lost may have other reasons.
  if (::access(installation.programPath().c_str(), F_OK) == 0) return "it ended halfway";
  return std::nullopt;
}

}  // namespace

int uninstallForPackage(const Context& context) {
  if (const auto status = requireRoot(context, Action::Uninstall, "uninstall")) return *status;
  const auto installation = ownInstallation();
  if (!installation->package()) {
    return reportUsage(context, translated("The helper belongs to no package. Run 'uninstall'."));
  }
  PrivilegedHelperClient client(context.client);
  const auto refusal = refusalOf(client, *installation);
  if (refusal) {
    tellConclusion(context, "The helper is removed without its help: " + *refusal,
                   Error(clientErrorDomain, partsLeft));
    return ExitFailed;
  }
  tellConclusion(context, "The helper has removed itself.");
  return ExitDone;
}

int uninstall(const Context& context, bool isForced) {
  if (const auto status = requireRoot(context, Action::Uninstall, "uninstall")) return *status;
  const auto installation = ownInstallation();
  const auto tell = [&context](const Error& error) {
    return report(context, Action::Uninstall, "", Outcome{.error = error});
  };
  if (const auto package = installation->package()) return tell(leftToPackage(*package));
  const auto locked = lockInstallation(*installation);
  if (!locked) return tell(locked.error());
  const SignalsHeldBack heldBack;
  const Names before = whatIsThere(*installation);
  if (before.empty()) {
    tellChanges(context, {}, "The helper is not installed. Nothing was changed.");
    return ExitDone;
  }

  const auto outcome = haveHelperRemoveItself(context, *installation);
  const bool isRemovedByItself = outcome && *outcome && (*outcome)->isSuccess();
  if (outcome && !isRemovedByItself && !isForced) {
    return report(context, Action::Uninstall, "", *outcome);
  }
  if (!context.isJSON && !context.isQuiet) {
    tellConclusion(context,
                   isRemovedByItself ? "The helper ended the connection: it has removed itself."
                   : outcome ? "The helper does not remove itself. It is removed without its help."
                             : "The helper cannot be reached. It is removed without its help.");
  }
  installation->remove();
  // What stays of them is told below.
  (void)removeRights(catalogue());
  return tellWhatIsLeft(context, before, whatIsThere(*installation));
}

}  // namespace corvane::cli
