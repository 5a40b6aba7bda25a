#include "platform/linux/FileFlagsAttribute.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

#include <sys/xattr.h>

#include "foundation/POSIXError.h"

namespace corvane {

std::string pathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

std::optional<Error> readFileFlagsAttribute(int object, std::optional<FileFlags>& flags) {
  std::array<char, 16> buffer{};
  const ssize_t length = ::getxattr(pathOfDescriptor(object).c_str(), fileFlagsAttribute,
                                    buffer.data(), buffer.size());
  if (length < 0) {
    flags.reset();
    if (errno == ENODATA || errno == ENOTSUP) return std::nullopt;
    return posixErrorFromHost(errno == ERANGE ? EIO : errno);
  }
  const std::string_view text(buffer.data(), static_cast<std::size_t>(length));
  const char* end = text.data() + text.size();
  FileFlags word = 0;
  if (!text.starts_with("0x")) return posixError(POSIXErrorCode::InputOutput);
  const auto [parsed, failure] = std::from_chars(text.data() + 2, end, word, 16);
  if (failure != std::errc() || parsed != end) return posixError(POSIXErrorCode::InputOutput);
  flags = word;
  return std::nullopt;
}

}  // namespace corvane
