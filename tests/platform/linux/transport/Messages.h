#ifndef CORVANE_TESTS_PLATFORM_LINUX_TRANSPORT_MESSAGES_H
#define CORVANE_TESTS_PLATFORM_LINUX_TRANSPORT_MESSAGES_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/transport/HelperMessages.h"

namespace corvane {

/// What a message begins with; as a request's by itself.
struct MessageStart {
  char order = 'l';
  char kind = 1;
  char version = 1;
  std::uint32_t bodySize = 0;
  std::uint32_t serial = 1;
  /// Without their filling.
  std::vector<std::string> fields{};
};

inline std::string number(std::uint32_t value, char order = 'l') {
  std::string bytes;
  for (int i = 0; i < 4; ++i) {
    bytes.push_back(static_cast<char>(value >> (order == 'l' ? 8 * i : 24 - 8 * i)));
  }
  return bytes;
}

inline std::string filled(std::string bytes) {
  bytes.resize((bytes.size() + 7) / 8 * 8);
  return bytes;
}

inline std::string textField(char code, char type, const std::string& text, char order = 'l') {
  const std::string size = type == 'g' ? std::string(1, static_cast<char>(text.size()))
                                       : number(static_cast<std::uint32_t>(text.size()), order);
  return std::string{code, 1, type, 0} + size + text + std::string(1, '\0');
}

inline std::string path(char order = 'l') {
  return textField(1, 'o', helperObjectPath, order);
}
inline std::string interface(char order = 'l') {
  return textField(2, 's', helperInterface, order);
}
inline std::string member(char order = 'l') {
  return textField(3, 's', performMember.name, order);
}
inline std::string signature() {
  return textField(8, 'g', performMember.call);
}
inline std::string unixFds(std::uint32_t count, char order = 'l') {
  return std::string{9, 1, 'u', 0} + number(count, order);
}
inline std::vector<std::string> requestFields(std::uint32_t count, char order = 'l') {
  return {path(order), interface(order), member(order), signature(), unixFds(count, order)};
}

inline std::string fixedHeader(const MessageStart& start, std::uint32_t fieldsSize) {
  return std::string{start.order, start.kind, 0, start.version} +
         number(start.bodySize, start.order) + number(start.serial, start.order) +
         number(fieldsSize, start.order);
}

inline std::string header(const MessageStart& start) {
  std::string fields;
  for (const std::string& field : start.fields) {
    fields = filled(std::move(fields));
    fields += field;
  }
  return filled(fixedHeader(start, static_cast<std::uint32_t>(fields.size())) + fields);
}

inline std::string requestHeader(std::uint32_t descriptors, char order = 'l') {
  return header({.order = order, .fields = requestFields(descriptors, order)});
}

}  // namespace corvane

#endif
