#include "operations/Rights.h"

#include "platform/Authorization.h"

namespace corvane {

namespace {

std::string localizationTable() {
  return ZELPrivilegedOperationSet::nameOfAuthorizationRightLocalizationTable();
}

template <typename Change>
Result<void> changeRights(const Change& change) {
  AuthorizationRef authorization = nullptr;
  const OSStatus status =
      AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authorization);
  if (status != errAuthorizationSuccess) return Error(NSOSStatusErrorDomain, status);
  change(authorization);
  AuthorizationFree(authorization, kAuthorizationFlagDefaults);
  return {};
}

}  // namespace

Registration registrationOf(const std::string& right) {
  switch (AuthorizationRightGet(right.c_str(), nullptr)) {
    case errAuthorizationSuccess:
      return Registration::Yes;
    case errAuthorizationDenied:
      return Registration::No;
    default:
      return Registration::Unknown;
  }
}

Rights examineRights(const ZELPrivilegedOperationSet& set) {
  Rights rights;
  set.enumerateRightDefinitionsUsingBlock(
      [&](const std::optional<std::string>& name, const Value&, const std::string&) {
        const std::string right = name.value_or("");
        switch (registrationOf(right)) {
          case Registration::Yes:
            return rights.registered.push_back(right);
          case Registration::No:
            return rights.missing.push_back(right);
          case Registration::Unknown:
            return rights.unknown.push_back(right);
        }
      });
  return rights;
}

std::vector<RightFault> faultsOfRights(const ZELPrivilegedOperationSet& set) {
  std::vector<RightFault> faults;
  set.enumerateRightDefinitionsUsingBlock([&](const std::optional<std::string>& name,
                                              const Value& rule, const std::string& description) {
    const auto found = faultsOfRight(name.value_or(""), rule, description, localizationTable());
    faults.insert(faults.end(), found.begin(), found.end());
  });
  return faults;
}

Result<void> mendRights(const ZELPrivilegedOperationSet& set) {
  if (auto registered = registerRights(set); !registered) return registered;
  return changeRights([&set](AuthorizationRef authorization) {
    set.enumerateRightDefinitionsUsingBlock([&](const std::optional<std::string>& name,
                                                const Value& rule, const std::string& description) {
      const std::string right = name.value_or("");
      if (faultsOfRight(right, rule, description, localizationTable()).empty()) return;
      AuthorizationRightSet(authorization, right.c_str(), rule, description,
                            localizationTable().c_str());
    });
  });
}

Result<void> registerRights(const ZELPrivilegedOperationSet& set) {
  return changeRights([&set](AuthorizationRef authorization) {
    set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(authorization);
  });
}

Result<void> removeRights(const ZELPrivilegedOperationSet& set) {
  return changeRights([&set](AuthorizationRef authorization) {
    set.removeAuthorizationRightsForImplementedOperationsUsingAuthorization(authorization);
    // The call above looks a right up first, and passes over one that is damaged or that only one
    // of two authorities has. So each is removed once more without being looked up.
    set.enumerateRightDefinitionsUsingBlock(
        [&](const std::optional<std::string>& name, const Value&, const std::string&) {
          AuthorizationRightRemove(authorization, name.value_or("").c_str());
        });
  });
}

Result<void> removeRights(const std::vector<std::string>& names) {
  return changeRights([&names](AuthorizationRef authorization) {
    for (const std::string& name : names) AuthorizationRightRemove(authorization, name.c_str());
  });
}

}  // namespace corvane
