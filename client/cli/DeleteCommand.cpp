#include <atomic>
#include <cstdio>
#include <filesystem>

#include "client/cli/Commands.h"
#include "client/cli/ProgressBar.h"

namespace corvane::cli {

namespace {

namespace fs = std::filesystem;

// The path as the helper takes it: absolute, because its working folder is another; empty if it
// names what nobody means to delete.
std::string helperPath(const std::string& given) {
  if (given.empty()) return {};
  fs::path path = fs::absolute(given);
  if (!path.has_filename()) path = path.parent_path();
  const fs::path name = path.filename();
  if (name.empty() || name == "." || name == "..") return {};
  return path.string();
}

std::string quoted(const std::string& path) {
  return "'" + path + "'";
}

// What the command was about, for its error: what is left of it, by name while that is short.
std::string actionFor(const std::vector<std::string>& paths) {
  std::vector<std::string> left;
  for (const std::string& path : paths) {
    std::error_code error;
    if (fs::symlink_status(path, error).type() != fs::file_type::not_found) left.push_back(path);
  }
  const std::vector<std::string>& named = left.empty() ? paths : left;
  std::string action = "delete " + quoted(named.front());
  if (named.size() > 1) action += " and " + std::to_string(named.size() - 1) + " more";
  return action;
}

}  // namespace

int deleteObjects(const Context& context, const std::vector<std::string>& paths, bool recursive,
                  bool stopOnFirstError) {
  std::vector<std::string> absolute;
  for (const std::string& path : paths) {
    absolute.push_back(helperPath(path));
    if (absolute.back().empty()) {
      return reportUsage(context, "Refusing to delete " + quoted(path) + ".");
    }
  }

  std::atomic<bool> wasAuthorized = false;
  std::optional<PrivilegedHelperClient::Outcome> outcome;
  {
    ProgressBar bar(!context.isQuiet && !context.isJSON);
    PrivilegedHelperClient::Feedback feedback;
    feedback.progress = [&](double fraction) {
      wasAuthorized = true;
      bar.show(fraction);
    };
    PrivilegedHelperClient client(context.client);
    outcome = client.deleteFileObjects(
        absolute, recursive, stopOnFirstError,
        context.isWithoutFeedback ? std::nullopt : std::optional(feedback));
  }
  return report(context, actionFor(absolute), *outcome, wasAuthorized);
}

}  // namespace corvane::cli
