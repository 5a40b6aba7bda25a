#ifndef CORVANE_PLATFORM_MACOS_FRAMEWORKS_SECURITY_H
#define CORVANE_PLATFORM_MACOS_FRAMEWORKS_SECURITY_H

// What is used of the system's security services beside what platform/Authorization.h declares. The
// system's own names for the types of both are the same: no file includes both headers.
#if __has_include(<Security/Security.h>)
#include <Security/Security.h>
#else

#include <MacTypes.h>

#include "platform/macos/frameworks/CoreFoundation.h"

extern "C" {

using AuthorizationRef = const struct AuthorizationOpaqueRef*;

constexpr OSStatus errAuthorizationSuccess = 0;
constexpr OSStatus errAuthorizationInvalidRef = -60002;

struct AuthorizationExternalForm {
  char bytes[32];
};

OSStatus AuthorizationMakeExternalForm(AuthorizationRef authorization,
                                       AuthorizationExternalForm* form);

OSStatus AuthorizationRightGet(const char* name, CFDictionaryRef* definition);
/// The description is a key of the table `localeTable` of `bundle`, or of the main bundle.
OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* name,
                               CFTypeRef definition, CFStringRef descriptionKey, CFBundleRef bundle,
                               CFStringRef localeTable);
OSStatus AuthorizationRightRemove(AuthorizationRef authorization, const char* name);

using SecuritySessionId = UInt32;
using SessionAttributeBits = UInt32;
constexpr SecuritySessionId callerSecuritySession = static_cast<SecuritySessionId>(-1);
constexpr SessionAttributeBits sessionHasGraphicAccess = 0x0010;

OSStatus SessionGetInfo(SecuritySessionId session, SecuritySessionId* found,
                        SessionAttributeBits* attributes);

}  // extern "C"

#endif
#endif
