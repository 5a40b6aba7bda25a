#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_REQUESTHEADER_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_REQUESTHEADER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace corvane {

/// The fixed part at the beginning of every message.
inline constexpr std::size_t fixedHeaderSize = 16;
/// More than the header of any request with descriptors takes.
inline constexpr std::size_t maximumRequestHeaderSize = 1024;

/// What the fixed part says about the parts that follow.
struct MessageSizes {
  std::size_t fields;
  std::size_t body;
  /// The fields, filled up to a multiple of eight bytes, and the body.
  std::size_t rest() const { return (fields + 7) / 8 * 8 + body; }
};

/// Reads the fixed part; absent if its byte order is none.
std::optional<MessageSizes> messageSizes(std::span<const std::byte, fixedHeaderSize> header);

/// How many descriptors the header announces, if `header` (its fixed part, its fields and their
/// filling, nothing else) is that of the one message that may bring any: a call of
/// PerformPrivilegedOperation with its signature. Everything in it has been looked at: each field
/// is of a kind that such a call needs, well-formed, of its type and there once. Absent otherwise.
std::optional<std::uint32_t> announcedDescriptors(std::span<const std::byte> header);

}  // namespace corvane

#endif
