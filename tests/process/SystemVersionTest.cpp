#include <string>

#include <gtest/gtest.h>

#include "process/NSProcessInfoZELAdditions.h"
#include "process/ZELOSVersionInfoCache.h"
#include "tests/process/SystemVersionStandIn.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

struct VersionCase {
  const char* name;
  const char* version;
  std::int64_t code;
  const char* marketingName;
  bool polite;
};

class SystemVersionTest : public testing::TestWithParam<VersionCase> {};

TEST_P(SystemVersionTest, FollowsFromTheVersionString) {
  tests::useSystemVersion(GetParam().version);
  EXPECT_EQ(operatingSystemVersionNumberString(), GetParam().version);
  EXPECT_EQ(operatingSystemVersionCode(), GetParam().code);
  EXPECT_EQ(operatingSystemMarketingName(), GetParam().marketingName);
  EXPECT_EQ(shouldUIUsePoliteForms(), GetParam().polite);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, SystemVersionTest,
    testing::Values(VersionCase{"Code107FIsMacOSX", "10.7.15", 0x107F, "Mac OS X", true},
                    VersionCase{"Code1080IsOSX", "10.8", 0x1080, "OS X", true},
                    VersionCase{"Code10BFIsOSX", "10.11.15", 0x10BF, "OS X", true},
                    VersionCase{"Code10C0IsMacOS", "10.12", 0x10C0, "macOS", false},
                    VersionCase{"Lion", "10.7.5", 4213, "Mac OS X", true},
                    VersionCase{"MountainLion", "10.8.0", 4224, "OS X", true},
                    VersionCase{"ElCapitan", "10.11.6", 4278, "OS X", true},
                    VersionCase{"HighSierra", "10.13.6", 4310, "macOS", false},
                    VersionCase{"MajorElevenIsOneOne", "11.0.1", 4353, "macOS", false},
                    VersionCase{"MinorSixteenCarries", "10.16", 4352, "macOS", false},
                    VersionCase{"PatchSixteenCarries", "10.11.16", 0x10C0, "macOS", false},
                    VersionCase{"NoMajorIsTen", "X", 0x1000, "Mac OS X", true},
                    VersionCase{"NoMajorStillScansTheRest", ".13.6", 0x10D6, "macOS", false},
                    VersionCase{"NoMinorIsZero", "10.X.6", 0x1000, "Mac OS X", true},
                    VersionCase{"DotsAreOptional", "10 13 6", 0x10D6, "macOS", false},
                    VersionCase{"TextAfterwardsIsIgnored", "10.13.6 beta", 0x10D6, "macOS", false},
                    VersionCase{"SignsAreRead", "+10.-1", 0xFF0, "Mac OS X", true},
                    VersionCase{"HundredHasTwoDigits", "100.0.0", 0xA000, "macOS", false}),
    [](const auto& info) { return info.param.name; });

TEST(SystemVersionFileTest, HugeNumbersWrap) {
  tests::useSystemVersion("10.99999999999999999999");
  EXPECT_EQ(operatingSystemVersionCode(), 0x1000 - 0x10);
  tests::useSystemVersion("10.-99999999999999999999");
  EXPECT_EQ(operatingSystemVersionCode(), 0x1000);
}

TEST(SystemVersionFileTest, GivesNameVersionAndBuild) {
  const TemporaryFolder folder;
  tests::useSystemVersionFile(
      folder.makeFile("v.plist",
                      R"(<plist version="1.0"><dict><key>ProductName</key><string>Mac OS X</string>
         <key>ProductVersion</key><string>10.13.6</string>
         <key>ProductBuildVersion</key><string>17G65</string></dict></plist>)"));
  EXPECT_EQ(operatingSystemProductName(), "Mac OS X");
  EXPECT_EQ(operatingSystemVersionNumberString(), "10.13.6");
  EXPECT_EQ(operatingSystemBuildCode(), "17G65");
  EXPECT_EQ(operatingSystemMarketingName(), "macOS");
}

TEST(SystemVersionFileTest, MissingKeysAreAbsentTexts) {
  const TemporaryFolder folder;
  tests::useSystemVersionFile(folder.makeFile(
      "v.plist",
      R"(<plist version="1.0"><dict><key>Other</key><string>x</string></dict></plist>)"));
  EXPECT_EQ(operatingSystemProductName(), std::nullopt);
  EXPECT_EQ(operatingSystemVersionNumberString(), std::nullopt);
  EXPECT_EQ(operatingSystemBuildCode(), std::nullopt);
  EXPECT_EQ(operatingSystemVersionCode(), 4096);
  EXPECT_EQ(operatingSystemMarketingName(), "Mac OS X");
  EXPECT_TRUE(shouldUIUsePoliteForms());
}

TEST(SystemVersionFileTest, EmptyVersionStringIsAnUnknownVersion) {
  tests::useSystemVersion("");
  EXPECT_EQ(operatingSystemVersionNumberString(), "");
  EXPECT_EQ(operatingSystemVersionCode(), 4096);
  EXPECT_EQ(operatingSystemMarketingName(), "Mac OS X");
}

class UnusableSystemVersionFileTest : public testing::TestWithParam<const char*> {};

TEST_P(UnusableSystemVersionFileTest, GivesEmptyTextsAndPoliteForms) {
  const TemporaryFolder folder;
  tests::useSystemVersionFile(folder.makeFile("v.plist", GetParam()));
  EXPECT_EQ(operatingSystemProductName(), "");
  EXPECT_EQ(operatingSystemMarketingName(), "");
  EXPECT_EQ(operatingSystemVersionNumberString(), "");
  EXPECT_EQ(operatingSystemBuildCode(), "");
  EXPECT_EQ(operatingSystemVersionCode(), 4096);
  EXPECT_TRUE(shouldUIUsePoliteForms());
}

INSTANTIATE_TEST_SUITE_P(Files, UnusableSystemVersionFileTest,
                         testing::Values("", "<plist version=\"1.0\"><dict/></plist>",
                                         "<plist version=\"1.0\"><array/></plist>",
                                         "<plist version=\"1.0\"><dict><key>ProductVersion</key>"));

TEST(SystemVersionFileTest, MissingFileGivesEmptyTexts) {
  tests::useSystemVersionFile("/nonexistent/SystemVersion.plist");
  EXPECT_EQ(operatingSystemProductName(), "");
  EXPECT_EQ(operatingSystemMarketingName(), "");
  EXPECT_EQ(operatingSystemVersionNumberString(), "");
  EXPECT_EQ(operatingSystemBuildCode(), "");
  EXPECT_EQ(operatingSystemVersionCode(), 4096);
  EXPECT_TRUE(shouldUIUsePoliteForms());
}

TEST(SystemVersionFileTest, IsReadOnceUntilUpdated) {
  const TemporaryFolder folder;
  const auto file = [&](const std::string& build) {
    return folder.makeFile(
        "v.plist", "<plist version=\"1.0\"><dict><key>ProductBuildVersion</key><string>" + build +
                       "</string></dict></plist>");
  };
  tests::useSystemVersionFile(file("first"));
  EXPECT_EQ(operatingSystemBuildCode(), "first");
  file("second");
  EXPECT_EQ(operatingSystemBuildCode(), "first");
  updateVersionInfo();
  EXPECT_EQ(operatingSystemBuildCode(), "second");
}

}  // namespace
}  // namespace corvane
