#include "platform/macos/authorization/SystemRights.h"

#include <cstring>

#include "platform/macos/frameworks/Security.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

namespace {

// What a definition that no object can be made of is answered with.
constexpr std::int32_t invalidDefinition = -60001;

AuthorizationRef reference(const void* authorization) {
  return static_cast<AuthorizationRef>(authorization);
}

CFStringRef string(NSString* text) {
  return (__bridge CFStringRef)text;
}

}  // namespace

std::int32_t systemRightGet(const char* name, std::optional<Value>* definition) {
  return guarded([&] {
    CFDictionaryRef found = nullptr;
    const OSStatus status = ::AuthorizationRightGet(name, definition != nullptr ? &found : nullptr);
    NSDictionary* const owner = (__bridge_transfer NSDictionary*)found;
    if (status == errAuthorizationSuccess && definition != nullptr) {
      *definition = valueFromObject(owner);
    }
    return status;
  });
}

std::int32_t systemRightSet(const void* authorization, const char* name, const Value& definition,
                            const std::string& descriptionKey, const char* localeTableName) {
  return guarded([&] {
    const id object = objectFromValue(definition);
    NSString* const description = objectFromText(descriptionKey);
    NSString* const table = objectFromText(localeTableName);
    if (object == nil || description == nil || table == nil) return invalidDefinition;
    // No bundle: the program's own has the table.
    return static_cast<std::int32_t>(
        ::AuthorizationRightSet(reference(authorization), name, (__bridge CFTypeRef)object,
                                string(description), nullptr, string(table)));
  });
}

std::int32_t systemRightRemove(const void* authorization, const char* name) {
  return guarded([&] { return ::AuthorizationRightRemove(reference(authorization), name); });
}

std::int32_t systemExternalForm(const void* authorization, std::span<std::byte, 32> form) {
  AuthorizationExternalForm made{};
  static_assert(sizeof made.bytes == 32);
  const OSStatus status = ::AuthorizationMakeExternalForm(reference(authorization), &made);
  std::memcpy(form.data(), made.bytes, form.size());
  return status;
}

bool hasGraphicSession() {
  SecuritySessionId session = 0;
  SessionAttributeBits attributes = 0;
  return ::SessionGetInfo(callerSecuritySession, &session, &attributes) == 0 &&
         (attributes & sessionHasGraphicAccess) != 0;
}

}  // namespace corvane
