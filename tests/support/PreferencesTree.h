#ifndef CORVANE_TESTS_SUPPORT_PREFERENCESTREE_H
#define CORVANE_TESTS_SUPPORT_PREFERENCESTREE_H

#include <filesystem>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <sys/types.h>

#include "foundation/Value.h"

namespace corvane {

/// A tree of its own for the preferences of this machine's real users, gone after the test.
class PreferencesTree : public testing::Test {
 protected:
  using Path = std::filesystem::path;

  void SetUp() override;
  void TearDown() override;

  /// Where the root of the tree is.
  static const Path& root();
  /// The folder for all users.
  static Path sharedFolder();
  /// The home folder of the user that runs the test.
  static Path home();
  static Path ownFolder();
  /// The name of a file of this machine alone.
  static std::string hostFileName(const std::string& application);

  /// The user "nobody", and its home folder in the tree, made on demand and owned by it.
  static uid_t otherUser();
  static Path otherHome();
  static Path otherFolder();

  /// Makes the folder, with those above it that are missing.
  static void makeFolder(const Path& path, uid_t owner);
  /// The preferences in a file, which has to be a property list with a dictionary.
  static Dictionary preferencesIn(const Path& path);
  /// What the shell command prints; the test fails if it does not end with status 0.
  static std::string outputOf(const std::string& command);
  /// Every path of the tree with what kind, size, owner and content it has: equal texts mean that
  /// nothing was touched. Locks and empty folders are left aside.
  static std::string inventory();

  /// Sets `key` of `user` and synchronises.
  static bool set(const std::string& key, Value value, std::string_view user);
  static std::optional<Value> get(const std::string& key, std::string_view user);
};

/// The application of the tests.
inline const std::string application = "com.example.tests";

}  // namespace corvane

#endif
