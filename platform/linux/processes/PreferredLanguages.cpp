#include "foundation/PreferredLanguages.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace corvane {

namespace {

/// The value of an environment variable; empty if it is not set.
std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

bool isC(std::string_view locale) {
  return locale == "C" || locale == "POSIX";
}

// The locales that the user wants: those of LANGUAGE (with ":" between them), and then the first of
// LC_ALL, LC_MESSAGES and LANG that is set. If that is "C", LANGUAGE does not count.
std::vector<std::string_view> wantedLocales() {
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (locale.empty()) locale = variable(name);
  }
  std::vector<std::string_view> wanted;
  std::string_view list = isC(locale) ? std::string_view() : variable("LANGUAGE");
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(':'), list.size());
    wanted.push_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  wanted.push_back(locale);
  return wanted;
}

}  // namespace

std::vector<std::string> preferredLanguages() {
  std::vector<std::string> languages;
  for (const std::string_view locale : wantedLocales()) {
    // language[_territory][.codeset][@modifier]
    const std::string_view language = locale.substr(0, locale.find_first_of(".@"));
    // Whoever has come to this one wants no translation.
    if (isC(language)) break;
    languages.emplace_back(language);
  }
  return languages;
}

}  // namespace corvane
