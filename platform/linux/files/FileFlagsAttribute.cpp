#include "platform/linux/files/FileFlagsAttribute.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

// The longest text is that of a word with all bits set.
using Buffer = std::array<char, 10>;

std::optional<FileFlags> parse(std::string_view text) {
  const char* end = text.data() + text.size();
  FileFlags flags = 0;
  if (!text.starts_with("0x")) return std::nullopt;
  const auto [parsed, failure] = std::from_chars(text.data() + 2, end, flags, 16);
  if (failure != std::errc() || parsed != end) return std::nullopt;
  return flags;
}

// `length` is what one of the kernel's calls has answered that fill in the buffer.
Result<std::optional<FileFlags>> interpret(const Buffer& buffer, ssize_t length) {
  if (length < 0) {
    if (errno == ENODATA || errno == ENOTSUP) return std::nullopt;
    return posixErrorFromHost(errno == ERANGE ? EIO : errno);
  }
  const auto flags = parse({buffer.data(), static_cast<std::size_t>(length)});
  if (!flags) return posixError(POSIXErrorCode::InputOutput);
  return flags;
}

}  // namespace

std::string pathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

bool maySeeFileFlagsAttributes() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> capabilities{};
  return ::syscall(SYS_capget, &header, capabilities.data()) == 0 &&
         (capabilities[CAP_TO_INDEX(CAP_SYS_ADMIN)].effective & CAP_TO_MASK(CAP_SYS_ADMIN)) != 0;
}

Result<std::optional<FileFlags>> readFileFlagsAttributeOfFile(int file) {
  Buffer buffer;
  return interpret(buffer, ::fgetxattr(file, fileFlagsAttribute, buffer.data(), buffer.size()));
}

Result<std::optional<FileFlags>> readFileFlagsAttributeOfObject(int object) {
  Buffer buffer;
  const std::string path = pathOfDescriptor(object);
  return interpret(buffer,
                   ::getxattr(path.c_str(), fileFlagsAttribute, buffer.data(), buffer.size()));
}

Result<std::optional<FileFlags>> readFileFlagsAttributeAt(int folder, const char* name) {
  Buffer buffer;
  std::string path = name;
  if (folder != AT_FDCWD && !path.starts_with('/')) path = pathOfDescriptor(folder) + "/" + path;
  return interpret(buffer,
                   ::lgetxattr(path.c_str(), fileFlagsAttribute, buffer.data(), buffer.size()));
}

}  // namespace corvane
