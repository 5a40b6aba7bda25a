#include <gtest/gtest.h>

#include "client/cli/output/Prompt.h"
#include "foundation/Unicode.h"
#include "platform/Preferences.h"
#include "tests/support/Locale.h"

namespace corvane::cli {
namespace {

class PromptTest : public testing::Test {
 protected:
  ~PromptTest() override { tests::useLocale({}); }
};

std::size_t lengthOf(std::string_view text) {
  std::size_t length = 0;
  while (takeUTF8Character(text)) ++length;
  EXPECT_EQ(text, "");
  return length;
}

TEST_F(PromptTest, SaysWhatIsToBeDoneAndToWhat) {
  EXPECT_EQ(promptToDelete({"/a/b"}, false), "Authorization is needed to delete '/a/b'.");
  EXPECT_EQ(promptToDelete({"/a/b"}, true),
            "Authorization is needed to delete '/a/b' with all that is in it.");
  EXPECT_EQ(promptToDelete({"/a", "/b", "/c"}, false),
            "Authorization is needed to delete '/a' and 2 more.");
  EXPECT_EQ(promptToDelete({"/a", "/b"}, true),
            "Authorization is needed to delete '/a' and 1 more with all that is in them.");
  EXPECT_EQ(promptToRun("launchctl", {"list", "a b"}),
            "Authorization is needed to run 'launchctl list a b' as root.");
}

TEST_F(PromptTest, SaysWhosePreferenceItIs) {
  const std::string all(NSGlobalDomain);
  EXPECT_EQ(promptToSetPreference("Key", "com.example.app", "alice"),
            "Authorization is needed to set the preference 'Key' "
            "(application: com.example.app; user: alice).");
  EXPECT_EQ(promptToRemovePreference("Key", all, std::string(kCFPreferencesAnyUser)),
            "Authorization is needed to remove the preference 'Key' "
            "(application: all applications; user: all users).");
  EXPECT_EQ(promptToSetPreference("Key", all, std::string(kCFPreferencesCurrentUser)),
            "Authorization is needed to set the preference 'Key' "
            "(application: all applications; user: root).");
}

TEST_F(PromptTest, NoNameEndsItsQuotesOrStandsForAnother) {
  EXPECT_EQ(promptToDelete({"/x'.\n\"Enter\" $2$", "/y"}, false),
            "Authorization is needed to delete '/x’.?’Enter’ ＄2＄' and 1 more.");
  EXPECT_EQ(promptToRun("a\x1b[31m\xff", {}),
            "Authorization is needed to run 'a?[31m\uFFFD' as root.");
}

TEST_F(PromptTest, ALongNameIsCutInItsMiddle) {
  const std::string path = "/" + std::string(500, 'x') + "/name";
  const std::string prompt = promptToDelete({path, "/y"}, false);
  EXPECT_EQ(lengthOf(prompt), maximumPromptLength);
  EXPECT_TRUE(prompt.starts_with("Authorization is needed to delete '/xxx")) << prompt;
  EXPECT_TRUE(prompt.ends_with("xxx/name' and 1 more.")) << prompt;
  EXPECT_NE(prompt.find("x…x"), std::string::npos);
}

TEST_F(PromptTest, IsNeverTooLongInAnyLanguage) {
  for (const char* language : {"C", "de", "fr", "es", "ja"}) {
    tests::useLocale({{"LANG", language}});
    for (const std::size_t length : {1U, 60U, 100U, 150U, 200U, 300U, 100'000U}) {
      std::string name;
      for (std::size_t i = 0; i < length; ++i) name += i % 2 == 0 ? "😀" : "'";
      for (const std::string& other : {std::string("short"), name}) {
        for (const std::string& prompt :
             {promptToDelete({name}, true), promptToDelete({name, other}, true),
              promptToDelete({name}, false), promptToDelete({name, other}, false),
              promptToRun(name, {other}), promptToSetPreference(name, other, name),
              promptToRemovePreference(other, name, name)}) {
          EXPECT_LE(lengthOf(prompt), maximumPromptLength) << prompt;
        }
      }
    }
  }
}

}  // namespace
}  // namespace corvane::cli
