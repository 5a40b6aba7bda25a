#include "client/cli/Installation.h"

#include <cstdio>

#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane::cli {

namespace {

ZELPrivilegedOperationSet& operationSet() {
  return ZELPrivilegedOperationSetVNT::privilegedOperationSet();
}

template <typename Change>
std::optional<Error> changeRights(const Change& change) {
  AuthorizationRef authorization = nullptr;
  const OSStatus status =
      AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authorization);
  if (status != errAuthorizationSuccess) return Error(NSOSStatusErrorDomain, status);
  change(authorization);
  AuthorizationFree(authorization, kAuthorizationFlagDefaults);
  return std::nullopt;
}

}  // namespace

std::unique_ptr<HelperInstallation> ownInstallation() {
  return HelperInstallation::ofHelper(operationSet().serviceIdentifierForHelper(),
                                      HelperInstallation::ownPayload());
}

Rights examineRights() {
  Rights rights;
  operationSet().enumerateRightDefinitionsUsingBlock(
      [&](const std::optional<std::string>& name, const Value&, const std::string&) {
        const std::string right = name.value_or("");
        switch (AuthorizationRightGet(right.c_str(), nullptr)) {
          case errAuthorizationSuccess:
            return rights.registered.push_back(right);
          case errAuthorizationDenied:
            return rights.missing.push_back(right);
          default:
            return rights.unknown.push_back(right);
        }
      });
  return rights;
}

std::optional<Error> registerRights() {
  return changeRights([](AuthorizationRef authorization) {
    operationSet().setAuthorizationRightsForImplementedOperationsUsingAuthorization(authorization);
  });
}

std::optional<Error> removeRights() {
  return changeRights([](AuthorizationRef authorization) {
    operationSet().removeAuthorizationRightsForImplementedOperationsUsingAuthorization(
        authorization);
  });
}

std::optional<Error> removeRights(const std::vector<std::string>& names) {
  return changeRights([&names](AuthorizationRef authorization) {
    for (const std::string& name : names) AuthorizationRightRemove(authorization, name.c_str());
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

std::optional<int> requireRoot(const Context& context, const char* command) {
  if (::geteuid() == 0) return std::nullopt;
  std::string advice = "Run the command as root.";
  if (::isatty(STDERR_FILENO) != 0) {
    const std::string line = std::string("privilegerequestor-vnt ") + command;
    advice = ::access("/usr/bin/sudo", X_OK) == 0 ? "Run it as root: sudo " + line
                                                  : "Run it as root: su -c '" + line + "'";
  }
  const Error error(NSPOSIXErrorDomain, static_cast<std::int64_t>(POSIXErrorCode::NotPermitted),
                    {{std::string(NSLocalizedDescriptionKey), "this needs root"},
                     {std::string(NSLocalizedRecoverySuggestionErrorKey), advice}});
  return report(context, command, {std::nullopt, error});
}

SignalsHeldBack::SignalsHeldBack() : _before() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM}) sigaddset(&ending, signal);
  ::pthread_sigmask(SIG_BLOCK, &ending, &_before);
}

SignalsHeldBack::~SignalsHeldBack() {
  ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
}

}  // namespace corvane::cli
