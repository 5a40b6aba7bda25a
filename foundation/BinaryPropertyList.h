#ifndef CORVANE_FOUNDATION_BINARYPROPERTYLIST_H
#define CORVANE_FOUNDATION_BINARYPROPERTYLIST_H

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The layout of binary property lists: a signature, objects, the table of the objects' offsets, a
/// trailer. All numbers are big-endian. An object's first byte has its kind in the high four bits;
/// the low four bits are a count, or the binary logarithm of a number's size.
namespace corvane::binary_property_list {

inline constexpr std::string_view signature = "bplist00";
inline constexpr std::size_t headSize = signature.size();
inline constexpr std::size_t trailerSize = 32;

enum Kind : std::uint8_t {
  Simple = 0x0,
  Integer = 0x1,
  Real = 0x2,
  DateKind = 0x3,
  Blob = 0x4,
  ASCIIText = 0x5,
  UTF16Text = 0x6,
  UTF8Text = 0x7,
  UID = 0x8,
  ArrayKind = 0xA,
  DictionaryKind = 0xD,
};

/// The low bits of simple objects.
inline constexpr std::uint8_t False = 0x8;
inline constexpr std::uint8_t True = 0x9;
/// The low bits of an object whose count follows as an integer object.
inline constexpr std::uint8_t countFollows = 0xF;

}  // namespace corvane::binary_property_list

#endif
