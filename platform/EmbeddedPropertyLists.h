#ifndef CORVANE_PLATFORM_EMBEDDEDPROPERTYLISTS_H
#define CORVANE_PLATFORM_EMBEDDEDPROPERTYLISTS_H

#include <cstddef>
#include <span>

namespace corvane {

/// The property lists that were linked into the running executable, byte for byte as they stand in
/// its sections `__TEXT,__info_plist` and `__TEXT,__launchd_plist`. Empty where there is none.
std::span<const std::byte> embeddedInfoPropertyList();
std::span<const std::byte> embeddedLaunchdPropertyList();

}  // namespace corvane

#endif
