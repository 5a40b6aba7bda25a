#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/ProductVendor.h"
#include "platform/linux/authorization/polkit/ActionFile.h"

namespace corvane {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string rightName = "com.corvane.test.right";

TEST(ActionFileTest, RulesAreWhatPolkitCallsThem) {
  struct Case {
    const char* rule;
    const char* implicit;
  };
  for (const auto& [rule, implicit] : {Case{"allow", "yes"}, Case{"default", "auth_admin_keep"},
                                       Case{"authenticate-admin", "auth_admin"}}) {
    const auto text = actionFile(rightName, {rule, "", ""}, {});
    ASSERT_TRUE(text);
    for (const char* element : {"allow_any", "allow_inactive", "allow_active"}) {
      EXPECT_THAT(*text, ContainsRegex(std::string("<") + element + ">" + implicit + "</"));
    }
    EXPECT_EQ(readActionFile(*text, rightName)->rule, rule);
  }
  EXPECT_EQ(actionFile(rightName, {"something", "", ""}, {}), std::nullopt);
}

TEST(ActionFileTest, WhatIsKeptHasAnActionThatIsNot) {
  const std::string anew = "<action id=\"com.corvane.test.right.anew\">";
  const auto text = actionFile(rightName, {"default", "Sentence", ""}, {});
  EXPECT_THAT(*text, HasSubstr(anew));
  EXPECT_EQ(readActionFile(*text, anewActionOf(rightName)),
            (RightDefinition{"authenticate-admin", "Sentence", ""}));
  EXPECT_THAT(*actionFile(rightName, {"allow", "", ""}, {}), Not(HasSubstr(anew)));
  EXPECT_THAT(*actionFile(rightName, {"authenticate-admin", "", ""}, {}), Not(HasSubstr(anew)));
}

TEST(ActionFileTest, TheVendorIsThatOfTheProduct) {
  const auto ofFirst = actionFile(rightName, {"allow", "", ""}, {});
  EXPECT_THAT(*ofFirst, HasSubstr("<vendor>Corvane</vendor>\n"
                                  "  <vendor_url>https://www.corvane.com/</vendor_url>"));
  const std::string_view name = ProductVendor::name();
  const std::string_view url = ProductVendor::url();
  {
    const ProductVendor other("A & B", "");
    const auto ofOther = actionFile(rightName, {"allow", "", ""}, {});
    EXPECT_THAT(*ofOther, HasSubstr("<vendor>A &amp; B</vendor>\n  <icon_name>"));
  }
  const ProductVendor first(name, url);
  EXPECT_EQ(actionFile(rightName, {"allow", "", ""}, {}), ofFirst);
}

TEST(ActionFileTest, AnyTextComesBack) {
  for (const char* sentence : {"", " spaced ", "<a href=\"b\">&amp;</a>", "]]>", "a\nb\tc\rd",
                               "„ä“ 🗑", "<!-- -- -->", "%s $(x) 'y'",
                               "</message><defaults><allow_active>yes</allow_active></defaults>"}) {
    const auto text = actionFile(rightName, {"default", sentence, ""}, {});
    EXPECT_EQ(readActionFile(*text, rightName), (RightDefinition{"default", sentence, ""}));
  }
}

TEST(ActionFileTest, WhatXMLCannotHoldIsReplaced) {
  const std::string sentence("a\0b\x1b\xff\xed\xa0\x80\uFFFE", 11);
  const auto text = actionFile(rightName, {"allow", sentence, ""}, {});
  const auto definition = readActionFile(*text, rightName);
  ASSERT_TRUE(definition) << *text;
  EXPECT_EQ(definition->description.substr(0, 8), "a\uFFFDb\uFFFD");
}

TEST(ActionFileTest, TranslationsStandBesideTheSentence) {
  const auto text =
      actionFile(rightName, {"allow", "Sentence", ""}, {{"de", "<Satz>"}, {"pt_BR", "Frase"}});
  EXPECT_THAT(*text, HasSubstr("<message>Sentence</message>"));
  EXPECT_THAT(*text, HasSubstr("<message xml:lang=\"de\">&lt;Satz&gt;</message>"));
  EXPECT_THAT(*text, HasSubstr("<message xml:lang=\"pt_BR\">Frase</message>"));
  EXPECT_EQ(readActionFile(*text, rightName)->description, "Sentence");
}

TEST(ActionFileTest, ItSaysWhoseItIs) {
  const std::string text = actionFile(rightName, {"allow", "sentence", ""}, {}).value();
  for (const char* line :
       {"<vendor>Corvane</vendor>", "<vendor_url>https://www.corvane.com/</vendor_url>",
        "<icon_name>dialog-password</icon_name>"}) {
    EXPECT_LT(text.find(line), text.find("<action ")) << line;
  }
}

TEST(ActionFileTest, WhatSomeoneElseWroteIsRead) {
  const std::string text =
      "<policyconfig><action id='other'><message>no</message><defaults>"
      "<allow_active>yes</allow_active></defaults></action>"
      "<action id='com.corvane.test.right'><description>d</description>"
      "<message xml:lang='de'>nein</message><message>right</message>"
      "<defaults><allow_any>no</allow_any><allow_active>auth_self</allow_active></defaults>"
      "</action></policyconfig>";
  EXPECT_EQ(readActionFile(text, rightName), (RightDefinition{"auth_self", "right", ""}));
}

TEST(ActionFileTest, WhatIsNoActionFileIsNotRead) {
  for (const char* text : {"", "<policyconfig>", "text", "<policyconfig/>",
                           "<policyconfig><action id='com.corvane.test.right'/></policyconfig>"}) {
    EXPECT_EQ(readActionFile(text, rightName), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace corvane
