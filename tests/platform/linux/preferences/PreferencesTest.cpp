#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "foundation/PropertyList.h"
#include "platform/Preferences.h"
#include "tests/support/Files.h"
#include "tests/support/PreferencesTree.h"

namespace corvane {
namespace {

using testing::HasSubstr;

const std::string anyUser(kCFPreferencesAnyUser);
const std::string currentUser(kCFPreferencesCurrentUser);
const std::string anyHost(kCFPreferencesAnyHost);
const std::string currentHost(kCFPreferencesCurrentHost);
const std::string anyApplication(kCFPreferencesAnyApplication);

struct stat statusOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

/// The value of an extended attribute, or nothing.
std::optional<std::string> attributeOf(const std::filesystem::path& path, const char* name) {
  std::array<char, 256> value{};
  const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
  return size < 0 ? std::nullopt
                  : std::optional(std::string(value.data(), static_cast<std::size_t>(size)));
}

bool setAttribute(const std::filesystem::path& path, const char* name, const std::string& value) {
  return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

/// An access control list, as the kernel takes it, that lets the user "nobody" read and write.
std::string accessListForNobody() {
  std::string list = {2, 0, 0, 0};
  const auto add = [&list](char tag, char rights, std::uint32_t id) {
    list += {tag, 0, rights, 0};
    for (unsigned i = 0; i < 4; ++i) list += static_cast<char>(id >> 8 * i & 0xFFU);
  };
  add(0x01, 6, UINT32_MAX);                    // the owner
  add(0x02, 6, ::getpwnam("nobody")->pw_uid);  // a named user
  add(0x04, 4, UINT32_MAX);                    // the group
  add(0x10, 6, UINT32_MAX);                    // what these may have at most
  add(0x20, 0, UINT32_MAX);                    // everybody
  return list;
}

constexpr const char* accessList = "system.posix_acl_access";

class PreferencesTest : public PreferencesTree {};

TEST_F(PreferencesTest, EveryDomainHasItsFile) {
  struct Case {
    std::string application;
    std::string user;
    std::string host;
    Path file;
  };
  const std::vector<Case> cases = {
      {application, anyUser, anyHost, sharedFolder() / (application + ".plist")},
      {application, currentUser, anyHost, ownFolder() / (application + ".plist")},
      {application, anyUser, currentHost, sharedFolder() / "ByHost" / hostFileName(application)},
      {application, currentUser, currentHost, ownFolder() / "ByHost" / hostFileName(application)},
      {anyApplication, anyUser, anyHost, sharedFolder() / ".GlobalPreferences.plist"},
      {anyApplication, currentUser, currentHost,
       ownFolder() / "ByHost" / hostFileName(".GlobalPreferences")},
  };
  for (const Case& domain : cases) {
    ASSERT_FALSE(std::filesystem::exists(domain.file)) << domain.file;
    CFPreferencesSetValue("key", domain.file.string(), domain.application, domain.user,
                          domain.host);
    ASSERT_TRUE(CFPreferencesSynchronize(domain.application, domain.user, domain.host))
        << domain.file;
    EXPECT_EQ(preferencesIn(domain.file), (Dictionary{{"key", domain.file.string()}}));
  }
  for (const Case& domain : cases) {
    EXPECT_EQ(CFPreferencesCopyValue("key", domain.application, domain.user, domain.host),
              Value(domain.file.string()));
  }
}

TEST_F(PreferencesTest, TheMachinesOwnNameIsTheCurrentHost) {
  std::array<char, 256> name{};
  ASSERT_EQ(::gethostname(name.data(), name.size() - 1), 0);
  CFPreferencesSetValue("key", 1, application, currentUser, name.data());
  ASSERT_TRUE(CFPreferencesSynchronize(application, currentUser, name.data()));
  EXPECT_EQ(CFPreferencesCopyValue("key", application, currentUser, currentHost), Value(1));
}

TEST_F(PreferencesTest, ANamedUsersFileBelongsToThatUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  otherHome();
  ASSERT_TRUE(set("key", "value", "nobody"));
  const Path file = otherFolder() / (application + ".plist");
  EXPECT_EQ(preferencesIn(file), (Dictionary{{"key", "value"}}));
  EXPECT_EQ(statusOf(file).st_uid, otherUser());
  EXPECT_EQ(statusOf(file).st_mode & 0777U, 0600U);
  EXPECT_EQ(statusOf(otherFolder()).st_uid, otherUser());
  EXPECT_EQ(statusOf(otherFolder()).st_mode & 0777U, 0700U);
  EXPECT_EQ(get("key", "nobody"), Value("value"));
  EXPECT_EQ(get("key", currentUser), std::nullopt);
}

TEST_F(PreferencesTest, WhatWasSynchronizedIsNotWrittenOnceMore) {
  ASSERT_TRUE(set("key", "ours", currentUser));
  writeFile(ownFolder() / (application + ".plist"),
            "<plist><dict><key>key</key><string>another's</string></dict></plist>");
  ASSERT_TRUE(set("other", "ours", currentUser));
  EXPECT_EQ(get("key", currentUser), Value("another's"));
}

TEST_F(PreferencesTest, TheSharedFileIsReadableByAll) {
  ASSERT_TRUE(set("key", "value", anyUser));
  EXPECT_EQ(statusOf(sharedFolder() / (application + ".plist")).st_mode & 0777U, 0644U);
}

TEST_F(PreferencesTest, AnExistingFileKeepsItsFormatPermissionsOrderAndTheOtherKeys) {
  const Dictionary written{{"z", Date{1.5}},
                           {"key", "old"},
                           {"a", dataFromString("\xFF")},
                           {"big", std::numeric_limits<std::uint64_t>::max()},
                           {"\xC3\xA4/b", Array{true, 1, 1.0}}};
  const Path file = ownFolder() / (application + ".plist");
  for (const auto format : {PropertyListFormat::Binary, PropertyListFormat::XML}) {
    Dictionary expected = written;
    if (format == PropertyListFormat::XML) expected.set("z", Date{1});
    writeFile(file, stringFromData(*writePropertyList(expected, format)));
    ::chmod(file.c_str(), 0640);
    ASSERT_TRUE(set("key", "new", currentUser));
    expected.set("key", "new");
    const auto list = readPropertyList(dataFromString(contentOf(file)));
    EXPECT_EQ(list->format, format);
    const Dictionary& found = *list->root.dictionary();
    EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin(), expected.end()));
    EXPECT_EQ(statusOf(file).st_mode & 0777U, 0640U);
  }
}

TEST_F(PreferencesTest, AnExistingFileKeepsItsAccessListAndExtendedAttributes) {
  ASSERT_TRUE(set("key", "old", currentUser));
  const Path file = ownFolder() / (application + ".plist");
  const std::string list = accessListForNobody();
  if (!setAttribute(file, "user.note", "mine") || !setAttribute(file, accessList, list)) {
    GTEST_SKIP() << "the file system keeps no extended attributes";
  }
  ASSERT_TRUE(setAttribute(file, "user.empty", ""));
  const mode_t mode = statusOf(file).st_mode;
  ASSERT_TRUE(set("key", "new", currentUser));
  EXPECT_EQ(attributeOf(file, "user.note"), "mine");
  EXPECT_EQ(attributeOf(file, "user.empty"), "");
  EXPECT_EQ(attributeOf(file, accessList), list);
  EXPECT_EQ(statusOf(file).st_mode, mode);
}

TEST_F(PreferencesTest, AnExistingFileDoesNotGetTheAccessListOfItsFolder) {
  ASSERT_TRUE(set("key", "old", currentUser));
  const Path file = ownFolder() / (application + ".plist");
  ::chmod(file.c_str(), 0660);
  if (!setAttribute(ownFolder(), "system.posix_acl_default", accessListForNobody())) {
    GTEST_SKIP() << "the file system keeps no access control lists";
  }
  ASSERT_TRUE(set("key", "new", currentUser));
  EXPECT_EQ(attributeOf(file, accessList), std::nullopt);
  EXPECT_EQ(statusOf(file).st_mode & 0777U, 0660U);
}

TEST_F(PreferencesTest, AnExistingFileKeepsItsGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_TRUE(set("key", "old", currentUser));
  const Path file = ownFolder() / (application + ".plist");
  ASSERT_EQ(::chown(file.c_str(), static_cast<uid_t>(-1), 1), 0);
  ASSERT_TRUE(set("key", "new", currentUser));
  EXPECT_EQ(statusOf(file).st_gid, 1U);
}

TEST_F(PreferencesTest, AGroupThatAUserCannotGiveLeavesNoRightsToAnother) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  otherHome();
  ASSERT_TRUE(set("key", "old", "nobody"));
  const Path file = otherFolder() / (application + ".plist");
  const gid_t group = statusOf(file).st_gid;
  ASSERT_NE(group, 1U);
  for (const auto& [before, after] : {std::pair(0640U, 0600U), std::pair(0664U, 0644U)}) {
    ASSERT_EQ(::chown(file.c_str(), static_cast<uid_t>(-1), 1), 0);
    ::chmod(file.c_str(), before);
    ASSERT_TRUE(set("key", static_cast<int>(before), "nobody"));
    EXPECT_EQ(statusOf(file).st_gid, group);
    EXPECT_EQ(statusOf(file).st_mode & 0777U, after);
  }
}

