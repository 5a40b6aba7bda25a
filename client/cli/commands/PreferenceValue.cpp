#include "client/cli/commands/PreferenceValue.h"

#include <string_view>

#include "foundation/PropertyList.h"

namespace corvane::cli {

namespace {

// In the old style, which holds every text.
std::string quoted(std::string_view text) {
  std::string list = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') list += '\\';
    list += character;
  }
  return list + '"';
}

std::string element(const std::string& name, const std::string& content) {
  return "<plist version=\"1.0\"><" + name + ">" + content + "</" + name + "></plist>";
}

std::optional<std::string> booleanOf(std::string_view text) {
  if (text == "true" || text == "yes" || text == "1") return element("true", "");
  if (text == "false" || text == "no" || text == "0") return element("false", "");
  return std::nullopt;
}

std::optional<std::string> writtenAs(ValueKind kind, const std::string& text) {
  // Nothing may come out of the element, or of the brackets.
  const bool isPlain = text.find_first_of("<>&") == std::string::npos;
  switch (kind) {
    case ValueKind::Text:
      return quoted(text);
    case ValueKind::Boolean:
      return booleanOf(text);
    case ValueKind::Integer:
      return isPlain ? std::optional(element("integer", text)) : std::nullopt;
    case ValueKind::Real:
      return isPlain ? std::optional(element("real", text)) : std::nullopt;
    case ValueKind::Date:
      return isPlain ? std::optional(element("date", text)) : std::nullopt;
    case ValueKind::Data:
      return isPlain ? std::optional("<" + text + ">") : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> propertyListOf(ValueKind kind, const std::string& text) {
  std::optional<std::string> list = writtenAs(kind, text);
  // The reader is the helper's: what it takes here it takes there.
  if (list && !readPropertyList(dataFromString(*list))) return std::nullopt;
  return list;
}

}  // namespace corvane::cli
