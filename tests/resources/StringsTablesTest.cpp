#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "client/cli/output/Translation.h"
#include "foundation/EmbeddedResources.h"
#include "foundation/PropertyList.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {
namespace {

const std::string errorTable = ZELPrivilegedOperationSet::nameOfErrorMessageLocalizationTable();
const std::string rightTable =
    ZELPrivilegedOperationSet::nameOfAuthorizationRightLocalizationTable();

const std::string clientTable = cli::clientStringsTable;

std::optional<Dictionary> tableAt(const std::string& path) {
  for (const EmbeddedResource& resource : embeddedResources()) {
    if (resource.path != path) continue;
    Result<Dictionary> table = readDictionary(resource.bytes);
    EXPECT_TRUE(table) << table.error().localizedDescription();
    if (table) return *std::move(table);
  }
  return std::nullopt;
}

std::string pathOf(std::string_view language, std::string_view table) {
  return std::string(language).append(".lproj/").append(table).append(".strings");
}

std::set<std::string> keysOf(const Dictionary& table) {
  std::set<std::string> keys;
  for (const auto& [key, text] : table) keys.insert(key);
  return keys;
}

/// The placeholders of a text, each as often as it occurs.
std::multiset<char> placeholdersOf(const std::string& text) {
  std::multiset<char> placeholders;
  for (std::size_t i = 0; i + 2 < text.size(); ++i) {
    if (text[i] == '$' && text[i + 2] == '$') placeholders.insert(text[i + 1]);
  }
  return placeholders;
}

std::set<std::string> errorTexts() {
  std::set<std::string> texts;
  for (const OperationErrorText* text : operationErrorTexts()) {
    texts.insert(text->description);
    texts.insert(text->recovery);
  }
  return texts;
}

std::set<std::string> rightTexts() {
  std::set<std::string> texts;
  ZELPrivilegedOperationSetVNT::privilegedOperationSet().enumerateRightDefinitionsUsingBlock(
      [&](const auto& /*right*/, const Value& /*rule*/, const std::string& description) {
        texts.insert(description);
      });
  return texts;
}

TEST(StringsTablesTest, TheSystemHasTheseTexts) {
  EXPECT_EQ(errorTexts().size(), 16U);
  EXPECT_EQ(rightTexts().size(), 8U);
  std::int64_t code = 0;
  for (const OperationErrorText* text : operationErrorTexts()) EXPECT_EQ(text->code, ++code);
}

class EveryLanguage : public testing::TestWithParam<const char*> {
 protected:
  static std::string path(const std::string& table) { return pathOf(GetParam(), table); }
};
INSTANTIATE_TEST_SUITE_P(StringsTablesTest, EveryLanguage,
                         testing::Values("en", "de", "fr", "es", "ja"));

TEST_P(EveryLanguage, HasEveryTextAndNoOther) {
  const bool hasPoliteForms = std::string_view("de fr es").find(GetParam()) != std::string::npos;
  const auto english = tableAt(pathOf("en", clientTable));
  ASSERT_TRUE(english);
  for (const auto& [table, texts] :
       {std::pair(errorTable, errorTexts()), std::pair(rightTable, rightTexts()),
        std::pair(clientTable, keysOf(*english))}) {
    const auto plain = tableAt(path(table));
    ASSERT_TRUE(plain) << table;
    EXPECT_EQ(keysOf(*plain), texts) << table;
    const auto polite = tableAt(path(table + "-Polite"));
    ASSERT_EQ(polite.has_value(), hasPoliteForms) << table;
    EXPECT_TRUE(!polite || keysOf(*polite) == texts) << table;
  }
}

TEST_P(EveryLanguage, KeepsThePlaceholders) {
  for (const std::string& table :
       {errorTable, errorTable + "-Polite", clientTable, clientTable + "-Polite"}) {
    const auto texts = tableAt(path(table));
    if (!texts) continue;
    for (const auto& [key, text] : *texts) {
      EXPECT_EQ(placeholdersOf(*text.string()), placeholdersOf(key)) << *text.string();
    }
  }
}

TEST_P(EveryLanguage, IsTranslatedUnlessItIsEnglish) {
  // What another language has as well.
  const std::set<std::string> shared = {"$1$: $2$", "CODE",         "OPTIONS", "Options",
                                        "PROBLEM",  "installation", "no",      "version"};
  for (const std::string& table : {errorTable, rightTable, clientTable}) {
    const auto texts = tableAt(path(table));
    ASSERT_TRUE(texts);
    for (const auto& [key, text] : *texts) {
      if (shared.contains(key)) continue;
      EXPECT_EQ(key == *text.string(), std::string_view(GetParam()) == "en") << key;
    }
  }
}

// What is said otherwise in the language's other texts, or breaks a line where none may end.
TEST_P(EveryLanguage, HasOneWordForOneThing) {
  const std::map<std::string, std::vector<std::string>> others = {
      {"de", {"Helfer", "Assistent"}},
      {"fr", {"assistant", " :", " ;", " ?", " !", " »", "« ", "\u202F"}},
      {"es", {"asistente", "ayudante", "comando"}},
      {"ja", {"ヘルパー", "ユーザー", "認証を破棄", "新たな認証"}}};
  const auto words = others.find(GetParam());
  if (words == others.end()) return;
  for (const std::string& table : {errorTable, rightTable, clientTable}) {
    for (const char* form : {"", "-Polite"}) {
      const auto texts = tableAt(path(table + form));
      if (!texts) continue;
      for (const auto& [key, text] : *texts) {
        for (const std::string& word : words->second) {
          EXPECT_EQ(text.string()->find(word), std::string::npos) << *text.string();
        }
      }
    }
  }
}

TEST(StringsTablesTest, PoliteFormsAreNoFamiliarOnes) {
  const std::map<std::string, std::vector<std::string>> familiar = {
      {"de", {" du ", " dich ", "deine", "Dein ", "prüfe,", "starte "}},
      {"fr", {" ton ", "Ton ", " t’", "Vérifie ", "Consulte "}},
      {"es", {" tu ", "Tu ", "Comprueba", "Asegúrate", "Consulta ", "Reinicia "}}};
  for (const auto& [language, words] : familiar) {
    const auto plain = tableAt(pathOf(language, errorTable));
    const auto polite = tableAt(pathOf(language, errorTable + "-Polite"));
    ASSERT_TRUE(plain && polite);
    int different = 0;
    for (const auto& [key, text] : *polite) {
      for (const std::string& word : words) {
        EXPECT_EQ(text.string()->find(word), std::string::npos) << *text.string();
      }
      different += text == *plain->find(key) ? 0 : 1;
    }
    EXPECT_GE(different, 8) << language;
  }
}

}  // namespace
}  // namespace corvane