TEST_F(PreferencesTest, RemovingAKeyLeavesTheOthers) {
  ASSERT_TRUE(set("one", 1, currentUser));
  ASSERT_TRUE(set("two", 2, currentUser));
  CFPreferencesSetValue("one", std::nullopt, application, currentUser, anyHost);
  ASSERT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_EQ(preferencesIn(ownFolder() / (application + ".plist")), (Dictionary{{"two", 2}}));
}

TEST_F(PreferencesTest, RemovingWhatIsNotThereSucceedsAndMakesNoFile) {
  CFPreferencesSetValue("key", std::nullopt, application, currentUser, anyHost);
  EXPECT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_FALSE(std::filesystem::exists(home() / ".config"));
}

TEST_F(PreferencesTest, WhatChangesNothingLeavesTheFileAlone) {
  ASSERT_TRUE(set("key", "value", currentUser));
  const std::string before = inventory();
  EXPECT_TRUE(set("key", "value", currentUser));
  EXPECT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_EQ(inventory(), before);
}

TEST_F(PreferencesTest, AKeyMayBeAnyText) {
  for (const char* key : {"a/b", "/", "../x", "with space", "\xC3\xA4\n<&>"}) {
    ASSERT_TRUE(set(key, "value", currentUser)) << key;
    EXPECT_EQ(get(key, currentUser), Value("value")) << key;
    EXPECT_NE(preferencesIn(ownFolder() / (application + ".plist")).find(key), nullptr) << key;
  }
}

