#include <cstring>

#include "platform/macos/values/ObjectValue.h"

namespace corvane {

namespace {

// Of collections in each other. What decodes messages has limits of its own, but tells none.
constexpr int maximumDepth = 32;

template <typename T>
T* as(id object, Class kind) {
  return [object isKindOfClass:kind] ? static_cast<T*>(object) : nil;
}

std::optional<Value> valueAtDepth(id object, int depth);

Number numberFromObject(NSNumber* number) {
  // Truth is a class of its own there, and says of itself that it is a character, as small numbers
  // do.
  if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) {
    return static_cast<bool>(number.boolValue);
  }
  const char type = number.objCType[0];
  if (type == 'd' || type == 'f') return number.doubleValue;
  if (type == 'Q') return static_cast<std::uint64_t>(number.unsignedLongLongValue);
  return static_cast<std::int64_t>(number.longLongValue);
}

std::optional<Value> valueFromArray(NSArray* objects, int depth) {
  Array array;
  const NSUInteger count = objects.count;
  array.reserve(count);
  for (NSUInteger i = 0; i < count; ++i) {
    auto value = valueAtDepth([objects objectAtIndex:i], depth);
    if (!value) return std::nullopt;
    array.push_back(*std::move(value));
  }
  return array;
}

std::optional<Value> valueFromDictionary(NSDictionary* objects, int depth) {
  Dictionary dictionary;
  NSArray* const keys = objects.allKeys;
  const NSUInteger count = keys.count;
  for (NSUInteger i = 0; i < count; ++i) {
    const id key = [keys objectAtIndex:i];
    auto name = textFromObject(as<NSString>(key, [NSString class]));
    auto value = valueAtDepth([objects objectForKey:key], depth);
    if (!name || !value) return std::nullopt;
    // Keys that differ for the system are written differently in UTF-8.
    dictionary.append(*std::move(name), *std::move(value));
  }
  return dictionary;
}

Error errorAtDepth(NSError* error, int depth) {
  Dictionary userInfo;
  NSDictionary* const objects = error.userInfo;
  NSArray* const keys = objects.allKeys;
  const NSUInteger count = keys.count;
  for (NSUInteger i = 0; i < count; ++i) {
    const id key = [keys objectAtIndex:i];
    auto name = textFromObject(as<NSString>(key, [NSString class]));
    auto value = valueAtDepth([objects objectForKey:key], depth);
    if (name && value) userInfo.append(*std::move(name), *std::move(value));
  }
  return {textFromObject(error.domain).value_or(""), error.code, std::move(userInfo)};
}

std::optional<Value> valueAtDepth(id object, int depth) {
  if (NSString* const text = as<NSString>(object, [NSString class])) {
    auto found = textFromObject(text);
    return found ? std::optional<Value>(*std::move(found)) : std::nullopt;
  }
  if (NSNumber* const number = as<NSNumber>(object, [NSNumber class])) {
    return numberFromObject(number);
  }
  if (NSData* const data = as<NSData>(object, [NSData class])) return dataFromObject(data);
  if (NSDate* const date = as<NSDate>(object, [NSDate class])) {
    return Date{date.timeIntervalSinceReferenceDate};
  }
  if (depth == maximumDepth) return std::nullopt;
  if (NSArray* const array = as<NSArray>(object, [NSArray class])) {
    return valueFromArray(array, depth + 1);
  }
  if (NSDictionary* const dictionary = as<NSDictionary>(object, [NSDictionary class])) {
    return valueFromDictionary(dictionary, depth + 1);
  }
  if (NSError* const error = as<NSError>(object, [NSError class])) {
    return errorAtDepth(error, depth + 1);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> textFromObject(NSString* text) {
  NSData* const written = [text dataUsingEncoding:NSUTF8StringEncoding];
  if (written == nil) return std::nullopt;
  return std::string(static_cast<const char*>(written.bytes), written.length);
}

Data dataFromObject(NSData* data) {
  Data bytes(data.length);
  if (!bytes.empty()) std::memcpy(bytes.data(), data.bytes, bytes.size());
  return bytes;
}

std::optional<Value> valueFromObject(id object) {
  return valueAtDepth(object, 0);
}

Error errorFromObject(NSError* error) {
  return errorAtDepth(error, 0);
}

}  // namespace corvane
