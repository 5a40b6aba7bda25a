#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_BUSVALUE_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_BUSVALUE_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/Value.h"
#include "platform/linux/bus/MessageReader.h"
#include "platform/linux/bus/MessageWriter.h"

namespace corvane {

/// Values in D-Bus messages. Reading: `s` is a string; every integer type, `d` and `b` a number;
/// `ay` data; `a{sv}` a dictionary; every other array an array; `(sxa{sv})` an error. Anything
/// else is -EBADMSG, and so are containers nested deeper than 32 and dictionaries with a key twice;
/// more than 16384 values without at least 8 bytes of text or data of their own are -E2BIG. These
/// are results of the reader; what is returned then is nothing that was sent.

/// Asked before memory is taken for what a message holds; -E2BIG is the result where it is refused.
/// Empty, it allows everything.
using TakeMemory = std::function<bool(std::size_t size)>;

/// The next element of the message, of type `av`.
Array readArray(MessageReader& reader, const TakeMemory& takeMemory = {});
/// The next element of the message, of type `a{sv}`.
Dictionary readDictionary(MessageReader& reader);
/// The next element of the message, of type `ay`.
Data readData(MessageReader& reader, const TakeMemory& takeMemory = {});
/// The next element of the message, of type `a(sxa{sv})` with none or one element.
std::optional<Error> readOptionalError(MessageReader& reader);

/// How many bytes a value takes in a message at least; some dozens more are possible for each
/// value in it.
std::size_t leastMessageSize(const Value& value);
std::size_t leastMessageSize(const std::string& text);
void appendVariant(MessageWriter& writer, const Value& value);
void appendDictionary(MessageWriter& writer, const Dictionary& dictionary);
void appendOptionalError(MessageWriter& writer, const std::optional<Error>& error);

}  // namespace corvane

#endif
