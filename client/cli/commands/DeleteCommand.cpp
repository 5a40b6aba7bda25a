#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/ProgressBar.h"
#include "client/cli/output/Prompt.h"
#include "client/cli/output/Translation.h"
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

// The paths of the list, behind those that are there; errno's value if it cannot be read.
int appendPathsOf(const Deletion& deletion, std::vector<std::string>& paths) {
  std::FILE* list = *deletion.list == "-" ? stdin : std::fopen(deletion.list->c_str(), "re");
  if (list == nullptr) return errno;
  char* path = nullptr;
  std::size_t size = 0;
  const char end = deletion.isListEndedByZeros ? '\0' : '\n';
  errno = 0;
  for (ssize_t length = 0; (length = ::getdelim(&path, &size, end, list)) > 0;) {
    if (path[length - 1] == end) --length;
    if (length > 0) paths.emplace_back(path, static_cast<std::size_t>(length));
  }
  const int error = std::ferror(list) != 0 ? errno : 0;
  std::free(path);
  if (list != stdin) std::fclose(list);
  return error;
}

bool isMissing(const std::string& path) {
  std::error_code error;
  return fs::symlink_status(path, error).type() == fs::file_type::not_found;
}

}  // namespace

int deleteObjects(const Context& context, const Deletion& deletion) {
  if (deletion.isListEndedByZeros && !deletion.list) {
    return reportUsage(context, translated(alsoNeededText, Array{"--null", "--files-from"}));
  }
  if (deletion.paths.empty() && !deletion.list) {
    return reportUsage(context, translated(missingText, "PATH"));
  }
  std::vector<std::string> givenPaths = deletion.paths;
  if (deletion.list) {
    if (const int error = appendPathsOf(deletion, givenPaths)) {
      return report(context, Action::ReadList, *deletion.list,
                    Outcome{.error = posixErrorFromHost(error), .wasAuthorized = true});
    }
  }
  std::vector<std::string> paths;
  for (const std::string& given : givenPaths) {
    const std::string path = helperPath(given);
    if (path.empty()) {
      return reportUsage(context, translated(noObjectText, given));
    }
    if (!isUTF8(path)) {
      return reportUsage(context, translated(notUTF8Text, given));
    }
    if (!deletion.ignoresMissing || !isMissing(path)) paths.push_back(path);
  }
  const Action action = deletion.isRecursive ? Action::DeleteTree : Action::Delete;
  if (paths.empty()) return report(context, action, "", Outcome());

  PrivilegedHelperClient::DeletionOutcome outcome;
  {
    ProgressBar bar(!context.isQuiet && !context.isJSON && !context.isWithoutFeedback,
                    paths.size() > 1);
    PrivilegedHelperClient::Feedback reporting;
    reporting.object = [&bar](const std::string& path) { bar.name(path); };
    reporting.progress = [&bar](double fraction) { bar.show(fraction); };
    PrivilegedHelperClient::Options options =
        asking(context, promptToDelete(paths, deletion.isRecursive));
    options.beforeAskingOnTerminal = [&bar] { bar.hide(); };
    outcome = PrivilegedHelperClient(std::move(options))
                  .deleteFileObjects(paths,
                                     {.isRecursive = deletion.isRecursive,
                                      .stopsOnFirstError = deletion.stopsOnFirstError},
                                     bar.isShown() ? std::optional(reporting) : std::nullopt);
  }
  const bool wasCarriedOut = outcome.answer && outcome.answer->wasAuthorized.value_or(false);
  if (deletion.isRecursive && wasCarriedOut) {
    for (const std::string& path : outcome.missing) {
      std::fprintf(stderr, "%s\n", printable(translated(nothingThereText, path)).c_str());
    }
  }
  return report(context, action, paths, outcome);
}

}  // namespace corvane::cli
