#ifndef CORVANE_PLATFORM_LINUX_FILEFLAGSATTRIBUTE_H
#define CORVANE_PLATFORM_LINUX_FILEFLAGSATTRIBUTE_H

#include <optional>
#include <string>

#include "foundation/Error.h"
#include "platform/FileSystem.h"

namespace corvane {

/// The root-only extended attribute that holds the flags word of an object whose flags the kernel
/// does not tell apart: the word as hexadecimal text with a leading "0x". It counts only while the
/// kernel protects the object.
inline constexpr const char* fileFlagsAttribute = "trusted.corvane.flags";

/// The flags word that the kernel's own two flags amount to.
constexpr FileFlags fileFlagsFromKernel(bool immutable, bool append) {
  return (immutable ? UF_IMMUTABLE : 0) | (append ? UF_APPEND : 0);
}

/// A path of this process by which calls that take no descriptor reach an open object.
std::string pathOfDescriptor(int descriptor);

/// Reads the attribute; nothing if the object has none. EIO if it makes no sense.
std::optional<Error> readFileFlagsAttribute(int object, std::optional<FileFlags>& flags);

}  // namespace corvane

#endif
