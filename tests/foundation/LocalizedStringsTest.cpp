#include <gtest/gtest.h>

#include "foundation/LocalizedStrings.h"
#include "tests/support/Locale.h"

namespace corvane {
namespace {

using tests::useLocale;

std::string languageFor(const std::map<std::string, std::string>& variables) {
  useLocale(variables);
  return userLanguage();
}

TEST(LocalizedStringsTest, TheFirstVariableThatIsSetTellsTheLocale) {
  EXPECT_EQ(languageFor({{"LANG", "de_DE.UTF-8"}}), "de");
  EXPECT_EQ(languageFor({{"LC_MESSAGES", "fr_FR"}, {"LANG", "de_DE"}}), "fr");
  EXPECT_EQ(languageFor({{"LC_ALL", "ja_JP"}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "de"}}), "ja");
  EXPECT_EQ(languageFor({{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "de"}}), "de");
  EXPECT_EQ(languageFor({}), "en");
}

TEST(LocalizedStringsTest, TheListOfLanguagesGoesFirst) {
  EXPECT_EQ(languageFor({{"LANGUAGE", "fr"}, {"LC_ALL", "de_DE"}}), "fr");
  EXPECT_EQ(languageFor({{"LANGUAGE", "xx:yy_YY:ja:fr"}, {"LANG", "de_DE"}}), "ja");
  EXPECT_EQ(languageFor({{"LANGUAGE", "xx"}, {"LANG", "de_DE"}}), "de");
  EXPECT_EQ(languageFor({{"LANGUAGE", ":"}, {"LANG", "de_DE"}}), "de");
  EXPECT_EQ(languageFor({{"LANGUAGE", "en_GB:de"}, {"LANG", "de_DE"}}), "en");
  EXPECT_EQ(languageFor({{"LANGUAGE", "fr"}}), "fr");
}

TEST(LocalizedStringsTest, TheLocaleCIsEnglishWhateverElseIsSet) {
  EXPECT_EQ(languageFor({{"LANGUAGE", "de"}, {"LC_ALL", "C"}, {"LANG", "de_DE"}}), "en");
  EXPECT_EQ(languageFor({{"LANGUAGE", "de"}, {"LANG", "POSIX"}}), "en");
  EXPECT_EQ(languageFor({{"LANG", "C.UTF-8"}}), "en");
  EXPECT_EQ(languageFor({{"LANGUAGE", "de"}, {"LANG", "C.UTF-8"}}), "de");
}

TEST(LocalizedStringsTest, ALocaleIsRegionThenLanguage) {
  EXPECT_EQ(languageFor({{"LANG", "de_AT.UTF-8@euro"}}), "de_AT");
  EXPECT_EQ(languageFor({{"LANG", "de_CH@euro"}}), "de");
  EXPECT_EQ(languageFor({{"LANG", "xx_XX"}}), "en");
  EXPECT_EQ(languageFor({{"LANG", "../de"}}), "en");
}

TEST(LocalizedStringsTest, TablesAreReadInEveryEncoding) {
  useLocale({{"LANG", "de_DE"}});
  EXPECT_EQ(localizedString("key", "value", "Table"), "Schl\xC3\xBCssel");
  useLocale({{"LANG", "fr_FR"}});
  EXPECT_EQ(localizedString("key", "value", "Table"), "\xC3\xA9t\xC3\xA9");
  useLocale({{"LANG", "ja_JP"}});
  EXPECT_EQ(localizedString("key", "value", "Table"), "\xE6\x97\xA5\xE6\x9C\xAC");
}

TEST(LocalizedStringsTest, WhatIsMissingIsTheValueOrElseTheKey) {
  useLocale({{"LANG", "de_DE"}});
  EXPECT_EQ(localizedString("absent", "value", "Table"), "value");
  EXPECT_EQ(localizedString("absent", "", "Table"), "absent");
  EXPECT_EQ(localizedString("key", "value", "NoTable"), "value");
  useLocale({{"LANG", "fr_FR"}});
  EXPECT_EQ(localizedString("key", "value", "Damaged"), "value");
  EXPECT_EQ(localizedString("only", "value", "Other"), "value");
}

TEST(LocalizedStringsTest, WithoutANameTheTableIsTheDefaultOne) {
  useLocale({{"LANG", "de_DE"}});
  EXPECT_EQ(localizedString("key", "value", std::nullopt), "ohne Namen");
  EXPECT_EQ(localizedString("key", "value", ""), "ohne Namen");
}

TEST(LocalizedStringsTest, ATableIsLookedForInTheUsersLanguage) {
  useLocale({{"LANG", "de_DE"}});
  EXPECT_TRUE(hasStringsTable("Other"));
  useLocale({{"LANG", "fr_FR"}});
  EXPECT_FALSE(hasStringsTable("Other"));
}

TEST(LocalizedStringsTest, TranslationsAreThoseOfAllLanguages) {
  using Texts = std::map<std::string, std::string>;
  EXPECT_EQ(translations("key", "Table"), (Texts{{"de", "Schl\xC3\xBCssel"},
                                                 {"de_AT", "Schlissl"},
                                                 {"en", "English"},
                                                 {"fr", "\xC3\xA9t\xC3\xA9"},
                                                 {"ja", "\xE6\x97\xA5\xE6\x9C\xAC"}}));
  EXPECT_EQ(translations("only", "Other"), (Texts{{"de", "nur"}}));
  EXPECT_EQ(translations("absent", "Table"), Texts());
}

}  // namespace
}  // namespace corvane
