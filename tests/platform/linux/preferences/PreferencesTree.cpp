#include "tests/support/PreferencesTree.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/PropertyList.h"
#include "platform/Preferences.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;

const TemporaryFolder treeFolder;

// Named in the environment before anything can have looked.
const fs::path treeRoot = [] {
  ::setenv("CORVANE_PREFERENCES_ROOT", treeFolder.path().c_str(), 1);
  return treeFolder.path();
}();

fs::path inTree(const char* absolute) {
  return treeRoot / fs::path(absolute).relative_path();
}

}  // namespace

const fs::path& PreferencesTree::root() {
  return treeRoot;
}

fs::path PreferencesTree::sharedFolder() {
  return root() / "etc/xdg/preferences";
}

fs::path PreferencesTree::home() {
  return inTree(::getpwuid(::geteuid())->pw_dir);
}

fs::path PreferencesTree::ownFolder() {
  return home() / ".config/preferences";
}

uid_t PreferencesTree::otherUser() {
  return ::getpwnam("nobody")->pw_uid;
}

fs::path PreferencesTree::otherHome() {
  fs::path home = inTree(::getpwnam("nobody")->pw_dir);
  if (!fs::exists(home)) makeFolder(home, otherUser());
  return home;
}

fs::path PreferencesTree::otherFolder() {
  return otherHome() / ".config/preferences";
}

void PreferencesTree::SetUp() {
  fs::create_directories(root() / "etc");
  fs::create_directories(home());
}

void PreferencesTree::TearDown() {
  for (const auto& entry : fs::directory_iterator(root())) fs::remove_all(entry.path());
}

std::string PreferencesTree::hostFileName(const std::string& application) {
  std::string machine = contentOf("/etc/machine-id");
  machine.erase(machine.find_last_not_of('\n') + 1);
  return application + "." + machine + ".plist";
}

void PreferencesTree::makeFolder(const Path& path, uid_t owner) {
  if (fs::exists(path)) return;
  makeFolder(path.parent_path(), owner);
  fs::create_directory(path);
  ASSERT_EQ(::chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0) << path;
}

Dictionary PreferencesTree::preferencesIn(const Path& path) {
  Result<Dictionary> dictionary = readDictionary(dataFromString(contentOf(path)));
  EXPECT_TRUE(dictionary) << path;
  return dictionary ? *std::move(dictionary) : Dictionary();
}

std::string PreferencesTree::outputOf(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen(command.c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  if (pipe == nullptr) return output;
  for (int character = 0; (character = std::fgetc(pipe)) != EOF;) {
    output += static_cast<char>(character);
  }
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return output;
}

std::string PreferencesTree::inventory() {
  std::ostringstream text;
  std::vector<fs::path> paths;
  for (const auto& entry : fs::recursive_directory_iterator(root())) paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  for (const fs::path& path : paths) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    const bool isEmptyFolder = S_ISDIR(status.st_mode) && fs::is_empty(path);
    if ((S_ISREG(status.st_mode) && path.filename() == ".lock") || isEmptyFolder) continue;
    if (S_ISDIR(status.st_mode)) continue;
    text << path << " " << std::oct << status.st_mode << std::dec << " " << status.st_uid << " "
         << status.st_ino << " ";
    if (S_ISREG(status.st_mode)) text << contentOf(path);
    if (S_ISLNK(status.st_mode)) text << fs::read_symlink(path);
    text << "\n";
  }
  return text.str();
}

bool PreferencesTree::set(const std::string& key, Value value, std::string_view user) {
  CFPreferencesSetValue(key, std::move(value), application, std::string(user),
                        std::string(kCFPreferencesAnyHost));
  return CFPreferencesSynchronize(application, std::string(user),
                                  std::string(kCFPreferencesAnyHost));
}

std::optional<Value> PreferencesTree::get(const std::string& key, std::string_view user) {
  return CFPreferencesCopyValue(key, application, std::string(user),
                                std::string(kCFPreferencesAnyHost));
}

}  // namespace corvane