TEST_F(PreferencesTest, TheSignOfAZeroIsAChange) {
  ASSERT_TRUE(set("key", 0.0, currentUser));
  ASSERT_TRUE(set("key", -0.0, currentUser));
  EXPECT_TRUE(std::signbit(get("key", currentUser)->number()->doubleValue()));
}

TEST_F(PreferencesTest, AnEmptyFileHoldsNoPreferences) {
  const Path file = ownFolder() / (application + ".plist");
  writeFile(file, "");
  EXPECT_EQ(get("key", currentUser), std::nullopt);
  ASSERT_TRUE(set("key", "value", currentUser));
  EXPECT_EQ(preferencesIn(file), (Dictionary{{"key", "value"}}));
}

TEST_F(PreferencesTest, AnIntegerAndABooleanAreNotTheSameValue) {
  ASSERT_TRUE(set("key", true, currentUser));
  ASSERT_TRUE(set("key", 1, currentUser));
  EXPECT_EQ(get("key", currentUser), Value(1));
}

TEST_F(PreferencesTest, SeveralChangesAreWrittenTogether) {
  CFPreferencesSetValue("a", 1, application, currentUser, anyHost);
  CFPreferencesSetValue("b", 2, application, currentUser, anyHost);
  CFPreferencesSetValue("a", 3, application, currentUser, anyHost);
  EXPECT_EQ(get("a", currentUser), std::nullopt);
  ASSERT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_EQ(preferencesIn(ownFolder() / (application + ".plist")),
            (Dictionary{{"a", 3}, {"b", 2}}));
}

TEST_F(PreferencesTest, AChangeBelongsToTheThreadAndTheDomainThatItWasMadeFor) {
  CFPreferencesSetValue("key", 1, application, currentUser, anyHost);
  std::thread([] {
    EXPECT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  }).join();
  EXPECT_TRUE(CFPreferencesSynchronize(application, anyUser, anyHost));
  EXPECT_EQ(get("key", currentUser), std::nullopt);
  EXPECT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_EQ(get("key", currentUser), Value(1));
}

