#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_BUSVALUE_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_BUSVALUE_H

#include <cstddef>
#include <functional>
#include <optional>

#include <systemd/sd-bus.h>

#include "foundation/Error.h"
#include "foundation/Value.h"

namespace corvane {

/// Values in D-Bus messages. Reading: `s` is a string; every integer type, `d` and `b` a number;
/// `ay` data; `a{sv}` a dictionary; every other array an array; `(sxa{sv})` an error. Anything
/// else is -EBADMSG, and so are containers nested deeper than 32 and dictionaries with a key twice;
/// more than 16384 values without at least 8 bytes of text or data of their own are -E2BIG. All
/// functions return 0 or more on success and a negative errno on failure.

/// Asked before memory is taken for what a message holds; -E2BIG is the result where it is refused.
/// Empty, it allows everything.
using TakeMemory = std::function<bool(std::size_t size)>;

/// The next element of the message, of type `av`.
int readArray(sd_bus_message* message, Array& array, const TakeMemory& takeMemory = {});
/// The next element of the message, of type `a{sv}`.
int readDictionary(sd_bus_message* message, Dictionary& dictionary);
/// The next element of the message, of type `ay`.
int readData(sd_bus_message* message, Data& data, const TakeMemory& takeMemory = {});
/// The next element of the message, of type `a(sxa{sv})` with none or one element.
int readOptionalError(sd_bus_message* message, std::optional<Error>& error);

/// How many bytes a value takes in a message at least; some dozens more are possible for each
/// value in it.
std::size_t leastMessageSize(const Value& value);
int appendVariant(sd_bus_message* message, const Value& value);
int appendDictionary(sd_bus_message* message, const Dictionary& dictionary);
int appendOptionalError(sd_bus_message* message, const std::optional<Error>& error);

}  // namespace corvane

#endif
