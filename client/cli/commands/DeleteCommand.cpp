#include <atomic>
#include <filesystem>

#include "client/cli/commands/AppendOnlyObjects.h"
#include "client/cli/commands/Commands.h"
#include "client/cli/output/ProgressBar.h"
#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"

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

// Those of the paths where something is, or may be: this user does not see everything.
std::vector<std::string> leftOf(const std::vector<std::string>& paths) {
  std::vector<std::string> left;
  for (const std::string& path : paths) {
    std::error_code error;
    if (fs::symlink_status(path, error).type() != fs::file_type::not_found) left.push_back(path);
  }
  return left;
}

// What the line about a failure is about: what is left of the paths, or all if nothing is.
std::vector<std::string> namedInFailure(const std::vector<std::string>& paths) {
  std::vector<std::string> left = leftOf(paths);
  return left.empty() ? paths : left;
}

// Whether append-only objects may be what was in the way of a recursive deletion.
bool mayBeAppendOnly(const PrivilegedHelperClient::Outcome& outcome) {
  return outcome.error && isPOSIXError(*outcome.error, POSIXErrorCode::NotPermitted);
}

}  // namespace

int deleteObjects(const Context& context, const std::vector<std::string>& paths, bool recursive,
                  bool stopOnFirstError) {
  std::vector<std::string> absolute;
  for (const std::string& path : paths) {
    absolute.push_back(helperPath(path));
    if (absolute.back().empty()) {
      return reportUsage(context,
                         "Refusing to delete " + quoted(path) + ": that does not name an object.");
    }
    if (!isUTF8(absolute.back())) {
      return reportUsage(context, "The name " + quoted(path) +
                                      " is not UTF-8 and cannot be sent; delete its folder.");
    }
  }

  std::atomic<bool> wasAuthorized = false;
  PrivilegedHelperClient::Outcome outcome;
  {
    ProgressBar bar(!context.isQuiet && !context.isJSON);
    PrivilegedHelperClient::Feedback reporting;
    reporting.progress = [&](double fraction) {
      wasAuthorized = true;
      bar.show(fraction);
    };
    const auto feedback = context.isWithoutFeedback ? std::nullopt : std::optional(reporting);
    PrivilegedHelperClient client(context.client);
    outcome = client.deleteFileObjects(absolute, recursive, stopOnFirstError, feedback);

    // The recursive deletion takes immutability off, but not this; the single one does, be it that
    // a folder then stays because it is not empty. What this user cannot see, the helper finds in
    // its way again. A deletion that stops has done so at the first object that is left: what is
    // behind that is not touched before the helper gets there.
    std::vector<std::string> left = absolute;
    std::string obstacle;
    while (recursive && mayBeAppendOnly(outcome) && (wasAuthorized || context.isWithoutFeedback)) {
      left = leftOf(left);
      if (left.empty() || left.front() == obstacle) break;
      const std::vector<std::string> inTheWay =
          appendOnlyObjects(stopOnFirstError ? std::vector{left.front()} : left);
      if (inTheWay.empty()) break;
      obstacle = left.front();
      client.deleteFileObjects(inTheWay, false, false, feedback);
      outcome = client.deleteFileObjects(left, recursive, stopOnFirstError, feedback);
    }
  }
  const std::vector<std::string> named = namedInFailure(absolute);
  return report(context, named.size() > 1 ? Action::DeleteSeveral : Action::Delete, named.front(),
                outcome, wasAuthorized);
}

}  // namespace corvane::cli