TEST_F(PreferencesTest, AFailedChangeIsNotMadeLater) {
  CFPreferencesSetValue("good", 1, application, currentUser, anyHost);
  CFPreferencesSetValue("\xFF", 1, application, currentUser, anyHost);
  EXPECT_FALSE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_TRUE(CFPreferencesSynchronize(application, currentUser, anyHost));
  EXPECT_EQ(get("good", currentUser), std::nullopt);
}

TEST_F(PreferencesTest, DomainsThatMakeNoSenseFail) {
  struct Case {
    std::string application;
    std::string user;
    std::string host;
  };
  const std::string before = inventory();
  const std::vector<Case> cases = {
      {application, "no-such-user", anyHost},
      {application, anyHost, anyHost},
      {application, currentUser, anyUser},
      {application, currentUser, "another-machine.example"},
      {application, currentUser, ""},
      {application, "", anyHost},
      {application, "../root", anyHost},
      {"", currentUser, anyHost},
      {".", currentUser, anyHost},
      {"..", currentUser, anyHost},
      {"../evil", currentUser, anyHost},
      {"a/b", currentUser, anyHost},
      {"/etc/passwd", currentUser, anyHost},
      {"a..b", currentUser, anyHost},
      {".hidden", currentUser, anyHost},
      {"line\nfeed", currentUser, anyHost},
      {std::string("zero\0byte", 9), currentUser, anyHost},
      {"\xFF", currentUser, anyHost},
      {std::string(250, 'a'), currentUser, anyHost},
  };
  for (const Case& domain : cases) {
    CFPreferencesSetValue("key", 1, domain.application, domain.user, domain.host);
    EXPECT_FALSE(CFPreferencesSynchronize(domain.application, domain.user, domain.host))
        << domain.application << " " << domain.user << " " << domain.host;
    EXPECT_EQ(CFPreferencesCopyValue("key", domain.application, domain.user, domain.host),
              std::nullopt);
  }
  EXPECT_EQ(inventory(), before);
}

TEST_F(PreferencesTest, TheLongestApplicationIdentifierWorks) {
  const std::string longest(249, 'a');
  CFPreferencesSetValue("key", 1, longest, currentUser, anyHost);
  EXPECT_TRUE(CFPreferencesSynchronize(longest, currentUser, anyHost));
  EXPECT_EQ(CFPreferencesCopyValue("key", longest, currentUser, anyHost), Value(1));
}

TEST_F(PreferencesTest, WhatNoFileCanHoldFails) {
  ASSERT_TRUE(set("key", "value", currentUser));
  const std::string before = inventory();
  Value deep = 1;
  for (std::size_t i = 0; i < propertyListMaximumDepth; ++i) deep = Array{std::move(deep)};
  EXPECT_FALSE(set("key", deep, currentUser));
  EXPECT_FALSE(set("key", Error("domain", 1), currentUser));
  EXPECT_FALSE(set("key", "\xFF", currentUser));
  EXPECT_FALSE(set("key", "\x01", currentUser));
  EXPECT_FALSE(set("\xFF", "value", currentUser));
  EXPECT_FALSE(set("key", std::string(propertyListMaximumBytes, 'a'), currentUser));
  EXPECT_EQ(inventory(), before);
}

TEST_F(PreferencesTest, AFileThatIsNoPropertyListIsLeftAsItIs) {
  const Path file = ownFolder() / (application + ".plist");
  for (const char* content : {"\177ELF", "<plist><dict><key>a</key></dict></plist>", "bplist00",
                              "[section]\nkey=value\n", "<plist><array/></plist>", "word"}) {
    writeFile(file, content);
    const std::string before = inventory();
    EXPECT_FALSE(set("key", "value", currentUser)) << content;
    EXPECT_EQ(get("key", currentUser), std::nullopt);
    EXPECT_EQ(inventory(), before);
  }
}

TEST_F(PreferencesTest, AnOldStyleFileBecomesXML) {
  const Path file = ownFolder() / (application + ".plist");
  writeFile(file, "{ a = b; }");
  ASSERT_TRUE(set("c", "d", currentUser));
  EXPECT_THAT(contentOf(file), HasSubstr("<plist"));
  EXPECT_EQ(preferencesIn(file), (Dictionary{{"a", "b"}, {"c", "d"}}));
}

