#ifndef CORVANE_PLATFORM_AUTHORIZATION_H
#define CORVANE_PLATFORM_AUTHORIZATION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "foundation/Value.h"
#include "platform/AuthorizationStatus.h"

namespace corvane {

using AuthorizationFlags = std::uint32_t;
inline constexpr AuthorizationFlags kAuthorizationFlagDefaults = 0;
inline constexpr AuthorizationFlags kAuthorizationFlagInteractionAllowed = 1;
inline constexpr AuthorizationFlags kAuthorizationFlagExtendRights = 2;
inline constexpr AuthorizationFlags kAuthorizationFlagDestroyRights = 8;

// The names of an environment's values.
inline constexpr const char* AuthorizationEnvironmentPrompt = "prompt";
inline constexpr const char* AuthorizationEnvironmentIcon = "icon";

/// One named right, or one named value of an environment. `valueLength` counts the bytes at
/// `value`; for the texts of an environment the terminating zero byte is among them.
struct AuthorizationItem {
  const char* name;
  std::size_t valueLength;
  void* value;
  std::uint32_t flags;
};
struct AuthorizationItemSet {
  std::uint32_t count;
  AuthorizationItem* items;
};
using AuthorizationRights = AuthorizationItemSet;
using AuthorizationEnvironment = AuthorizationItemSet;

inline constexpr std::size_t kAuthorizationExternalFormLength = 32;
/// An authorization on its way between processes. A secret of whoever holds it: never logged.
struct AuthorizationExternalForm {
  std::byte bytes[kAuthorizationExternalFormLength];
};

struct AuthorizationOpaqueRef;
using AuthorizationRef = AuthorizationOpaqueRef*;

// A system that has these services has them with these layouts and signatures, and under these
// names in its libraries: no code of ours stands in between.
static_assert(sizeof(AuthorizationItem) == 32 && offsetof(AuthorizationItem, flags) == 24);
static_assert(sizeof(AuthorizationItemSet) == 16 && offsetof(AuthorizationItemSet, items) == 8);
static_assert(sizeof(AuthorizationExternalForm) == 32);
extern "C" {

/// Makes an authorization of the calling process itself. `rights` and `environment` may be null
/// and `flags` is kAuthorizationFlagDefaults: nothing is asked for. The caller frees
/// `*authorization`.
OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization);

/// Makes an authorization of the process for which `form` was issued. A form that was not issued
/// here, whose process has ended, or that a request of another user brings (root excepted) is
/// refused with errAuthorizationInvalidRef and leaves `*authorization` untouched.
OSStatus AuthorizationCreateFromExternalForm(const AuthorizationExternalForm* form,
                                             AuthorizationRef* authorization);

/// Asks for `rights`. May wait for as long as a person takes to answer a dialog, so many threads
/// may be in it at once, each with an authorization of its own. Success means all are granted.
/// A dialog appears only with kAuthorizationFlagInteractionAllowed. An empty set, or a name that no
/// right can have, is errAuthorizationInvalidSet. `authorizedRights` is null: what was granted is
/// not handed back.
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights);

/// Frees the authorization; with kAuthorizationFlagDestroyRights what was granted to its process
/// is forgotten, so that the next request asks again.
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);

}  // extern "C"

/// As AuthorizationCopyRights above; once `stop` is requested the dialog closes, and the status is
/// errAuthorizationCanceled.
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights,
                                 const std::stop_token& stop);

/// Whether somebody could see a dialog that was shown for the process of `authorization`. Where
/// that cannot be told, it is taken for granted.
bool AuthorizationCanShowDialog(AuthorizationRef authorization);

/// Looks a right up in the authorization database: 0, or errAuthorizationDenied if it does not
/// exist. `definition`, if not null, receives a dictionary with the name of the right's rule under
/// "rule" and the sentence of its dialog under "description".
OSStatus AuthorizationRightGet(const char* rightName, std::optional<Value>* definition);
/// Defines a right, anew if it exists: `definition` is the name of a rule, or a dictionary that
/// names one under "rule"; `descriptionKey` the sentence of its dialog, which is also its key in
/// the strings table `localeTableName` of the program. Only an authorization of root's may change
/// rights; any other is errAuthorizationDenied.
OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* rightName,
                               const Value& definition, const std::string& descriptionKey,
                               const char* localeTableName);
/// Removes a right, for an authorization of root's: errAuthorizationDenied if it does not exist.
OSStatus AuthorizationRightRemove(AuthorizationRef authorization, const char* rightName);

}  // namespace corvane

#endif
