#ifndef CORVANE_PLATFORM_MACOS_VALUES_OBJECTVALUE_H
#define CORVANE_PLATFORM_MACOS_VALUES_OBJECTVALUE_H

#include <optional>
#include <string>
#include <string_view>

#include "foundation/Error.h"
#include "foundation/Value.h"
#include "platform/macos/frameworks/Foundation.h"

namespace corvane {

/// Values as the system's objects, and back. The system's own services take the same objects for
/// theirs, so a cast is all that is between these and a CFTypeRef.

/// Nil for what is, or holds, a text that is not UTF-8.
id objectFromValue(const Value& value);
NSString* objectFromText(std::string_view text);
NSData* objectFromData(const Data& data);
/// What its user information cannot hold is left out of it.
NSError* objectFromError(const Error& error);

/// Nothing for nil, for an object of a class that no value has, or that holds one, for a text that
/// cannot be written in UTF-8, and for what is nested deeper than messages may be.
std::optional<Value> valueFromObject(id object);
std::optional<std::string> textFromObject(NSString* text);
Data dataFromObject(NSData* data);
/// What in its user information is no value is left out of it.
Error errorFromObject(NSError* error);

}  // namespace corvane

#endif
