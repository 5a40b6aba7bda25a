#ifndef CORVANE_PLATFORM_LINUX_FILES_FILEFLAGSATTRIBUTE_H
#define CORVANE_PLATFORM_LINUX_FILES_FILEFLAGSATTRIBUTE_H

#include <optional>
#include <string>

#include "foundation/Result.h"
#include "platform/FileSystem.h"

namespace corvane {

/// The root-only extended attribute that holds the flags word of an object whose flags the kernel
/// does not tell apart: the word as hexadecimal text with a leading "0x". It counts only while the
/// kernel protects the object.
inline constexpr const char* fileFlagsAttribute = "trusted.corvane.flags";

/// The flags word that the kernel's own two flags amount to.
constexpr FileFlags fileFlagsFromKernel(bool immutable, bool append) {
  return (immutable ? FileFlag::UserImmutable : 0) | (append ? FileFlag::UserAppend : 0);
}

/// A path of this process by which calls that take no descriptor reach an open object.
std::string pathOfDescriptor(int descriptor);

/// False if this thread is not told of the attribute, whether an object has it or not.
bool maySeeFileFlagsAttributes();

// Each reads the attribute, or nothing if the object has none. EIO if it makes no sense.

/// Of an open file or folder.
Result<std::optional<FileFlags>> readFileFlagsAttributeOfFile(int file);
/// Of what `openObject` has got hold of.
Result<std::optional<FileFlags>> readFileFlagsAttributeOfObject(int object);
/// Of what stands in a folder, without following a link.
Result<std::optional<FileFlags>> readFileFlagsAttributeAt(int folder, const char* name);

}  // namespace corvane

#endif
