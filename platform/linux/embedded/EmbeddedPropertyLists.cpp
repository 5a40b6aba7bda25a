#include "platform/EmbeddedPropertyLists.h"

// Weak, because only an executable that embeds the lists defines them.
extern "C" {
extern const std::byte corvane_info_plist_begin[] __attribute__((weak));
extern const std::byte corvane_info_plist_end[] __attribute__((weak));
extern const std::byte corvane_launchd_plist_begin[] __attribute__((weak));
extern const std::byte corvane_launchd_plist_end[] __attribute__((weak));
}

namespace corvane {

std::span<const std::byte> embeddedInfoPropertyList() {
  return {corvane_info_plist_begin, corvane_info_plist_end};
}

std::span<const std::byte> embeddedLaunchdPropertyList() {
  return {corvane_launchd_plist_begin, corvane_launchd_plist_end};
}

}  // namespace corvane
