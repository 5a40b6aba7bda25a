#ifndef CORVANE_PLATFORM_LINUX_BUS_MESSAGEREADER_H
#define CORVANE_PLATFORM_LINUX_BUS_MESSAGEREADER_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/linux/bus/Bus.h"

namespace corvane {

/// Reads a message from its begin to its end. The first failure is kept: after it there is nothing
/// more to read, and what is read is zero or empty. So it is enough to look at the result before
/// what was read is used.
class MessageReader {
 public:
  explicit MessageReader(sd_bus_message* message) : _message(message) {}

  /// One value of a basic type that is held in a T.
  template <typename T>
  T basic(char type) {
    T value{};
    if (_result < 0) return value;
    const int read = sd_bus_message_read_basic(_message, type, &value);
    if (read > 0) return value;
    fail(read < 0 ? read : -EBADMSG);
    return T{};
  }
  /// A text or the like, which the message owns.
  std::string_view text(char type = SD_BUS_TYPE_STRING) {
    const char* text = basic<const char*>(type);
    return text == nullptr ? std::string_view() : text;
  }
  bool boolean() { return basic<int>(SD_BUS_TYPE_BOOLEAN) != 0; }
  /// Bytes, which the message owns.
  std::span<const std::byte> bytes() {
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (_result >= 0) {
      note(sd_bus_message_read_array(_message, SD_BUS_TYPE_BYTE, &bytes, &size));
    }
    return _result < 0 ? std::span<const std::byte>()
                       : std::span(static_cast<const std::byte*>(bytes), size);
  }

  /// Reads a container with `read`.
  template <typename Read>
  void container(char type, const char* contents, const Read& read) {
    if (_result < 0) return;
    const int entered = sd_bus_message_enter_container(_message, type, contents);
    if (entered <= 0) return fail(entered < 0 ? entered : -EBADMSG);
    read();
    if (_result >= 0) note(sd_bus_message_exit_container(_message));
  }
  /// Reads an array, calling `read` for each element.
  template <typename Read>
  void array(const char* contents, const Read& read) {
    container(SD_BUS_TYPE_ARRAY, contents, [&] {
      while (!isAtEnd()) read();
    });
  }
  /// Reads an array of none or one element.
  template <typename Read>
  void optional(const char* contents, const Read& read) {
    container(SD_BUS_TYPE_ARRAY, contents, [&] {
      if (isAtEnd()) return;
      read();
      if (_result >= 0 && !isAtEnd()) fail(-EBADMSG);
    });
  }

  /// Whether the container that is read, or the message, has nothing more.
  bool isAtEnd() {
    if (_result >= 0) {
      const int isAtEnd = sd_bus_message_at_end(_message, 0);
      if (isAtEnd >= 0) return isAtEnd > 0;
      fail(isAtEnd);
    }
    return true;
  }

  /// The type of what comes next, zero at the end; for a container, the types of what is in it too.
  struct Type {
    char type = 0;
    const char* contents = nullptr;
  };
  Type nextType() {
    Type next;
    if (_result >= 0) note(sd_bus_message_peek_type(_message, &next.type, &next.contents));
    return _result < 0 ? Type() : next;
  }

  /// What was read is not what it has to be; a negative errno.
  void fail(int result) {
    if (_result >= 0) _result = result;
  }
  /// 0, or the negative errno of the first failure.
  int result() const { return _result; }

 private:
  void note(int result) {
    if (result < 0) fail(result);
  }

  sd_bus_message* _message;
  int _result = 0;
};

}  // namespace corvane

#endif
