#include <array>
#include <string>

#include "foundation/EmbeddedResources.h"

namespace corvane {

namespace {

std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

std::string utf16(std::u16string_view text, bool isBigEndian) {
  std::string bytes;
  for (const char16_t unit : text) {
    const char high = static_cast<char>(unit >> 8);
    const char low = static_cast<char>(unit & 0xFF);
    bytes += isBigEndian ? high : low;
    bytes += isBigEndian ? low : high;
  }
  return bytes;
}

}  // namespace

std::span<const EmbeddedResource> embeddedResources() {
  static const std::string big = utf16(u"\uFEFF\"key\" = \"\u65E5\u672C\";", true);
  static const std::string little = utf16(u"\uFEFF\"key\" = \"\u00E9t\u00E9\";", false);
  static const std::array resources = {
      EmbeddedResource{"de.lproj/Table.strings", bytesOf("\"key\" = \"Schl\xC3\xBCssel\";")},
      EmbeddedResource{"de.lproj/Other.strings", bytesOf("\"only\" = \"nur\";")},
      EmbeddedResource{"de.lproj/Localizable.strings", bytesOf("\"key\" = \"ohne Namen\";")},
      EmbeddedResource{"de_AT.lproj/Table.strings", bytesOf("\"key\" = \"Schlissl\";")},
      EmbeddedResource{"en.lproj/Table.strings", bytesOf("\"key\" = \"English\";")},
      EmbeddedResource{"fr.lproj/Table.strings", bytesOf(little)},
      EmbeddedResource{"fr.lproj/Damaged.strings", bytesOf("\"key\" = ")},
      EmbeddedResource{"ja.lproj/Table.strings", bytesOf(big)},
      EmbeddedResource{"Table.strings", bytesOf("\"key\" = \"nowhere\";")},
  };
  return resources;
}

}  // namespace corvane
