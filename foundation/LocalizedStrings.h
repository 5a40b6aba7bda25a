#ifndef CORVANE_FOUNDATION_LOCALIZEDSTRINGS_H
#define CORVANE_FOUNDATION_LOCALIZEDSTRINGS_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// The name of the strings table that is meant where none is named.
inline constexpr std::string_view defaultStringsTable = "Localizable";

/// The first of the user's preferred languages that the program has tables in, else "en": "de_AT"
/// is Austria's German where there is such, else German. Asked for at every call.
std::string userLanguage();

/// True if there is a strings table of this name in the user's language.
bool hasStringsTable(std::string_view table);

/// What `table` has for `key` in the user's language; else `value`, or the key itself if that is
/// empty. An absent or empty table name means `defaultStringsTable`.
std::string localizedString(std::string_view key, std::string_view value,
                            const std::optional<std::string>& table);

/// The keys that `table` has in English.
std::vector<std::string> stringsTableKeys(std::string_view table);

/// What `table` has for `key` in every language that has it, by the names of the languages.
std::map<std::string, std::string> translations(std::string_view key, std::string_view table);

}  // namespace corvane

#endif
