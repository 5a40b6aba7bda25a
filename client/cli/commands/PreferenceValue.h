#ifndef CORVANE_CLIENT_CLI_COMMANDS_PREFERENCEVALUE_H
#define CORVANE_CLIENT_CLI_COMMANDS_PREFERENCEVALUE_H

#include <optional>
#include <string>

namespace corvane::cli {

/// What the text of a value on the command line is.
enum class ValueKind {
  Text,     ///< itself, whatever is in it
  Boolean,  ///< true or false, yes or no, 1 or 0
  Integer,  ///< of 64 bits with or without sign; decimal, or hexadecimal after 0x
  Real,     ///< decimal, with an exponent or not
  Date,     ///< as 2026-11-20T08:00:00Z; the smaller units may be missing
  Data,     ///< pairs of hexadecimal digits, with spaces or not
};

/// Where a value is from: the command line, or the file at a path in any format that a property
/// list has; "-" is standard input.
struct PreferenceSource {
  std::optional<ValueKind> kind;  ///< nothing: of a property list in a file
  std::string text;               ///< the value, or the path
};

/// The value as the helper takes it, a property list in text; nothing if the text is none of the
/// kind.
std::optional<std::string> propertyListOf(ValueKind kind, const std::string& text);

}  // namespace corvane::cli

#endif
