#ifndef CORVANE_CLIENT_CLI_OUTPUT_PROMPT_H
#define CORVANE_CLIENT_CLI_OUTPUT_PROMPT_H

#include <cstddef>
#include <string>
#include <vector>

#include "client/cli/output/Report.h"

namespace corvane::cli {

/// What every authorization dialog has room for, in characters.
inline constexpr std::size_t maximumPromptLength = 300;

/// What an authorization dialog is to say: one sentence in the user's language, never longer than
/// that. Names in it are shortened where they have to be, and cannot be taken for anything but
/// names.
std::string promptToDelete(const std::vector<std::string>& paths, bool isRecursive);
std::string promptToRun(const std::string& utility, const std::vector<std::string>& arguments);
/// `application` and `user` by name or as the texts of the platform's constants.
std::string promptToSetPreference(const std::string& key, const std::string& application,
                                  const std::string& user);
std::string promptToRemovePreference(const std::string& key, const std::string& application,
                                     const std::string& user);

/// The options of the client for a command whose dialog says `prompt`, unless the command line has
/// another.
PrivilegedHelperClient::Options asking(const Context& context, std::string prompt);

}  // namespace corvane::cli

#endif