TEST_F(PreferencesTest, OtherToolsReadWhatWasWritten) {
  const Path file = ownFolder() / (application + ".plist");
  for (const auto format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
    writeFile(file, stringFromData(*writePropertyList(
                        Dictionary{{"text", "\xC3\xA4 & <\xE6\x97\xA5>"}}, format)));
    ASSERT_TRUE(set("true", true, currentUser));
    ASSERT_TRUE(set("big", std::numeric_limits<std::uint64_t>::max(), currentUser));
    ASSERT_TRUE(set("least", std::numeric_limits<std::int64_t>::min(), currentUser));
    ASSERT_TRUE(set("real", 0.1, currentUser));
    ASSERT_TRUE(set("date", Date{-1}, currentUser));
    ASSERT_TRUE(set("data", dataFromString("\xFE\xFF"), currentUser));
    ASSERT_TRUE(set("list", Array{"x", Dictionary{{"y", 2}}}, currentUser));
    const std::string script =
        "import plistlib,datetime,sys\n"
        "p=plistlib.load(open(sys.argv[1],\"rb\"))\n"
        "assert p[\"text\"]==\"\\u00e4 & <\\u65e5>\"\n"
        "assert p[\"true\"] is True\n"
        "assert p[\"big\"]==2**64-1 and p[\"least\"]==-2**63\n"
        "assert p[\"real\"]==0.1\n"
        "assert p[\"date\"]==datetime.datetime(2000,12,31,23,59,59)\n"
        "assert p[\"data\"]==b\"\\xfe\\xff\"\n"
        "assert p[\"list\"]==[\"x\",{\"y\":2}]\n"
        "print(\"read\")\n";
    EXPECT_EQ(outputOf("/usr/bin/python3 -c '" + script + "' " + file.string()), "read\n");
    const std::string converted = root() / "converted.plist";
    outputOf("plistutil -f xml -i " + file.string() + " -o " + converted);
    EXPECT_EQ(preferencesIn(converted), preferencesIn(file));
    outputOf("plistutil -f bin -i " + file.string() + " -o " + converted);
    EXPECT_EQ(preferencesIn(converted), preferencesIn(file));
  }
}

TEST_F(PreferencesTest, WhatOtherToolsWroteIsKept) {
  const Path file = ownFolder() / (application + ".plist");
  std::filesystem::create_directories(ownFolder());
  const std::string make =
      "import plistlib,datetime,sys\n"
      "d={\"zebra\":1,\"apple\":True,\"big\":2**64-1,\"neg\":-2**63,\"real\":1e-7,"
      "\"date\":datetime.datetime(1900,1,2,3,4,5),\"far\":datetime.datetime(4001,1,1),"
      "\"data\":bytes(range(256)),\"text\":\"\\u00e4\\U0001f600\\n\\t<&>\","
      "\"k/e y \\u65e5\":[1.5,[],{}],\"empty\":\"\"}\n";
  const auto run = [&](const std::string& script, const std::string& path) {
    return outputOf("/usr/bin/python3 -c '" + make + script + "' " + path);
  };
  for (const char* format : {"FMT_XML", "FMT_BINARY"}) {
    const std::string write =
        "plistlib.dump(d,open(sys.argv[1],\"wb\"),sort_keys=False,fmt=plistlib.";
    run(write + format + ")\n", file);
    ASSERT_TRUE(set("added", "value", currentUser));
    const std::string compare =
        "p=plistlib.load(open(sys.argv[1],\"rb\"))\n"
        "d[\"added\"]=\"value\"\n"
        "assert p==d, p\n"
        "assert [type(v) for v in p.values()]==[type(v) for v in d.values()]\n"
        "assert list(p)==list(d)\n"
        "print(\"kept\")\n";
    EXPECT_EQ(run(compare, file), "kept\n");
  }
  for (const char* format : {"xml", "bin"}) {
    const std::string source = root() / "source.plist";
    run("plistlib.dump(d,open(sys.argv[1],\"wb\"),sort_keys=False)", source);
    outputOf(std::string("plistutil -f ") + format + " -i " + source + " -o " + file.string());
    Dictionary expected = preferencesIn(source);
    ASSERT_TRUE(set("added", "value", currentUser));
    expected.set("added", "value");
    EXPECT_EQ(preferencesIn(file), expected);
  }
}

}  // namespace
}  // namespace corvane
