#include "platform/Authorization.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>

#include <unistd.h>

#include "foundation/LocalizedStrings.h"
#include "foundation/NoDestructor.h"
#include "foundation/POSIXError.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/EmbeddedAuthority.h"
#include "platform/linux/authorization/ExternalForm.h"
#include "platform/linux/authorization/polkit/PolkitAuthority.h"
#include "platform/linux/transport/CurrentPeer.h"

namespace corvane {

struct AuthorizationOpaqueRef {
  ProcessIdentity subject;
};

namespace {

// Never destroyed, here and below: requests may still be in them while the process ends.
AuthorizationKeyFile& keyFile() {
  static NoDestructor<AuthorizationKeyFile> file(authorizationKeyDirectory());
  return *file;
}

Authority& authority() {
  static NoDestructor<EmbeddedAuthority> embedded(authorizationRightsDirectory());
  static NoDestructor<PolkitAuthority> polkit(
      PolkitAuthority::Places{systemBusAddress(), polkitActionsDirectory(),
                              discardedAuthorizationsDirectory()},
      [](const std::string& key, const std::string& table) { return translations(key, table); },
      *embedded);
  return *polkit;
}

/// Whether the user whose request this is may use what was issued to the user `owner`.
bool isCallerAllowedFormOf(uid_t owner) {
  const Peer* peer = currentPeer();
  const uid_t caller = peer != nullptr ? peer->uid : ::geteuid();
  return caller == 0 || caller == owner;
}

/// Whether `subject` still runs: mostly it is who the request came from, whom the connection
/// watches.
bool isRunning(const ProcessIdentity& subject) {
  const Peer* peer = currentPeer();
  const WatchedProcess* process = peer != nullptr ? peer->process : nullptr;
  return process != nullptr && process->identity() == subject ? process->isRunning()
                                                              : subject.isRunning();
}

std::span<const AuthorizationItem> itemsOf(const AuthorizationItemSet* set) {
  if (set == nullptr || set->items == nullptr) return {};
  return {set->items, set->count};
}

/// The text of the environment's item `name`, up to its terminating zero; empty if there is none.
std::string textOf(const AuthorizationEnvironment* environment, std::string_view name) {
  for (const AuthorizationItem& item : itemsOf(environment)) {
    if (item.name == nullptr || item.name != name || item.value == nullptr) continue;
    const std::string_view bytes(static_cast<const char*>(item.value), item.valueLength);
    return std::string(bytes.substr(0, bytes.find('\0')));
  }
  return {};
}

std::optional<std::string> ruleOf(const Value& definition) {
  std::string rule;
  if (const std::string* name = definition.string()) rule = *name;
  if (const Dictionary* entries = definition.dictionary())
    rule = entries->text("rule").value_or("");
  return rule.empty() ? std::nullopt : std::optional(rule);
}

OSStatus statusOf(const Result<Decision>& decision) {
  if (!decision) return errAuthorizationInternal;
  switch (*decision) {
    case Decision::Granted:
      return errAuthorizationSuccess;
    case Decision::Denied:
      return errAuthorizationDenied;
    case Decision::Dismissed:
      return errAuthorizationCanceled;
    case Decision::DialogNeeded:
      return errAuthorizationInteractionNotAllowed;
    case Decision::Outdated:
      break;
  }
  return errAuthorizationInvalidRef;
}

/// Why a right cannot be looked up or removed. One that is not there is told as a refusal.
OSStatus statusOfDefinition(const Error& error) {
  return isPOSIXError(error, POSIXErrorCode::NoEntry) ? errAuthorizationDenied
                                                      : errAuthorizationInternal;
}

/// Success if what `authorization` stands for may change rights, which only root may.
OSStatus checkChangeOf(AuthorizationRef authorization, const char* rightName) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  if (rightName == nullptr || !isRightName(rightName)) return errAuthorizationInvalidSet;
  return authorization->subject.uid == 0 ? errAuthorizationSuccess : errAuthorizationDenied;
}

}  // namespace

OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization) {
  if (authorization == nullptr) return errAuthorizationInvalidPointer;
  auto created = std::make_unique<AuthorizationOpaqueRef>(
      AuthorizationOpaqueRef{ProcessIdentity::ofThisProcess()});
  if (rights != nullptr) {
    const OSStatus status =
        AuthorizationCopyRights(created.get(), rights, environment, flags, nullptr);
    if (status != errAuthorizationSuccess) return status;
  }
  *authorization = created.release();
  return errAuthorizationSuccess;
}

