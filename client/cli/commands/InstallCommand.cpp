#include "client/cli/commands/Commands.h"
#include "client/cli/setup/EndingSignals.h"
#include "client/cli/setup/Installation.h"
#include "client/cli/setup/Rights.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"

namespace corvane::cli {

namespace {

using State = HelperInstallation::Part::State;

std::vector<Change> changesThatInstallMakes(const std::vector<HelperInstallation::Part>& parts,
                                            const Rights& rights) {
  std::vector<Change> changes;
  for (const auto& part : parts) {
    if (part.state == State::Current) continue;
    changes.push_back({part.name, part.state == State::Missing ? "added" : "replaced"});
  }
  for (const std::string& right : rights.missing) changes.push_back({right, "added"});
  return changes;
}

// Registers the rights that are missing. If that fails for one of them, all that it has registered
// are removed again.
std::optional<Error> registerAllRights(const Rights& before) {
  auto error = registerRights();
  const Rights after = examineRights();
  if (!error && !after.missing.empty()) {
    error =
        Error(NSPOSIXErrorDomain, static_cast<std::int64_t>(POSIXErrorCode::InputOutput),
              {{std::string(NSLocalizedDescriptionKey),
                "the authorization database did not accept the right " + after.missing.front()}});
  }
  if (error) removeRights(before.missing);
  return error;
}

}  // namespace

int install(const Context& context) {
  if (const auto status = requireRoot(context, Action::Install, "install")) return *status;
  const auto installation = ownInstallation();
  if (const auto error = lockInstallation(*installation)) {
    return report(context, Action::Install, "", {std::nullopt, error});
  }
  const SignalsHeldBack heldBack;
  const Rights rights = examineRights();
  const auto changes = changesThatInstallMakes(installation->parts(), rights);
  if (changes.empty()) {
    tellChanges(context, {}, "Everything is in place already. Nothing was changed.");
    return ExitDone;
  }

  auto error = installation->putInPlace();
  if (!error) error = registerAllRights(rights);
  if (error) return report(context, Action::Install, "", {std::nullopt, error});
  installation->keep();
  tellChanges(context, changes, "The helper is installed.");
  return ExitDone;
}

}  // namespace corvane::cli
