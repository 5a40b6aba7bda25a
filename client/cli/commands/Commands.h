#ifndef CORVANE_CLIENT_CLI_COMMANDS_COMMANDS_H
#define CORVANE_CLIENT_CLI_COMMANDS_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "client/cli/commands/PreferenceValue.h"
#include "client/cli/output/Report.h"

namespace corvane::cli {

/// Whose preferences are meant: an application and a user by name or as the texts of the platform's
/// constants, and a host. The current user is the one who runs the command.
struct PreferenceDomain {
  std::string application;
  std::string user;
  std::string host;
};

/// What is to be deleted, and how.
struct Deletion {
  std::vector<std::string> paths;
  /// A file with a further path on each line, or "-" for standard input; empty lines are none.
  std::optional<std::string> list;
  bool isListEndedByZeros = false;  ///< each path in it by a zero byte, not by the end of a line
  bool isRecursive = false;
  bool stopsOnFirstError = false;
  bool ignoresMissing = false;  ///< says nothing about paths where nothing is
};

/// The commands. Each returns the status to exit with.

int deleteObjects(const Context& context, const Deletion& deletion);
int deleteFiles(const Context& context, const std::vector<std::string>& paths);
int executeUtility(const Context& context, const std::string& application,
                   const std::string& utility, const std::vector<std::string>& arguments);
int nop(const Context& context);
int discardAuthorization(const Context& context);
/// Tells what a request for the operation of this identifier would meet, without asking anybody.
int tellWhetherAllowed(const Context& context, const std::string& operation);
int showVersion(const Context& context);
/// `state` is "on" or "off".
int setDebugMode(const Context& context, const std::string& state);
int setPreference(const Context& context, const PreferenceDomain& domain, const std::string& key,
                  const PreferenceSource& value);
int removePreference(const Context& context, const PreferenceDomain& domain,
                     const std::string& key);
/// Prints what the calling user may read, without the helper.
int getPreference(const Context& context, const PreferenceDomain& domain, const std::string& key);
int listOperations(const Context& context);
int examine(const Context& context);
int install(const Context& context);
/// A forced one goes on without the helper where that refuses or does not answer.
int uninstall(const Context& context, bool isForced);
/// For the scripts of a package that is removed: has the helper remove itself, says in one line
/// whether it did, and leaves the rest to the package.
int uninstallForPackage(const Context& context);

}  // namespace corvane::cli

#endif
