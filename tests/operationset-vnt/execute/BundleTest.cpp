#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Bundle.h"
#include "tests/operationset-vnt/execute/ApplicationBundle.h"

namespace corvane {
namespace {

using tests::ApplicationBundle;

std::optional<std::string> executableOf(const std::string& path) {
  const auto bundle = Bundle::bundleWithPath(path);
  EXPECT_TRUE(bundle);
  return bundle ? bundle->executablePath() : std::nullopt;
}

TEST(BundleTest, KnowsItsExecutable) {
  const ApplicationBundle application;
  EXPECT_EQ(executableOf(application.path()), application.path("MacOS/Application"));
  EXPECT_EQ(Bundle::bundleWithPath(application.path())->bundlePath(), application.path());
}

TEST(BundleTest, ReadsItsInformationPropertyList) {
  const ApplicationBundle application;
  const auto bundle = Bundle::bundleWithPath(application.path());
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->infoDictionary(), (Dictionary{{"CFBundleExecutable", "Application"}}));
}

TEST(BundleTest, FoldersAndFilesWithoutAnInformationPropertyListAreNoBundles) {
  using namespace std::string_literals;
  const ApplicationBundle application;
  EXPECT_FALSE(Bundle::bundleWithPath(""));
  EXPECT_FALSE(Bundle::bundleWithPath("/nonexistent"));
  EXPECT_FALSE(Bundle::bundleWithPath("/"));
  EXPECT_FALSE(Bundle::bundleWithPath(application.path("Info.plist")));
  EXPECT_FALSE(Bundle::bundleWithPath(application.path() + "\0x"s));
  // Cut where the system would, this is a property list.
  EXPECT_FALSE(Bundle::bundleWithPath(application.path("Info.plist") + "\0x"s));
}

TEST(BundleTest, InformationPropertyListMustBeAFileThatHoldsADictionary) {
  const ApplicationBundle application;
  const std::string info = application.path("Info.plist");
  const auto isBundle = [&] { return Bundle::bundleWithPath(application.path()).has_value(); };
  application.folder().makeFile("Application.app/Contents/Info.plist", "damaged");
  EXPECT_FALSE(isBundle());
  application.folder().makeFile("Application.app/Contents/Info.plist",
                                "<plist version=\"1.0\"><array/></plist>");
  EXPECT_FALSE(isBundle());
  application.setExecutableName("<string>" + std::string(2 << 20, 'x') + "</string>");
  EXPECT_FALSE(isBundle());
  // Too large, though sound as far as it would be read.
  application.folder().makeFile(
      "Application.app/Contents/Info.plist",
      "<plist version=\"1.0\"><dict/></plist>" + std::string(2 << 20, ' '));
  EXPECT_FALSE(isBundle());
  std::filesystem::remove(info);
  ASSERT_EQ(mkdir(info.c_str(), 0755), 0);
  EXPECT_FALSE(isBundle());
  std::filesystem::remove(info);
  // Opening this one would wait for a writer.
  ASSERT_EQ(mkfifo(info.c_str(), 0644), 0);
  EXPECT_FALSE(isBundle());
  std::filesystem::remove(info);
  ASSERT_EQ(symlink("/dev/zero", info.c_str()), 0);
  EXPECT_FALSE(isBundle());
}

TEST(BundleTest, ExecutableMustBeNamedByAFileName) {
  const ApplicationBundle application;
  application.folder().makeFile("Application.app/Contents/outside");
  for (const char* element :
       {"<string></string>", "<string>.</string>", "<string>..</string>", "<integer>1</integer>",
        "<string>../outside</string>", "<string>/bin/sh</string>", "<string>missing</string>",
        "<string>./Application</string>"}) {
    application.setExecutableName(element);
    EXPECT_EQ(executableOf(application.path()), std::nullopt) << element;
  }
  application.folder().makeFile("Application.app/Contents/Info.plist",
                                "<plist version=\"1.0\"><dict/></plist>");
  EXPECT_EQ(executableOf(application.path()), std::nullopt);
}

TEST(BundleTest, ExecutableMustBeAFile) {
  const ApplicationBundle application;
  application.folder().makeFile("Application.app/Contents/MacOS/folder/file");
  application.setExecutableName("<string>folder</string>");
  EXPECT_EQ(executableOf(application.path()), std::nullopt);
}

TEST(BundleTest, ExecutableMayBeALinkInsideTheBundleAndNotOutOfIt) {
  const ApplicationBundle application;
  const std::string executable = application.path("MacOS/Application");
  std::filesystem::rename(executable, application.path("Real"));
  ASSERT_EQ(symlink("../Real", executable.c_str()), 0);
  EXPECT_EQ(executableOf(application.path()), executable);

  // The path to the bundle may itself lead through a link.
  const std::string alias = application.folder().path("Alias.app");
  ASSERT_EQ(symlink("Application.app", alias.c_str()), 0);
  EXPECT_EQ(executableOf(alias), alias + "/Contents/MacOS/Application");

  std::filesystem::remove(executable);
  ASSERT_EQ(symlink("/bin/sh", executable.c_str()), 0);
  EXPECT_EQ(executableOf(application.path()), std::nullopt);
}

TEST(BundleTest, FolderOfTheExecutableMustNotLeadOutOfTheBundle) {
  const ApplicationBundle application;
  // A name that begins like the bundle's is not inside it.
  application.folder().makeScript("Application.app2/Application", "");
  std::filesystem::remove_all(application.path("MacOS"));
  ASSERT_EQ(symlink("../../Application.app2", application.path("MacOS").c_str()), 0);
  EXPECT_EQ(executableOf(application.path()), std::nullopt);
}

}  // namespace
}  // namespace corvane
