#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "operations/ErrorTemplateKeys.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/process/SystemVersionStandIn.h"
#include "tests/support/Locale.h"

namespace corvane {
namespace {

using Set = ZELPrivilegedOperationSet;
using tests::useLocale;

const std::string descriptionTemplate(ZELLocalizedDescriptionTemplateKey);
const std::string descriptionParameters(ZELLocalizedDescriptionParametersKey);
const std::string recoveryTemplate(ZELLocalizedRecoverySuggestionTemplateKey);
const std::string recoveryParameters(ZELLocalizedRecoverySuggestionParametersKey);

class ErrorLocalizationTest : public testing::Test {
 protected:
  void SetUp() override {
    useLocale({});
    usePoliteForms(false);
  }
  static void usePoliteForms(bool flag) { tests::useSystemVersion(flag ? "10.11.6" : "10.12"); }

  static std::string text(const std::optional<Error>& error, std::string_view key) {
    const Value* value = error->userInfo().find(key);
    return value != nullptr && value->string() != nullptr ? *value->string() : "(none)";
  }
  static std::string description(const std::optional<Error>& error) {
    return text(error, NSLocalizedDescriptionKey);
  }
  static std::string suggestion(const std::optional<Error>& error) {
    return text(error, NSLocalizedRecoverySuggestionErrorKey);
  }
};

TEST_F(ErrorLocalizationTest, BothPlaceholdersOfAnUntranslatedTemplateAreFilled) {
  EXPECT_EQ(Set::localizedStringForTemplate(
                "Please verify that the UNIX program $1$ is present at its standard path '$2$'.",
                Array{"chflags", "/usr/bin/chflags"}),
            "Please verify that the UNIX program chflags is present at its standard path "
            "'/usr/bin/chflags'.");
  EXPECT_EQ(Set::localizedStringForTemplate("No table has $2$, $1$ and $1$.", Array{"a", "b"}),
            "No table has b, a and a.");
}

TEST_F(ErrorLocalizationTest, TheFirstPlaceholderDoesNotTouchTheTenth) {
  Array parameters;
  for (int i = 1; i <= 11; ++i) parameters.emplace_back("p" + std::to_string(i));
  EXPECT_EQ(Set::localizedStringForTemplate("$1$ $10$ $11$ $12$", parameters), "p1 p10 p11 $12$");
}

TEST_F(ErrorLocalizationTest, AParameterMayBringThePlaceholderOfALaterOne) {
  EXPECT_EQ(Set::localizedStringForTemplate("$1$", Array{"$2$", "second"}), "second");
  EXPECT_EQ(Set::localizedStringForTemplate("$2$", Array{"first", "$1$"}), "$1$");
  EXPECT_EQ(Set::localizedStringForTemplate("$1$", Array{"$1$"}), "$1$");
}

TEST_F(ErrorLocalizationTest, WithoutParametersTheTemplateStaysAsItIs) {
  EXPECT_EQ(Set::localizedStringForTemplate("a $1$ b", Array{}), "a $1$ b");
}

TEST_F(ErrorLocalizationTest, NoErrorGivesNoneAndABareErrorItself) {
  EXPECT_EQ(Set::localizedErrorForPrivilegedOperationError(std::nullopt), std::nullopt);
  const Error bare = posixError(POSIXErrorCode::NoEntry);
  EXPECT_EQ(Set::localizedErrorForPrivilegedOperationError(bare), bare);
}

TEST_F(ErrorLocalizationTest, ATemplateWithoutParametersIsNotUsed) {
  const Error error(
      "domain", 1, Dictionary{{descriptionTemplate, "text $1$"}, {descriptionParameters, Array{}}});
  EXPECT_EQ(Set::localizedErrorForPrivilegedOperationError(error), error);
  const Error alone("domain", 1, Dictionary{{recoveryTemplate, "text"}});
  EXPECT_EQ(Set::localizedErrorForPrivilegedOperationError(alone), alone);
}

TEST_F(ErrorLocalizationTest, AnEmptyDescriptionGivesWayToTheTemplate) {
  const Error error("domain", 1,
                    Dictionary{{NSLocalizedDescriptionKey, ""},
                               {descriptionTemplate, "text $1$"},
                               {descriptionParameters, Array{"filled"}}});
  EXPECT_EQ(description(Set::localizedErrorForPrivilegedOperationError(error)), "text filled");
}

TEST_F(ErrorLocalizationTest, APlainTextGoesBeforeItsTemplate) {
  const Error error("domain", 1,
                    Dictionary{{NSLocalizedRecoverySuggestionErrorKey, "plain"},
                               {recoveryTemplate, "text $1$"},
                               {recoveryParameters, Array{"filled"}}});
  EXPECT_EQ(suggestion(Set::localizedErrorForPrivilegedOperationError(error)), "plain");
}

TEST_F(ErrorLocalizationTest, AllEntriesAreCarriedOver) {
  const Error error = operationError(whiteoutError, Array{"/p"}, "/p");
  const auto localized = Set::localizedErrorForPrivilegedOperationError(error);
  EXPECT_TRUE(localized->is(Set::errorDomain(), 4));
  EXPECT_EQ(localized->userInfo().size(), error.userInfo().size() + 1);
  EXPECT_EQ(text(localized, recoveryTemplate), whiteoutError.recovery);
  EXPECT_EQ(text(localized, NSFilePathErrorKey), "/p");
  EXPECT_EQ(suggestion(localized),
            "Please check the type of the object located at '/p'. Whiteouts cannot really exist in "
            "current versions of the operating system.");
}

TEST_F(ErrorLocalizationTest, UnderlyingErrorsAreLocalizedToo) {
  useLocale({{"LANG", "de_DE.UTF-8"}});
  const Error innermost("domain", 2,
                        Dictionary{{descriptionTemplate, failedRunError.recovery},
                                   {descriptionParameters, Array{"7"}}});
  const Error inner("domain", 1, Dictionary{{NSUnderlyingErrorKey, innermost}});
  const auto localized = Set::localizedErrorForPrivilegedOperationError(
      operationError(integrityProtectionError, Array{"/p"}, "/p", inner));
  EXPECT_EQ(description(localized), "Dein Computer schützt dieses Dateisystemobjekt.");
  const Error& found = *localized->userInfo().find(NSUnderlyingErrorKey)->error();
  EXPECT_EQ(description(*found.userInfo().find(NSUnderlyingErrorKey)->error()),
            "Das Betriebssystem konnte den angeforderten Vorgang nicht ausführen. Es hat den "
            "Fehlercode 7 gemeldet.");
}

TEST_F(ErrorLocalizationTest, ASystemWithPoliteFormsTakesThePoliteTwin) {
  useLocale({{"LANG", "de_DE.UTF-8"}});
  const Error error = operationError(missingUtilityError, Array{"x", "/bin/x"}, "/bin/x");
  EXPECT_EQ(
      suggestion(Set::localizedErrorForPrivilegedOperationError(error)),
      "Bitte prüfe, ob das UNIX-Programm x unter seinem Standardpfad „/bin/x“ vorhanden ist.");
  usePoliteForms(true);
  EXPECT_EQ(suggestion(Set::localizedErrorForPrivilegedOperationError(error)),
            "Bitte prüfen Sie, ob das UNIX-Programm x unter seinem Standardpfad „/bin/x“ vorhanden "
            "ist.");
}

TEST_F(ErrorLocalizationTest, WithoutAPoliteTwinThePlainTableIsUsed) {
  usePoliteForms(true);
  useLocale({{"LANG", "ja_JP.UTF-8"}});
  EXPECT_EQ(Set::localizedUIPolitenessAgnosticStringForKey(
                failedRunError.description, "", Set::nameOfErrorMessageLocalizationTable()),
            "操作を正常に完了できませんでした。");
  useLocale({{"LANGUAGE", "ja:de"}, {"LANG", "de_DE"}});
  EXPECT_EQ(Set::localizedUIPolitenessAgnosticStringForKey(
                failedRunError.description, "", Set::nameOfErrorMessageLocalizationTable()),
            "操作を正常に完了できませんでした。");
}

TEST_F(ErrorLocalizationTest, AnAbsentTableOrKeyGivesTheDefaultValue) {
  for (const bool polite : {false, true}) {
    usePoliteForms(polite);
    useLocale({{"LANG", "de_DE.UTF-8"}});
    EXPECT_EQ(Set::localizedUIPolitenessAgnosticStringForKey("key", "value", std::nullopt),
              "value");
    EXPECT_EQ(Set::localizedUIPolitenessAgnosticStringForKey("key", "value", "NoTable"), "value");
    EXPECT_EQ(Set::localizedUIPolitenessAgnosticStringForKey(
                  "key", "value", Set::nameOfErrorMessageLocalizationTable()),
              "value");
  }
}

TEST_F(ErrorLocalizationTest, ASetMayNameAnotherTable) {
  useLocale({{"LANG", "de_DE.UTF-8"}});
  const std::string prompt = "Vantor likes to uninstall the privileged auxiliary program.";
  const Error error("domain", 1, Dictionary{{NSLocalizedDescriptionKey, prompt}});
  EXPECT_EQ(description(Set::localizedErrorForPrivilegedOperationError(error)), prompt);
  EXPECT_EQ(description(Set::localizedErrorForPrivilegedOperationError(
                error, Set::nameOfAuthorizationRightLocalizationTable())),
            "Vantor möchte das privilegierte Hilfsprogramm deinstallieren.");
}

TEST_F(ErrorLocalizationTest, APreferencesErrorIsLocalizedByItsPlainTexts) {
  useLocale({{"LANG", "es_ES.UTF-8"}});
  usePoliteForms(true);
  const Error error(
      Set::errorDomain(), 7,
      Dictionary{{NSLocalizedDescriptionKey, preferencesWriteError.description},
                 {NSLocalizedRecoverySuggestionErrorKey, preferencesWriteError.recovery}});
  const auto localized = Set::localizedErrorForPrivilegedOperationError(error);
  EXPECT_EQ(description(localized), "No se ha podido actualizar correctamente una preferencia.");
  EXPECT_EQ(suggestion(localized),
            "El sistema operativo no ha podido cambiar una preferencia. Asegúrese de autenticarse "
            "como administrador.");
}

}  // namespace
}  // namespace corvane
