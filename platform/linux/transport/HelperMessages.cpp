#include "platform/linux/transport/HelperMessages.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>

#include "platform/linux/transport/Endpoint.h"

namespace corvane {

namespace {

// The feedback endpoint, `ah` with none or one.
void appendEndpoint(MessageWriter& writer, const FileDescriptor& endpoint) {
  writer.appendContainer(SD_BUS_TYPE_ARRAY, "h", [&] {
    if (endpoint) writer.append("h", endpoint.get());
  });
}
std::optional<XPCListenerEndpoint> readEndpoint(MessageReader& reader) {
  std::optional<XPCListenerEndpoint> endpoint;
  reader.optional("h", [&] {
    const int borrowed = reader.basic<int>(SD_BUS_TYPE_UNIX_FD);
    if (reader.result() < 0) return;
    FileDescriptor socket(::fcntl(borrowed, F_DUPFD_CLOEXEC, 0));
    if (!socket) return reader.fail(-errno);
    endpoint = endpointFromSocket(std::move(socket));
  });
  return endpoint;
}

// The arguments, `aav` with none or one list.
void appendArguments(MessageWriter& writer, const OperationArguments& arguments) {
  writer.appendContainer(SD_BUS_TYPE_ARRAY, "av", [&] {
    writer.appendContainer(SD_BUS_TYPE_ARRAY, "v", [&] {
      for (const Value& value : arguments.values) appendVariant(writer, value);
      for (const std::string* text : arguments.texts) writer.append("v", "s", text->c_str());
    });
  });
}
std::optional<Array> readArguments(MessageReader& reader, const TakeMemory& takeMemory) {
  std::optional<Array> arguments;
  reader.optional("av", [&] { arguments = readArray(reader, takeMemory); });
  return arguments;
}

}  // namespace

void appendPerformCall(MessageWriter& writer, std::uint64_t code,
                       std::span<const std::byte> authorization, const FileDescriptor& endpoint,
                       const OperationArguments& arguments) {
  writer.append("t", code);
  writer.appendBytes(authorization);
  appendEndpoint(writer, endpoint);
  appendArguments(writer, arguments);
}

PerformCall readPerformCall(MessageReader& reader, const TakeMemory& takeMemory,
                            const char*& fault) {
  PerformCall call;
  call.code = reader.basic<std::uint64_t>(SD_BUS_TYPE_UINT64);
  call.authorization = readData(reader, takeMemory);
  if (reader.result() < 0) return call;
  fault = "The feedback endpoint is not one socket or none";
  call.feedbackEndpoint = readEndpoint(reader);
  if (reader.result() < 0) return call;
  fault = "The arguments are not one list, or none, of supported types";
  call.arguments = readArguments(reader, takeMemory);
  return call;
}

std::size_t leastMessageSize(const OperationArguments& arguments) {
  std::size_t size = 0;
  for (const Value& value : arguments.values) size += leastMessageSize(value);
  for (const std::string* text : arguments.texts) size += leastMessageSize(*text);
  return size;
}

void appendQueryCall(MessageWriter& writer, std::uint64_t code,
                     std::span<const std::byte> authorization) {
  writer.append("t", code);
  writer.appendBytes(authorization);
}

QueryCall readQueryCall(MessageReader& reader, const TakeMemory& takeMemory) {
  QueryCall call;
  call.code = reader.basic<std::uint64_t>(SD_BUS_TYPE_UINT64);
  call.authorization = readData(reader, takeMemory);
  return call;
}

void appendAuthorizationState(MessageWriter& writer, AuthorizationState state) {
  writer.append("s", nameOf(state));
}

AuthorizationState readAuthorizationState(MessageReader& reader) {
  const auto state = authorizationStateNamed(reader.text());
  if (!state) reader.fail(-EBADMSG);
  return state.value_or(AuthorizationState::Denied);
}

}  // namespace corvane
