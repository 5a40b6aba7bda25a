#ifndef CORVANE_PLATFORM_MACOS_AUTHORIZATION_SYSTEMRIGHTS_H
#define CORVANE_PLATFORM_MACOS_AUTHORIZATION_SYSTEMRIGHTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "foundation/Value.h"

namespace corvane {

// The system's services whose types no file can have beside those of platform/Authorization.h, as
// both have the same names. `authorization` is an AuthorizationRef of either; the numbers are
// statuses of the system, 0 for success.

/// The right's definition as the system keeps it.
std::int32_t systemRightGet(const char* name, std::optional<Value>* definition);
std::int32_t systemRightSet(const void* authorization, const char* name, const Value& definition,
                            const std::string& descriptionKey, const char* localeTableName);
std::int32_t systemRightRemove(const void* authorization, const char* name);

std::int32_t systemExternalForm(const void* authorization, std::span<std::byte, 32> form);

/// Whether this process belongs to a session in which windows can be shown.
bool hasGraphicSession();

}  // namespace corvane

#endif
