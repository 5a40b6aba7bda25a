#include "platform/EmbeddedPropertyLists.h"

#include <mach-o/dyld.h>
#include <mach-o/getsect.h>

namespace corvane {

namespace {

std::span<const std::byte> contentOf(const char* section) {
  // The program itself is the first image; all images of a 64-bit process have this header.
  const auto* const program = reinterpret_cast<const mach_header_64*>(::_dyld_get_image_header(0));
  unsigned long size = 0;
  const std::uint8_t* const content = ::getsectiondata(program, "__TEXT", section, &size);
  if (content == nullptr) return {};
  return {reinterpret_cast<const std::byte*>(content), size};
}

}  // namespace

std::span<const std::byte> embeddedInfoPropertyList() {
  return contentOf("__info_plist");
}

std::span<const std::byte> embeddedLaunchdPropertyList() {
  return contentOf("__launchd_plist");
}

}  // namespace corvane
