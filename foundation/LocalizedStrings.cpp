#include "foundation/LocalizedStrings.h"

#include <functional>
#include <map>

#include "foundation/EmbeddedResources.h"
#include "foundation/NoDestructor.h"
#include "foundation/PreferredLanguages.h"
#include "foundation/PropertyList.h"

namespace corvane {

namespace {

constexpr std::string_view folderSuffix = ".lproj/";
constexpr std::string_view fileSuffix = ".strings";
constexpr std::string_view politeSuffix = "-Polite";
constexpr std::string_view english = "en";

using Table = std::map<std::string, std::string, std::less<>>;
/// The tables by language, and of each language by name.
using Tables = std::map<std::string, std::map<std::string, Table, std::less<>>, std::less<>>;

Table tableFrom(std::span<const std::byte> bytes) {
  Table table;
  const Result<Dictionary> entries = readDictionary(bytes);
  if (!entries) return table;
  for (const auto& [key, text] : *entries) {
    if (text.string() != nullptr) table.emplace(key, *text.string());
  }
  return table;
}

// The texts of the files, each table by table. A text that is there already stays.
void addTables(Tables& all, std::span<const EmbeddedResource> resources) {
  for (const EmbeddedResource& resource : resources) {
    const std::size_t folder = resource.path.find(folderSuffix);
    if (folder == std::string_view::npos || !resource.path.ends_with(fileSuffix)) continue;
    std::string_view name = resource.path.substr(folder + folderSuffix.size());
    name.remove_suffix(fileSuffix.size());
    all[std::string(resource.path.substr(0, folder))][std::string(name)].merge(
        tableFrom(resource.bytes));
  }
}

// A product without a polite table has its plain texts in the one that every program has, which is
// all that is looked into where texts are polite.
void addPoliteTexts(Tables& all, const Tables& product) {
  for (const auto& [language, tables] : product) {
    for (const auto& [name, table] : tables) {
      const auto polite = all[language].find(name + std::string(politeSuffix));
      if (polite != all[language].end()) polite->second.insert(table.begin(), table.end());
    }
  }
}

const Tables& tables() {
  static NoDestructor<const Tables> tables([] {
    Tables product;
    addTables(product, ProductResources::files());
    Tables all = product;
    addTables(all, embeddedResources());
    addPoliteTexts(all, product);
    return all;
  }());
  return *tables;
}

const Table* tableNamed(std::string_view name) {
  const auto language = tables().find(userLanguage());
  if (language == tables().end()) return nullptr;
  const auto table = language->second.find(name);
  return table == language->second.end() ? nullptr : &table->second;
}

}  // namespace

std::string userLanguage() {
  for (const std::string& wanted : preferredLanguages()) {
    for (const std::string& name : {wanted, wanted.substr(0, wanted.find('_'))}) {
      if (tables().contains(name)) return name;
    }
  }
  return std::string(english);
}

bool hasStringsTable(std::string_view table) {
  return tableNamed(table) != nullptr;
}

std::string localizedString(std::string_view key, std::string_view value,
                            const std::optional<std::string>& table) {
  const bool isNamed = table && !table->empty();
  if (const Table* found = tableNamed(isNamed ? std::string_view(*table) : defaultStringsTable)) {
    const auto text = found->find(key);
    if (text != found->end()) return text->second;
  }
  return std::string(value.empty() ? key : value);
}

std::vector<std::string> stringsTableKeys(std::string_view table) {
  std::vector<std::string> keys;
  const auto language = tables().find(english);
  if (language == tables().end()) return keys;
  const auto found = language->second.find(table);
  if (found == language->second.end()) return keys;
  keys.reserve(found->second.size());
  for (const auto& [key, text] : found->second) keys.push_back(key);
  return keys;
}

std::map<std::string, std::string> translations(std::string_view key, std::string_view table) {
  std::map<std::string, std::string> texts;
  for (const auto& [language, all] : tables()) {
    const auto found = all.find(table);
    if (found == all.end()) continue;
    const auto text = found->second.find(key);
    if (text != found->second.end()) texts.emplace(language, text->second);
  }
  return texts;
}

}  // namespace corvane
