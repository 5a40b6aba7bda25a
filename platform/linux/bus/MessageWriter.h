#ifndef CORVANE_PLATFORM_LINUX_BUS_MESSAGEWRITER_H
#define CORVANE_PLATFORM_LINUX_BUS_MESSAGEWRITER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "platform/linux/bus/Bus.h"

namespace corvane {

/// Fills a message. The first failure is kept and nothing is appended after it, so that it is
/// enough to look at the result in the end.
class MessageWriter {
 public:
  /// Appends to a message that is there.
  explicit MessageWriter(sd_bus_message* message) : _message(sd_bus_message_ref(message)) {}

  /// Begins a call; without a destination, of the peer.
  static MessageWriter ofCall(sd_bus* bus, const char* destination, const char* path,
                              const char* interface, const char* member) {
    sd_bus_message* message = nullptr;
    const int result =
        sd_bus_message_new_method_call(bus, &message, destination, path, interface, member);
    return MessageWriter(BusMessage(message), result);
  }
  /// Begins the reply to a call.
  static MessageWriter ofReplyTo(sd_bus_message* call) {
    sd_bus_message* message = nullptr;
    const int result = sd_bus_message_new_method_return(call, &message);
    return MessageWriter(BusMessage(message), result);
  }

  /// Values as the library's own function takes them.
  template <typename... Values>
  void append(const char* types, Values... values) {
    step([&] { return sd_bus_message_append(_message.get(), types, values...); });
  }
  void appendBytes(std::span<const std::byte> bytes) {
    step([&] {
      return sd_bus_message_append_array(_message.get(), SD_BUS_TYPE_BYTE, bytes.data(),
                                         bytes.size());
    });
  }
  /// A container with what `fill` appends.
  template <typename Fill>
  void appendContainer(char type, const char* contents, const Fill& fill) {
    step([&] { return sd_bus_message_open_container(_message.get(), type, contents); });
    if (_result >= 0) fill();
    step([&] { return sd_bus_message_close_container(_message.get()); });
  }
  void expectNoReply() {
    step([this] { return sd_bus_message_set_expect_reply(_message.get(), 0); });
  }

  /// Sends the message, over the bus that it was made for if none is given.
  void send(sd_bus* bus = nullptr, std::uint64_t* cookie = nullptr) {
    step([&] { return sd_bus_send(bus, _message.get(), cookie); });
  }

  /// 0, or the negative errno of the first failure.
  int result() const { return _result; }
  /// The message; null after a failure.
  sd_bus_message* message() const { return _result < 0 ? nullptr : _message.get(); }

 private:
  MessageWriter(BusMessage message, int result)
      : _message(std::move(message)), _result(result < 0 ? result : 0) {}

  template <typename Step>
  void step(const Step& step) {
    if (_result < 0) return;
    const int result = step();
    if (result < 0) _result = result;
  }

  BusMessage _message;
  int _result = 0;
};

}  // namespace corvane

#endif