OSStatus AuthorizationCreateFromExternalForm(const AuthorizationExternalForm* form,
                                             AuthorizationRef* authorization) {
  if (form == nullptr || authorization == nullptr) return errAuthorizationInvalidPointer;
  const Result<AuthorizationKey> key = keyFile().key();
  if (!key) return errAuthorizationInternal;

  const std::optional<ProcessIdentity> subject = readExternalForm(*form, *key);
  if (!subject || !isCallerAllowedFormOf(subject->uid) || !isRunning(*subject)) {
    return errAuthorizationInvalidRef;
  }
  *authorization = new AuthorizationOpaqueRef{*subject};
  return errAuthorizationSuccess;
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights) {
  return AuthorizationCopyRights(authorization, rights, environment, flags, authorizedRights, {});
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights,
                                 const std::stop_token& stop) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  if (authorizedRights != nullptr) return errAuthorizationInvalidPointer;
  const std::span<const AuthorizationItem> items = itemsOf(rights);
  const bool areAllNames = std::all_of(items.begin(), items.end(), [](const auto& item) {
    return item.name != nullptr && isRightName(item.name);
  });
  if (items.empty() || !areAllNames) return errAuthorizationInvalidSet;

  for (const AuthorizationItem& item : items) {
    const auto decision = authority().decide(
        authorization->subject, {item.name, textOf(environment, AuthorizationEnvironmentPrompt),
                                 textOf(environment, AuthorizationEnvironmentIcon),
                                 (flags & kAuthorizationFlagInteractionAllowed) != 0, stop});
    const OSStatus status = statusOf(decision);
    if (status != errAuthorizationSuccess) return status;
  }
  // A person may have taken a while: nobody is left who could have what was granted.
  return isRunning(authorization->subject) ? errAuthorizationSuccess : errAuthorizationInvalidRef;
}

bool AuthorizationCanShowDialog(AuthorizationRef authorization) {
  return authorization != nullptr && authority().canShowDialog(authorization->subject);
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  const std::unique_ptr<AuthorizationOpaqueRef> owned(authorization);
  if ((flags & kAuthorizationFlagDestroyRights) != 0) authority().revoke(owned->subject);
  return errAuthorizationSuccess;
}

OSStatus AuthorizationRightGet(const char* rightName, std::optional<Value>* definition) {
  if (rightName == nullptr || !isRightName(rightName)) return errAuthorizationDenied;
  const Result<RightDefinition> found = authority().rightGet(rightName);
  if (!found) return statusOfDefinition(found.error());
  if (definition != nullptr) {
    *definition = Dictionary{{"rule", found->rule}, {"description", found->description}};
  }
  return errAuthorizationSuccess;
}

OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* rightName,
                               const Value& definition, const std::string& descriptionKey,
                               const char* localeTableName) {
  if (const OSStatus status = checkChangeOf(authorization, rightName);
      status != errAuthorizationSuccess) {
    return status;
  }
  std::optional<std::string> rule = ruleOf(definition);
  if (!rule) return errAuthorizationInvalidSet;
  const RightDefinition defined{*std::move(rule), descriptionKey,
                                localeTableName == nullptr ? "" : localeTableName};
  return authority().rightSet(rightName, defined) ? errAuthorizationSuccess
                                                  : errAuthorizationInternal;
}

OSStatus AuthorizationRightRemove(AuthorizationRef authorization, const char* rightName) {
  if (const OSStatus status = checkChangeOf(authorization, rightName);
      status != errAuthorizationSuccess) {
    return status;
  }
  const Result<void> removed = authority().rightRemove(rightName);
  return removed ? errAuthorizationSuccess : statusOfDefinition(removed.error());
}

std::vector<RightFault> faultsOfRight(const std::string& rightName, const Value& definition,
                                      const std::string& descriptionKey,
                                      const std::string& localeTableName) {
  return authority().faultsOf(rightName,
                              {ruleOf(definition).value_or(""), descriptionKey, localeTableName});
}

}  // namespace corvane
