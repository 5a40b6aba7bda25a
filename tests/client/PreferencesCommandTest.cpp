#include <gtest/gtest.h>

#include "platform/Preferences.h"
#include "tests/support/PreferencesTree.h"

namespace corvane {
namespace {

const std::string currentUser(kCFPreferencesCurrentUser);
const std::string anyUser(kCFPreferencesAnyUser);
const std::string command = "LC_ALL=C " CLIENT_PROGRAM;
const std::string getCommand = command + " preferences get --any-host --app " + application + " ";

class PreferencesCommandTest : public PreferencesTree {};

TEST_F(PreferencesCommandTest, WhatIsSetIsPrintedAsText) {
  ASSERT_TRUE(set("text",
                  "a \t \xc2\x9b"
                  "1mtext",
                  currentUser));
  ASSERT_TRUE(set("number", -5, currentUser));
  ASSERT_TRUE(set("flag", true, currentUser));
  ASSERT_TRUE(set("list", Array{"x"}, currentUser));
  EXPECT_EQ(outputOf(getCommand + "text"),
            "a \t \xc2\x9b"
            "1mtext\n");
  EXPECT_EQ(outputOf(getCommand + "number"), "-5\n");
  EXPECT_EQ(outputOf(getCommand + "flag"), "true\n");
  EXPECT_NE(outputOf(getCommand + "list").find("<array>\n\t<string>x</string>\n</array>"),
            std::string::npos);
}

TEST_F(PreferencesCommandTest, ATerminalIsShownNoControlCharacters) {
  ASSERT_TRUE(set("text",
                  "a \t \xc2\x9b"
                  "1mtext",
                  currentUser));
  ASSERT_TRUE(set("list",
                  Array{"\xc2\x9b"
                        "1m"},
                  currentUser));
  const auto onTerminal = [](const std::string& arguments) {
    return outputOf("script -qec '" + getCommand + arguments + "' /dev/null </dev/null");
  };
  EXPECT_EQ(onTerminal("text"), "a \t ?1mtext\r\n");
  EXPECT_NE(onTerminal("list").find("<array>\r\n\t<string>?1m</string>\r\n</array>"),
            std::string::npos);
}

TEST_F(PreferencesCommandTest, TheOptionsChooseTheDomain) {
  ASSERT_TRUE(set("key", "shared", anyUser));
  ASSERT_TRUE(set("key", "own", currentUser));
  EXPECT_EQ(outputOf(getCommand + "key"), "own\n");
  EXPECT_EQ(outputOf(getCommand + "--any-user key"), "shared\n");
}

TEST_F(PreferencesCommandTest, JSONHasTheValueWithItsKind) {
  ASSERT_TRUE(set("key", Dictionary{{"a", Array{1, true, "x"}}}, currentUser));
  const std::string script =
      "import json,sys\n"
      "o=json.load(sys.stdin)\n"
      "assert o[\"result\"][\"value\"]=={\"a\":[1,True,\"x\"]}, o\n"
      "assert o[\"code\"]==0\n";
  outputOf(command + " --json preferences get --any-host --app " + application +
           " key | /usr/bin/python3 -c '" + script + "'");
}

TEST_F(PreferencesCommandTest, WhatIsNotThereFails) {
  EXPECT_EQ(outputOf(getCommand + "key 2>&1; echo $?"),
            "Cannot read the preference 'key': There is no such preference, or it cannot be "
            "read.\nCheck its name, and whose it is: application, user and host.\n1\n");
}

TEST_F(PreferencesCommandTest, AFailureIsToldInTheUsersLanguage) {
  const std::string german = "unset LC_ALL LANGUAGE; LC_MESSAGES=de_DE.UTF-8 " CLIENT_PROGRAM
                             " preferences get --any-host --app " +
                             application + " key 2>&1; echo $?";
  EXPECT_EQ(
      outputOf(german),
      "Die Einstellung „key“ kann nicht gelesen werden: Diese Einstellung gibt es nicht, oder "
      "sie kann nicht gelesen werden.\nBitte prüfen Sie ihren Namen und zu wem sie gehört: "
      "Programm, Benutzer und Rechner.\n1\n");
}

TEST_F(PreferencesCommandTest, OptionsThatExcludeEachOtherAreAnUsageError) {
  const std::string output =
      outputOf(command + " preferences get --app x --global key 2>&1 >/dev/null; echo $?");
  EXPECT_TRUE(output.ends_with("\n2\n")) << output;
}

}  // namespace
}  // namespace corvane
