#include "platform/linux/installation/DebianPackage.h"

#include <filesystem>
#include <sstream>

#include "platform/posix/Program.h"

namespace corvane {

std::optional<std::string> packageOf(const std::string& path, const std::string& root) {
  const auto found = runProgram("/usr/bin/dpkg-query", {"--root=" + root, "--search", path});
  const std::size_t end = found.text.find(':');
  if (found.status != 0 || end == std::string::npos) return std::nullopt;
  return found.text.substr(0, end);
}

std::set<std::string> changedFilesOf(const std::string& package, const std::string& root) {
  // dpkg prints a line for each file: what is wrong with it, perhaps a letter for its kind, its
  // path, and perhaps a reason in parentheses.
  std::istringstream lines(
      runProgram("/usr/bin/dpkg", {"--root=" + root, "--verify", package}).text);
  std::set<std::string> changed;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t begin = line.find('/');
    if (begin == std::string::npos) continue;
    const std::filesystem::path path = line.substr(begin, line.find(" (", begin) - begin);
    // A folder may have two names, such as /bin and /usr/bin: all paths are given their real one.
    std::error_code ignored;
    const auto folder = std::filesystem::weakly_canonical(path.parent_path(), ignored);
    changed.insert((folder / path.filename()).string());
  }
  return changed;
}

}  // namespace corvane
