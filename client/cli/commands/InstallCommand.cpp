#include <algorithm>

#include "client/cli/commands/Commands.h"
#include "client/cli/setup/EndingSignals.h"
#include "client/cli/setup/Installation.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "operations/Rights.h"

namespace corvane::cli {

namespace {

using State = HelperInstallation::Part::State;
using Fault = HelperInstallation::Fault;

bool contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<Change> changesThatInstallMakes(const std::vector<HelperInstallation::Part>& parts,
                                            const Rights& rights) {
  std::vector<Change> changes;
  for (const auto& part : parts) {
    if (part.state == State::Current) continue;
    changes.push_back({part.name, part.state == State::Missing ? "added" : "replaced"});
  }
  for (const std::string& right : rights.missing) changes.push_back({right, "added"});
  std::string last;
  for (const RightFault& fault : faultsOfRights(catalogue())) {
    // One that several objects define is defined once.
    if (contains(rights.missing, fault.right) || fault.right == last) continue;
    changes.push_back({fault.right, "replaced"});
    last = fault.right;
  }
  return changes;
}

Error errorFrom(const std::string& description, const std::string& cure) {
  return posixError(POSIXErrorCode::InputOutput, {{NSLocalizedDescriptionKey, description},
                                                  {NSLocalizedRecoverySuggestionErrorKey, cure}});
}

// Registers the rights that are missing, and anew those that are not as they are to be. If that
// fails for one of them, all that were missing are removed again.
Result<void> registerAllRights(const Rights& before) {
  Result<void> registered = mendRights(catalogue());
  const auto faults = faultsOfRights(catalogue());
  if (registered && !faults.empty()) {
    registered =
        errorFrom("the authorization database did not accept the right " + faults.front().right +
                      ": " + faults.front().path + " " + faults.front().description,
                  "Put that right, and try again.");
  }
  // Where nothing could be changed, there is nothing to be removed.
  if (!registered) (void)removeRights(before.missing);
  return registered;
}

// What is wrong with the installation and is not put right by putting everything in place.
std::optional<Error> whatIsBroken(const HelperInstallation& installation) {
  for (const Fault& fault : installation.faults()) {
    if (fault.kind == Fault::Kind::Broken) return errorFrom(fault.description, fault.cure);
  }
  return std::nullopt;
}

}  // namespace

int install(const Context& context) {
  if (const auto status = requireRoot(context, Action::Install, "install")) return *status;
  const auto installation = ownInstallation();
  const auto tell = [&context](const Error& error) {
    return report(context, Action::Install, "", Outcome{.error = error});
  };
  const auto locked = lockInstallation(*installation);
  if (!locked) return tell(locked.error());
  const SignalsHeldBack heldBack;
  const Rights rights = examineRights(catalogue());
  const auto changes = changesThatInstallMakes(installation->parts(), rights);
  if (changes.empty() && !whatIsBroken(*installation)) {
    installation->keep();
    tellChanges(context, {}, "Everything is in place already. Nothing was changed.");
    return ExitDone;
  }

  Result<void> done = installation->putInPlace();
  if (done) done = registerAllRights(rights);
  if (!done) return tell(done.error());
  installation->keep();
  if (const auto left = whatIsBroken(*installation)) {
    if (!context.isJSON) tellChanges(context, changes, "Everything is in place, but:");
    return tell(*left);
  }
  tellChanges(context, changes, "The helper is installed.");
  return ExitDone;
}

}  // namespace corvane::cli
