#ifndef CORVANE_FOUNDATION_PROPERTYLIST_H
#define CORVANE_FOUNDATION_PROPERTYLIST_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "foundation/Error.h"
#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {

/// The domain of the errors of property lists.
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";
/// The bytes are no property list, or one beyond the bounds below.
inline constexpr std::int64_t NSPropertyListReadCorruptError = 3840;
/// The value cannot be written in the format.
inline constexpr std::int64_t NSPropertyListWriteInvalidError = 3852;

/// Bounds of what is read and written, so that what is written can be read: arrays and dictionaries
/// inside each other, values in all (keys are none; a value that a binary list refers to twice
/// counts twice), and bytes, of the list and of the texts (in UTF-8) and data in it.
inline constexpr std::size_t propertyListMaximumDepth = 512;
inline constexpr std::size_t propertyListMaximumValues = 1'000'000;
inline constexpr std::size_t propertyListMaximumBytes = std::size_t{32} << 20U;

/// The file formats of property lists.
enum class PropertyListFormat {
  XML,       ///< the XML property list, version 1.0
  Binary,    ///< "bplist00"
  OldStyle,  ///< the text form of OpenStep and of strings tables; read, never written
};

struct PropertyList {
  Value root;
  PropertyListFormat format;
};

/// Reads a property list in any of the formats. Nothing of a damaged list is returned, and nothing
/// in it is guessed: a key that occurs twice, a number or date that is none, text that is not UTF-8
/// (or UTF-16 with its byte order mark) are errors. Safe to call on hostile bytes: depth and size
/// are bounded, and the error's description says what is wrong.
///
/// The old-style form has strings (plain, or quoted with escapes), data in angle brackets, arrays,
/// dictionaries and comments; entries "key = value;" without braces around them, as strings tables
/// have them, are a dictionary, and so is nothing at all. "key;" is an entry whose value is its
/// key.
///
/// Booleans, integers of 64 bits with or without sign, reals, dates, data, texts and the order of
/// keys are kept. A keyed archive's UID is the dictionary {"CF$UID": number}, as in XML.
Result<PropertyList> readPropertyList(std::span<const std::byte> bytes);
/// The same where nothing but a dictionary is of use: any other list is an error too.
Result<Dictionary> readDictionary(std::span<const std::byte> bytes);

/// Writes `root` as `format` (XML or Binary). A value that the format cannot hold is an error: an
/// Error, and in XML a text with control characters or a date outside the years 0 to 9999. A list
/// beyond the bounds above is one too, since nobody could read it back.
Result<Data> writePropertyList(const Value& root, PropertyListFormat format);

}  // namespace corvane

#endif
