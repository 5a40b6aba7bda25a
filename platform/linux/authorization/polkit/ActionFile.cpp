#include "platform/linux/authorization/polkit/ActionFile.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <sstream>
#include <type_traits>

#include <expat.h>

#include "foundation/ProductVendor.h"
#include "foundation/Unicode.h"

namespace corvane {

namespace {

struct Rule {
  std::string_view name;
  /// What polkit calls it.
  std::string_view implicit;
  /// What it calls the same without keeping the authorization; empty if it is not kept.
  std::string_view implicitAnew;
};
constexpr Rule rules[] = {
    {"allow", "yes", ""},
    {"default", "auth_admin_keep", "auth_admin"},
    {"authenticate-admin", "auth_admin", ""},
};

const Rule* ruleNamed(std::string_view name) {
  const auto* rule = std::find_if(std::begin(rules), std::end(rules),
                                  [name](const Rule& candidate) { return candidate.name == name; });
  return rule == std::end(rules) ? nullptr : rule;
}

/// `text` as the content of an element or an attribute. What XML cannot hold becomes U+FFFD.
std::string escaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const char32_t character = takeCharacter(text);
    const bool isAllowed =
        (character >= 0x20 || character == '\t' || character == '\n' || character == '\r') &&
        character != 0xFFFE && character != 0xFFFF;
    switch (character) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\r':
        result += "&#13;";
        break;
      default:
        appendUTF8(result, isAllowed ? character : replacementCharacter);
    }
  }
  return result;
}

void writeAction(std::ostream& text, const std::string& actionId, std::string_view implicit,
                 const RightDefinition& definition, const Translations& translations) {
  text << "  <action id=\"" << escaped(actionId) << "\">\n";
  for (const char* name : {"description", "message"}) {
    text << "    <" << name << ">" << escaped(definition.description) << "</" << name << ">\n";
    for (const auto& [language, translation] : translations) {
      text << "    <" << name << " xml:lang=\"" << escaped(language) << "\">"
           << escaped(translation) << "</" << name << ">\n";
    }
  }
  text << "    <defaults>\n";
  for (const char* name : {"allow_any", "allow_inactive", "allow_active"}) {
    text << "      <" << name << ">" << implicit << "</" << name << ">\n";
  }
  text << "    </defaults>\n  </action>\n";
}

/// Collects what an action file says of one action.
struct Reader {
  std::string_view actionId;
  bool isInAction = false;
  std::string* content = nullptr;
  std::string message;
  std::string implicit;

  static void XMLCALL start(void* userData, const XML_Char* name, const XML_Char** attributes) {
    auto& reader = *static_cast<Reader*>(userData);
    const std::string_view element(name);
    const auto attribute = [attributes](std::string_view key) -> const XML_Char* {
      for (const XML_Char** entry = attributes; *entry != nullptr; entry += 2) {
        if (*entry == key) return entry[1];
      }
      return nullptr;
    };
    if (element == "action") {
      const XML_Char* id = attribute("id");
      reader.isInAction = id != nullptr && id == reader.actionId;
    }
    if (!reader.isInAction) return;
    if (element == "message" && attribute("xml:lang") == nullptr) reader.content = &reader.message;
    if (element == "allow_active") reader.content = &reader.implicit;
    if (reader.content != nullptr) reader.content->clear();
  }
  static void XMLCALL end(void* userData, const XML_Char* name) {
    auto& reader = *static_cast<Reader*>(userData);
    reader.content = nullptr;
    if (std::string_view(name) == "action") reader.isInAction = false;
  }
  static void XMLCALL characters(void* userData, const XML_Char* text, int length) {
    auto& reader = *static_cast<Reader*>(userData);
    if (reader.content != nullptr) {
      reader.content->append(text, static_cast<std::size_t>(length));
    }
  }
};

}  // namespace

std::string anewActionOf(const std::string& rightName) {
  return rightName + ".anew";
}

std::optional<std::string> actionFile(const std::string& rightName,
                                      const RightDefinition& definition,
                                      const Translations& translations) {
  const Rule* rule = ruleNamed(definition.rule);
  if (rule == nullptr) return std::nullopt;
  std::ostringstream text;
  text << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          "<!DOCTYPE policyconfig PUBLIC "
          "\"-//freedesktop//DTD PolicyKit Policy Configuration 1.0//EN\"\n"
          "  \"http://www.freedesktop.org/standards/PolicyKit/1.0/policyconfig.dtd\">\n"
          "<policyconfig>\n"
          "  <vendor>"
       << escaped(ProductVendor::name()) << "</vendor>\n";
  if (!ProductVendor::url().empty()) {
    text << "  <vendor_url>" << escaped(ProductVendor::url()) << "</vendor_url>\n";
  }
  text << "  <icon_name>dialog-password</icon_name>\n";
  writeAction(text, rightName, rule->implicit, definition, translations);
  if (!rule->implicitAnew.empty()) {
    writeAction(text, anewActionOf(rightName), rule->implicitAnew, definition, translations);
  }
  text << "</policyconfig>\n";
  return text.str();
}

std::string implicitOf(const std::string& rule) {
  const Rule* known = ruleNamed(rule);
  return known == nullptr ? rule : std::string(known->implicit);
}

std::optional<RightDefinition> readActionFile(std::string_view text, const std::string& rightName) {
  const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  Reader reader{rightName, false, nullptr, {}, {}};
  XML_SetUserData(parser.get(), &reader);
  XML_SetElementHandler(parser.get(), &Reader::start, &Reader::end);
  XML_SetCharacterDataHandler(parser.get(), &Reader::characters);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) !=
          XML_STATUS_OK ||
      reader.implicit.empty()) {
    return std::nullopt;
  }
  const auto* rule = std::find_if(std::begin(rules), std::end(rules), [&](const Rule& candidate) {
    return candidate.implicit == reader.implicit;
  });
  return RightDefinition{
      rule == std::end(rules) ? reader.implicit : std::string(rule->name), reader.message, {}};
}

}  // namespace corvane
