#include "foundation/Bundle.h"

#include <algorithm>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/PropertyList.h"

namespace corvane {

namespace {

constexpr std::size_t maximumInfoSize = std::size_t{1} << 20U;

bool isRegularFile(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(path, ignored);
}

std::optional<Data> contentsOfInfoFile(const std::string& path) {
  // Asked before it is opened: a device or a fifo may do anything when it is. The answer may be out
  // of date by the time of the opening, hence no waiting.
  if (!isRegularFile(path)) return std::nullopt;
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  Data data(maximumInfoSize + 1);
  std::size_t length = 0;
  while (length < data.size()) {
    const ssize_t count = read(file.get(), data.data() + length, data.size() - length);
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  if (length > maximumInfoSize) return std::nullopt;
  data.resize(length);
  return data;
}

bool isFileName(const std::string& name) {
  using namespace std::string_view_literals;
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of("/\0"sv) == std::string::npos;
}

// True if `path`, with all links followed, is below `folder`.
bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder) {
  std::error_code error;
  const auto target = std::filesystem::canonical(path, error);
  if (error) return false;
  const auto root = std::filesystem::canonical(folder, error);
  if (error) return false;
  return std::mismatch(root.begin(), root.end(), target.begin(), target.end()).first == root.end();
}

}  // namespace

std::optional<Bundle> Bundle::bundleWithPath(const std::string& path) {
  // Such a path would be cut on its way to the system.
  if (path.find('\0') != std::string::npos) return std::nullopt;
  const auto contents = contentsOfInfoFile(path + "/Contents/Info.plist");
  if (!contents) return std::nullopt;
  Result<Dictionary> info = readDictionary(*contents);
  if (!info) return std::nullopt;
  return Bundle(path, *std::move(info));
}

std::optional<std::string> Bundle::executablePath() const {
  const std::optional<std::string> name = _infoDictionary.text("CFBundleExecutable");
  if (!name || !isFileName(*name)) return std::nullopt;
  std::string path = _path + "/Contents/MacOS/" + *name;
  if (!isRegularFile(path) || !isInside(path, _path)) return std::nullopt;
  return path;
}

}  // namespace corvane
